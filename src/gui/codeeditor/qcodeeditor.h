#pragma once

#include <QTextEdit>

class QCompleter;
class QLineNumberArea;
class QStyleSyntaxHighlighter;
class QSyntaxStyle;

// A text editor for source code: line numbers, current-line, bracket and
// occurrence highlighting, tab replacement, automatic indentation, bracket
// and quote pairing, whitespace display and completion.
class QCodeEditor : public QTextEdit {
    Q_OBJECT
public:
    explicit QCodeEditor(QWidget* parent = nullptr);

    void setSyntaxStyle(QSyntaxStyle* style);
    QSyntaxStyle* syntaxStyle() const { return m_style; }
    // Not owned; null detaches.
    void setHighlighter(QStyleSyntaxHighlighter* highlighter);
    void setCompleter(QCompleter* completer);
    QCompleter* completer() const { return m_completer; }

    void setAutoIndentation(bool on) { m_autoIndentation = on; }
    bool autoIndentation() const { return m_autoIndentation; }
    void setAutoParentheses(bool on) { m_autoParentheses = on; }
    bool autoParentheses() const { return m_autoParentheses; }
    void setTabReplace(bool on) { m_tabReplace = on; }
    bool tabReplace() const { return m_tabReplace; }
    // Also the width of a tab character, so both indent alike.
    void setTabReplaceSize(int size);
    int tabReplaceSize() const { return m_tabReplacement.size(); }
    void setVisualizeWhitespace(bool on);
    bool visualizeWhitespace() const { return m_visualizeWhitespace; }

public slots:
    void insertCompletion(const QString& completion);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void insertFromMimeData(const QMimeData* source) override;

private:
    void updateGutter();
    void updateExtraSelections();
    void highlightParenthesis(QList<QTextEdit::ExtraSelection>& selections);
    void highlightOccurrences(QList<QTextEdit::ExtraSelection>& selections);
    bool handleParentheses(QKeyEvent* event);
    void complete(QKeyEvent* event, bool shortcut);
    QString wordUnderCursor() const;
    QChar charUnderCursor(int offset = 0) const;
    int lineIndentation() const;

    QLineNumberArea* m_lineNumbers;
    QSyntaxStyle* m_style = nullptr;
    QStyleSyntaxHighlighter* m_highlighter = nullptr;
    QCompleter* m_completer = nullptr;
    bool m_autoIndentation = true;
    bool m_autoParentheses = true;
    bool m_tabReplace = true;
    bool m_visualizeWhitespace = false;
    QString m_tabReplacement = QStringLiteral("    ");
};
