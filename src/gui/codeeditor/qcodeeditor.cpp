#include "qcodeeditor.h"

#include "qframedtextattribute.h"
#include "qlinenumberarea.h"
#include "qstylesyntaxhighlighter.h"
#include "qsyntaxstyle.h"

#include <QAbstractItemView>
#include <QAbstractTextDocumentLayout>
#include <QCompleter>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>

namespace {
// Opening and closing characters, read two at a time.
const QString kParentheses = QStringLiteral("(){}[]\"\"''");
const QString kEndOfWord = QStringLiteral("~!@#$%^&*()_+{}|:\"<>?,./;'[]\\-=");
constexpr int kFontPointSize = 10;
constexpr int kCompletionMinimum = 2;
constexpr int kPopupExtraWidth = 40;
} // namespace

QCodeEditor::QCodeEditor(QWidget* parent) : QTextEdit(parent), m_lineNumbers(new QLineNumberArea(this))
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setFixedPitch(true);
    font.setPointSize(kFontPointSize);
    setFont(font);
    setAcceptRichText(false);
    setLineWrapMode(QTextEdit::NoWrap);
    document()->documentLayout()->registerHandler(QFramedTextAttribute::type(), new QFramedTextAttribute(this));
    connect(document(), &QTextDocument::blockCountChanged, this, &QCodeEditor::updateGutter);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, m_lineNumbers, [this] { m_lineNumbers->update(); });
    connect(this, &QTextEdit::cursorPositionChanged, this, &QCodeEditor::updateExtraSelections);
    connect(this, &QTextEdit::selectionChanged, this, &QCodeEditor::updateExtraSelections);
    connect(this, &QTextEdit::textChanged, m_lineNumbers, [this] { m_lineNumbers->update(); });
    setTabReplaceSize(m_tabReplacement.size());
    setSyntaxStyle(QSyntaxStyle::defaultStyle());
    updateGutter();
}

void QCodeEditor::setSyntaxStyle(QSyntaxStyle* style)
{
    m_style = style;
    m_lineNumbers->setSyntaxStyle(style);
    if (m_highlighter) {
        m_highlighter->setSyntaxStyle(style);
        m_highlighter->rehighlight();
    }
    if (style) {
        const QTextCharFormat text = style->getFormat(QStringLiteral("Text"));
        const QTextCharFormat selection = style->getFormat(QStringLiteral("Selection"));
        QString sheet = QStringLiteral("QTextEdit {");
        if (text.background().style() != Qt::NoBrush)
            sheet += QStringLiteral(" background-color: %1;").arg(text.background().color().name());
        if (text.foreground().style() != Qt::NoBrush)
            sheet += QStringLiteral(" color: %1;").arg(text.foreground().color().name());
        if (selection.background().style() != Qt::NoBrush)
            sheet += QStringLiteral(" selection-background-color: %1;").arg(selection.background().color().name());
        if (selection.foreground().style() != Qt::NoBrush)
            sheet += QStringLiteral(" selection-color: %1;").arg(selection.foreground().color().name());
        setStyleSheet(sheet + QStringLiteral(" }"));
    }
    updateExtraSelections();
}

void QCodeEditor::setHighlighter(QStyleSyntaxHighlighter* highlighter)
{
    if (m_highlighter && m_highlighter != highlighter)
        m_highlighter->setDocument(nullptr);
    m_highlighter = highlighter;
    if (!m_highlighter)
        return;
    m_highlighter->setSyntaxStyle(m_style);
    // Highlighting marks every block dirty, and the text edit's layout walks
    // the whole document for each of them. Without a page size it does
    // nothing; restoring the size lays the document out once.
    const QSizeF page = document()->pageSize();
    document()->setPageSize(QSizeF(0, 0));
    m_highlighter->setDocument(document());
    m_highlighter->rehighlight();
    document()->setPageSize(page);
}

void QCodeEditor::setCompleter(QCompleter* completer)
{
    if (m_completer)
        disconnect(m_completer, nullptr, this, nullptr);
    m_completer = completer;
    if (!m_completer)
        return;
    m_completer->setWidget(this);
    m_completer->setCompletionMode(QCompleter::PopupCompletion);
    connect(m_completer, QOverload<const QString&>::of(&QCompleter::activated), this, &QCodeEditor::insertCompletion);
}

void QCodeEditor::setTabReplaceSize(int size)
{
    m_tabReplacement = QString(qMax(1, size), QLatin1Char(' '));
    setTabStopDistance(fontMetrics().averageCharWidth() * m_tabReplacement.size());
}

void QCodeEditor::setVisualizeWhitespace(bool on)
{
    m_visualizeWhitespace = on;
    QTextOption option = document()->defaultTextOption();
    option.setFlags(on ? option.flags() | QTextOption::ShowTabsAndSpaces
                       : option.flags() & ~QTextOption::ShowTabsAndSpaces);
    document()->setDefaultTextOption(option);
}

void QCodeEditor::insertCompletion(const QString& completion)
{
    if (!m_completer || m_completer->widget() != this)
        return;
    QTextCursor cursor = textCursor();
    cursor.select(QTextCursor::WordUnderCursor);
    cursor.insertText(completion);
    setTextCursor(cursor);
}

void QCodeEditor::updateGutter()
{
    setViewportMargins(m_lineNumbers->sizeHint().width(), 0, 0, 0);
    const QRect area = contentsRect();
    m_lineNumbers->setGeometry(area.left(), area.top(), m_lineNumbers->sizeHint().width(), area.height());
    m_lineNumbers->update();
}

void QCodeEditor::resizeEvent(QResizeEvent* event)
{
    QTextEdit::resizeEvent(event);
    updateGutter();
}

void QCodeEditor::paintEvent(QPaintEvent* event)
{
    QTextEdit::paintEvent(event);
    m_lineNumbers->update();
}

void QCodeEditor::focusInEvent(QFocusEvent* event)
{
    if (m_completer)
        m_completer->setWidget(this);
    QTextEdit::focusInEvent(event);
}

void QCodeEditor::insertFromMimeData(const QMimeData* source)
{
    insertPlainText(source->text());
}

QChar QCodeEditor::charUnderCursor(int offset) const
{
    const QTextBlock block = textCursor().block();
    const int index = textCursor().positionInBlock() + offset;
    const QString text = block.text();
    return index >= 0 && index < text.size() ? text.at(index) : QChar();
}

QString QCodeEditor::wordUnderCursor() const
{
    QTextCursor cursor = textCursor();
    cursor.select(QTextCursor::WordUnderCursor);
    return cursor.selectedText();
}

int QCodeEditor::lineIndentation() const
{
    const int tabWidth = qMax(1, qRound(tabStopDistance() / qMax(1.0, fontMetrics().averageCharWidth() * 1.0)));
    int spaces = 0;
    for (const QChar c : textCursor().block().text()) {
        if (c == QLatin1Char(' '))
            ++spaces;
        else if (c == QLatin1Char('\t'))
            spaces += tabWidth;
        else
            break;
    }
    return spaces;
}

void QCodeEditor::keyPressEvent(QKeyEvent* event)
{
    const int averageWidth = qMax(1, fontMetrics().averageCharWidth());
    const int defaultIndent = qMax(1, qRound(tabStopDistance() / averageWidth));
    const bool popupVisible = m_completer && m_completer->popup()->isVisible();
    if (popupVisible) {
        switch (event->key()) {
        case Qt::Key_Escape:
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
        case Qt::Key_Return:
        case Qt::Key_Enter:
            event->ignore();
            return;
        default:
            break;
        }
    }
    const bool shortcut = m_completer && event->modifiers() == Qt::ControlModifier && event->key() == Qt::Key_Space;
    if (shortcut) {
        complete(event, true);
        return;
    }
    if (m_tabReplace && event->key() == Qt::Key_Tab && event->modifiers() == Qt::NoModifier) {
        insertPlainText(m_tabReplacement);
        return;
    }
    const int indentation = lineIndentation();
    const int tabs = indentation * averageWidth / qMax(1, qRound(tabStopDistance()));
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const QString indent = m_tabReplace ? QString(indentation, QLatin1Char(' ')) : QString(tabs, QLatin1Char('\t'));

    if (m_autoIndentation && isReturn && charUnderCursor() == QLatin1Char('}') &&
        charUnderCursor(-1) == QLatin1Char('{')) {
        const QString step = m_tabReplace ? QString(defaultIndent, QLatin1Char(' ')) : QStringLiteral("\t");
        insertPlainText(QLatin1Char('\n') + indent + step);
        const int middle = textCursor().position();
        insertPlainText(QLatin1Char('\n') + indent);
        QTextCursor cursor = textCursor();
        cursor.setPosition(middle);
        setTextCursor(cursor);
        return;
    }
    if (m_autoIndentation && m_tabReplace && event->key() == Qt::Key_Backtab) {
        const int count = qMin(indentation, m_tabReplacement.size());
        QTextCursor cursor = textCursor();
        cursor.movePosition(QTextCursor::StartOfBlock);
        cursor.movePosition(QTextCursor::Right, QTextCursor::KeepAnchor, count);
        cursor.removeSelectedText();
        return;
    }
    if (m_autoParentheses && handleParentheses(event)) {
        // A completed bracket or quote ends the word like any other.
        if (m_completer)
            complete(event, false);
        return;
    }
    QTextEdit::keyPressEvent(event);
    if (m_autoIndentation && isReturn)
        insertPlainText(indent);
    if (m_completer)
        complete(event, false);
}

bool QCodeEditor::handleParentheses(QKeyEvent* event)
{
    const QString typed = event->text();
    if (typed.size() != 1)
        return false;
    for (int i = 0; i < kParentheses.size(); i += 2) {
        const QChar open = kParentheses.at(i);
        const QChar close = kParentheses.at(i + 1);
        if (typed.at(0) == close && charUnderCursor() == close) {
            moveCursor(QTextCursor::NextCharacter);
            return true;
        }
        if (typed.at(0) == open) {
            insertPlainText(QString(open) + close);
            moveCursor(QTextCursor::PreviousCharacter);
            return true;
        }
    }
    return false;
}

void QCodeEditor::complete(QKeyEvent* event, bool shortcut)
{
    QAbstractItemView* popup = m_completer->popup();
    const QString prefix = wordUnderCursor();
    const QString typed = event->text();
    if (!shortcut && (typed.isEmpty() || prefix.size() < kCompletionMinimum || kEndOfWord.contains(typed.right(1)))) {
        popup->hide();
        return;
    }
    if (prefix != m_completer->completionPrefix()) {
        m_completer->setCompletionPrefix(prefix);
        popup->setCurrentIndex(m_completer->completionModel()->index(0, 0));
    }
    QRect rect = cursorRect();
    rect.setWidth(popup->sizeHintForColumn(0) + popup->verticalScrollBar()->sizeHint().width() + kPopupExtraWidth);
    m_completer->complete(rect);
}

void QCodeEditor::updateExtraSelections()
{
    QList<QTextEdit::ExtraSelection> selections;
    if (m_style) {
        QTextEdit::ExtraSelection line;
        line.format = m_style->getFormat(QStringLiteral("CurrentLine"));
        line.format.setForeground(QBrush());
        line.format.setProperty(QTextFormat::FullWidthSelection, true);
        line.cursor = textCursor();
        line.cursor.clearSelection();
        selections.append(line);
        highlightParenthesis(selections);
        highlightOccurrences(selections);
    }
    setExtraSelections(selections);
}

void QCodeEditor::highlightParenthesis(QList<QTextEdit::ExtraSelection>& selections)
{
    const QChar current = charUnderCursor();
    const QChar previous = charUnderCursor(-1);
    for (int i = 0; i < 6; i += 2) { // the bracket pairs; quotes do not nest
        const QChar open = kParentheses.at(i);
        const QChar close = kParentheses.at(i + 1);
        int position = -1;
        int direction = 0;
        if (current == open) {
            position = textCursor().position();
            direction = 1;
        } else if (previous == close) {
            position = textCursor().position() - 1;
            direction = -1;
        } else {
            continue;
        }
        const QString text = toPlainText();
        int depth = 0;
        for (int at = position; at >= 0 && at < text.size(); at += direction) {
            if (text.at(at) == open)
                depth += direction;
            else if (text.at(at) == close)
                depth -= direction;
            if (depth != 0)
                continue;
            QTextEdit::ExtraSelection match;
            match.format = m_style->getFormat(QStringLiteral("Parentheses"));
            match.cursor = textCursor();
            match.cursor.setPosition(at);
            match.cursor.movePosition(QTextCursor::NextCharacter, QTextCursor::KeepAnchor);
            selections.append(match);
            break;
        }
        return;
    }
}

void QCodeEditor::highlightOccurrences(QList<QTextEdit::ExtraSelection>& selections)
{
    const QString selected = textCursor().selectedText();
    if (selected.trimmed().isEmpty() || selected.contains(QChar::ParagraphSeparator))
        return;
    QTextCursor found = document()->find(selected, 0, QTextDocument::FindCaseSensitively);
    while (!found.isNull()) {
        if (found != textCursor()) {
            QTextEdit::ExtraSelection occurrence;
            occurrence.format = m_style->getFormat(QStringLiteral("Occurrences"));
            occurrence.cursor = found;
            selections.append(occurrence);
        }
        found = document()->find(selected, found, QTextDocument::FindCaseSensitively);
    }
}
