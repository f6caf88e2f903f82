// The window's Terminal and Syslog views: time-stamped lines, the board's
// ANSI colours as HTML, saving and clearing.
#include "pelkamwindow.h"

#include "prompter.h"
#include "scrollback.h"

#include <QAction>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegExp>
#include <QScrollBar>
#include <QStandardPaths>
#include <QTextBrowser>

QString PelkamWindow::timeStamp(const QString& color) const
{
    return QStringLiteral("<font color=%2>[%1]</font>: ")
        .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")), color);
}

void PelkamWindow::terminalAppend(const QString& text)
{
    if (!m_terminal)
        return;
    QString line = timeStamp(m_accentColor) + text;
    m_terminal->append(processTerminalData(line));
    trimScrollback(m_terminal, m_scrollback);
}

void PelkamWindow::ownCommandAppend(const QString& text)
{
    // View > "Show the program's own commands" (on by default) lets them through.
    if (action(QStringLiteral("actionShowOwnCommands"))->isChecked())
        logAppend(text);
}

void PelkamWindow::logAppend(const QString& text)
{
    if (!m_log)
        return;
    QString line = timeStamp(m_syslogColor) + text;
    m_log->append(processTerminalData(line));
    trimScrollback(m_log, m_scrollback);
    m_log->verticalScrollBar()->setValue(m_log->verticalScrollBar()->maximum());
}

QString& PelkamWindow::processTerminalData(QString& text)
{
    static const QRegExp pattern(QStringLiteral("\\x001b\\[(?:(\\d+)\\;)*(\\d+)m"));
    auto colorName = [](int code) -> QString {
        switch (code) {
        case TC_Red:
            return QStringLiteral("red");
        case TC_Green:
            return QStringLiteral("green");
        case TC_Yellow:
            return QStringLiteral("yellow");
        case TC_Blue:
            return QStringLiteral("blue");
        case TC_Magenta:
            return QStringLiteral("magenta");
        case TC_Cyan:
            return QStringLiteral("cyan");
        case TC_White:
            return QStringLiteral("white");
        default:
            return QStringLiteral("black");
        }
    };
    QRegExp rx(pattern);
    bool open = false;
    int pos = rx.indexIn(text, 0);
    while (pos != -1) {
        const int length = rx.matchedLength();
        QString replacement;
        for (int cap = 1; cap <= 2; ++cap) {
            const QString param = rx.cap(cap);
            if (param.isEmpty())
                continue;
            const int code = param.toInt();
            if (code == TC_None) {
                if (open)
                    replacement += QStringLiteral("</font>");
                open = false;
            } else {
                if (open)
                    replacement += QStringLiteral("</font>");
                replacement += QStringLiteral("<font color=%1>").arg(colorName(code));
                open = true;
            }
        }
        text.replace(pos, length, replacement);
        // Deliberate resume rule: may start before the inserted text, or count
        // back from the end when negative.
        pos = rx.indexIn(text, pos + replacement.length() - length);
    }
    return text;
}

void PelkamWindow::saveLog(QTextBrowser* view, const QString& prefix)
{
    const QString start = m_settings
                              .value(QStringLiteral("UI/LogDir"),
                                     QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).value(0))
                              .toString();
    const QString suggested = start + QLatin1Char('/') + prefix +
                              QDateTime::currentDateTime().toString(QStringLiteral("_yyyyMMddhhmmss")) +
                              QStringLiteral(".log");
    QString name = m_prompter->saveFileName(tr("Save Log As"), suggested, tr("Log files (*.log)"));
    if (name.isEmpty())
        return;
    if (!name.endsWith(QLatin1String(".log"), Qt::CaseInsensitive))
        name += QStringLiteral(".log");
    m_settings.setValue(QStringLiteral("UI/LogDir"), QFileInfo(name).absolutePath());
    QFile file(name);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(view->toPlainText().toUtf8());
        logAppend(tr("Saved to %1").arg(QFileInfo(name).fileName()));
    } else {
        logAppend(tr("Cannot save to %1: %2").arg(name, file.errorString()));
    }
}

void PelkamWindow::on_actionSaveTerminal_triggered()
{
    saveLog(m_terminal, QStringLiteral("pelkam_terminal"));
}

void PelkamWindow::on_actionSaveSyslog_triggered()
{
    saveLog(m_log, QStringLiteral("pelkam_syslog"));
}

void PelkamWindow::on_actionClear_Terminal_triggered()
{
    m_terminal->clear();
}

void PelkamWindow::on_actionClear_Syslog_triggered()
{
    m_log->clear();
}
