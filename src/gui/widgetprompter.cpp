#include "widgetprompter.h"

#include <QFileDialog>
#include <QMessageBox>

Prompter::Answer WidgetPrompter::question(const QString& title, const QString& text, Buttons buttons)
{
    QMessageBox::StandardButtons standard = QMessageBox::Yes | QMessageBox::No;
    if (buttons == YesNoCancel)
        standard |= QMessageBox::Cancel;
    switch (QMessageBox::question(m_parent, title, text, standard)) {
    case QMessageBox::Yes:
        return Yes;
    case QMessageBox::No:
        return No;
    default:
        return Cancel;
    }
}

QString WidgetPrompter::saveFileName(const QString& title, const QString& suggested, const QString& filter)
{
    return QFileDialog::getSaveFileName(m_parent, title, suggested, filter);
}

QString WidgetPrompter::existingDirectory(const QString& title, const QString& start)
{
    return QFileDialog::getExistingDirectory(m_parent, title, start);
}
