#include "qframedtextattribute.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextCursor>
#include <QTextDocument>

int QFramedTextAttribute::type()
{
    return QTextFormat::UserObject + 1;
}

QFramedTextAttribute::QFramedTextAttribute(QObject* parent) : QObject(parent) {}

QSizeF QFramedTextAttribute::intrinsicSize(QTextDocument*, int, const QTextFormat&)
{
    return {0, 0};
}

void QFramedTextAttribute::drawObject(QPainter* painter, const QRectF& rect, QTextDocument*, int,
                                      const QTextFormat& format)
{
    const QTextCharFormat text = format.toCharFormat();
    const QString framed = format.property(FramedString).toString();
    const QFontMetricsF metrics(text.font());
    const QRectF box(rect.x() - metrics.horizontalAdvance(framed), rect.y(), metrics.horizontalAdvance(framed),
                     metrics.height());
    painter->save();
    painter->setPen(QPen(QColor(QStringLiteral("#f9a825")), 1));
    painter->drawRect(box.adjusted(0, 0, -1, -1));
    painter->restore();
}

void QFramedTextAttribute::frame(QTextCursor cursor)
{
    const QString text = cursor.selectedText();
    if (text.isEmpty())
        return;
    QTextCharFormat format;
    format.setObjectType(type());
    format.setProperty(FramedString, text);
    cursor.movePosition(QTextCursor::NoMove);
    cursor.setPosition(cursor.selectionEnd());
    cursor.insertText(QString(QChar::ObjectReplacementCharacter), format);
}

void QFramedTextAttribute::clear(QTextCursor cursor)
{
    QTextDocument* document = cursor.document();
    const int end = cursor.selectionEnd();
    for (int pos = end; pos >= cursor.selectionStart(); --pos) {
        if (document->characterAt(pos) != QChar::ObjectReplacementCharacter)
            continue;
        QTextCursor at(document);
        at.setPosition(pos);
        at.movePosition(QTextCursor::NextCharacter, QTextCursor::KeepAnchor);
        if (at.charFormat().objectType() == type())
            at.removeSelectedText();
    }
}
