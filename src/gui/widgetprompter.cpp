#include "widgetprompter.h"

#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>

namespace {
QMessageBox::StandardButton standardButton(Prompter::Answer answer)
{
    switch (answer) {
    case Prompter::Yes:
        return QMessageBox::Yes;
    case Prompter::No:
        return QMessageBox::No;
    case Prompter::Cancel:
        return QMessageBox::Cancel;
    default:
        return QMessageBox::NoButton;
    }
}

Prompter::Answer answerOf(int button)
{
    switch (button) {
    case QMessageBox::Yes:
        return Prompter::Yes;
    case QMessageBox::No:
        return Prompter::No;
    default:
        return Prompter::Cancel;
    }
}
} // namespace

Prompter::Answer WidgetPrompter::question(const QString& title, const QString& text, Buttons buttons,
                                          Answer defaultButton)
{
    QMessageBox::StandardButtons standard = QMessageBox::Yes | QMessageBox::No;
    if (buttons == YesNoCancel)
        standard |= QMessageBox::Cancel;
    return answerOf(QMessageBox::question(m_parent, title, text, standard, standardButton(defaultButton)));
}

Prompter::Answer WidgetPrompter::details(const QString& title, const QString& text, const QString& informative,
                                         const QString& detailed)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel,
                    m_parent);
    box.setInformativeText(informative);
    box.setDetailedText(detailed);
    return answerOf(box.exec());
}

QString WidgetPrompter::saveFileName(const QString& title, const QString& suggested, const QString& filter)
{
    return QFileDialog::getSaveFileName(m_parent, title, suggested, filter);
}

QString WidgetPrompter::existingDirectory(const QString& title, const QString& start)
{
    return QFileDialog::getExistingDirectory(m_parent, title, start);
}

QString WidgetPrompter::openFileName(const QString& title, const QString& start, const QString& filter)
{
    return QFileDialog::getOpenFileName(m_parent, title, start, filter);
}

QString WidgetPrompter::text(const QString& title, const QString& label)
{
    return QInputDialog::getText(m_parent, title, label, QLineEdit::Normal, QString());
}

void WidgetPrompter::warning(const QString& title, const QString& text)
{
    QMessageBox::warning(m_parent, title, text, QMessageBox::Ok);
}
