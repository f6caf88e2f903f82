#include "qlinenumberarea.h"

#include "qcodeeditor.h"
#include "qsyntaxstyle.h"

#include <QAbstractTextDocumentLayout>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>

namespace {
constexpr int kMarginPx = 6;
}

QLineNumberArea::QLineNumberArea(QCodeEditor* editor) : QWidget(editor), m_editor(editor) {}

QSize QLineNumberArea::sizeHint() const
{
    const int digits = QString::number(qMax(1, m_editor->document()->blockCount())).size();
    return {2 * kMarginPx + m_editor->fontMetrics().horizontalAdvance(QLatin1Char('9')) * digits, 0};
}

void QLineNumberArea::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    const auto formatOf = [this](const char* name) {
        return m_style ? m_style->getFormat(QString::fromLatin1(name)) : QTextCharFormat();
    };
    const QTextCharFormat text = formatOf("Text");
    painter.fillRect(event->rect(), text.background().style() == Qt::NoBrush ? palette().window() : text.background());
    const QTextCharFormat number = formatOf("LineNumber");
    const QTextCharFormat current = formatOf("CurrentLineNumber");
    const int currentBlock = m_editor->textCursor().blockNumber();
    const int scroll = m_editor->verticalScrollBar()->value();
    const int top = m_editor->viewport()->geometry().top();
    QAbstractTextDocumentLayout* layout = m_editor->document()->documentLayout();
    painter.setFont(m_editor->font());
    // From the first visible block only: walking a long document on every
    // repaint would make typing slow.
    for (QTextBlock block = m_editor->cursorForPosition(QPoint(0, 0)).block(); block.isValid(); block = block.next()) {
        const QRectF rect = layout->blockBoundingRect(block).translated(0, top - scroll);
        if (rect.top() > event->rect().bottom())
            break;
        const QTextCharFormat& f = block.blockNumber() == currentBlock ? current : number;
        QFont font = m_editor->font();
        font.setBold(f.fontWeight() >= QFont::Bold);
        painter.setFont(font);
        painter.setPen(f.foreground().style() == Qt::NoBrush ? palette().color(QPalette::WindowText)
                                                             : f.foreground().color());
        painter.drawText(QRectF(0, rect.top(), width() - kMarginPx, m_editor->fontMetrics().height()), Qt::AlignRight,
                         QString::number(block.blockNumber() + 1));
    }
}
