#include "scrollback.h"

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextEdit>

void trimScrollback(QTextEdit* view, int limit)
{
    if (!view || limit <= 0)
        return;
    QTextDocument* document = view->document();
    const int excess = document->blockCount() - limit;
    if (excess <= 0 || excess < limit / 10)
        return;
    QTextCursor cursor(document);
    cursor.movePosition(QTextCursor::Start);
    cursor.setPosition(document->findBlockByNumber(excess).position(), QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
}
