#include "boardpanekeys.h"

#include <QKeyEvent>

bool BoardPaneKeys::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress)
        return QObject::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    if (key->modifiers() & ~Qt::KeypadModifier)
        return false;
    switch (key->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        emit openRequested();
        return true;
    case Qt::Key_Delete:
        emit removeRequested();
        return true;
    case Qt::Key_Backspace:
        emit upRequested();
        return true;
    default:
        return false;
    }
}
