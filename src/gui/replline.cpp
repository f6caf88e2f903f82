#include "replline.h"

#include <QKeyEvent>
#include <QSettings>

namespace {
constexpr char kCtrlC = 0x03; // interrupt the board's program
constexpr char kCtrlD = 0x04; // soft reset / end of input
const QString kHistoryKey = QStringLiteral("UI/ReplHistory");
} // namespace

ReplLine::ReplLine(QWidget* parent) : QLineEdit(parent)
{
    setObjectName(QStringLiteral("replEdit"));
    setUsable(false, false);
    m_history = QSettings().value(kHistoryKey).toStringList().mid(0, kHistoryLimit);
    m_position = m_history.size();
}

void ReplLine::setUsable(bool connected, bool boardFree)
{
    setEnabled(connected && boardFree);
    if (!connected)
        setPlaceholderText(tr("Connect to a board to type here"));
    else if (!boardFree)
        setPlaceholderText(tr("Pelkam drives the board: press Launch (or connect with Monitor Only) to type here"));
    else
        setPlaceholderText(tr("Type a line for the board and press Enter"));
}

void ReplLine::keyPressEvent(QKeyEvent* event)
{
    if (event->modifiers() == Qt::ControlModifier && (event->key() == Qt::Key_C || event->key() == Qt::Key_D)) {
        emit send(QByteArray(1, event->key() == Qt::Key_C ? kCtrlC : kCtrlD));
        return;
    }
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter: {
        const QString line = text();
        remember(line);
        clear();
        // The board's REPL takes CR as Enter; an LF would be a second one on some ports.
        emit send(line.toUtf8() + '\r');
        return;
    }
    case Qt::Key_Up:
        recall(-1);
        return;
    case Qt::Key_Down:
        recall(1);
        return;
    default:
        QLineEdit::keyPressEvent(event);
    }
}

void ReplLine::remember(const QString& line)
{
    if (!line.trimmed().isEmpty() && (m_history.isEmpty() || m_history.last() != line)) {
        m_history.append(line);
        while (m_history.size() > kHistoryLimit)
            m_history.removeFirst();
        QSettings().setValue(kHistoryKey, m_history);
    }
    m_position = m_history.size();
}

void ReplLine::recall(int step)
{
    const int position = qBound(0, m_position + step, m_history.size());
    if (position == m_position)
        return;
    m_position = position;
    setText(m_position < m_history.size() ? m_history.at(m_position) : QString());
}
