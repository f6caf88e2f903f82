#pragma once

#include <QList>
#include <QRegularExpression>
#include <QSyntaxHighlighter>

class QSyntaxStyle;

// A highlighter that colours through the named formats of a syntax style.
// Concrete highlighters describe their language as rules; this class applies them.
class QStyleSyntaxHighlighter : public QSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QStyleSyntaxHighlighter(QTextDocument* document = nullptr);

    void setSyntaxStyle(QSyntaxStyle* style);
    QSyntaxStyle* syntaxStyle() const { return m_style; }

protected:
    struct Rule {
        QRegularExpression pattern;
        QString format;
        int group = 0; // the capture that gets the format
    };
    struct Span {
        QRegularExpression start;
        QRegularExpression end;
        QString format;
    };

    // Adds one rule per word of each section of a language file, formatted
    // with the section's name; wordPattern holds "%1" for the word.
    void addLanguage(const QString& resource, const QString& wordPattern = QStringLiteral("\\b%1\\b"));
    void addRule(const QString& pattern, const QString& format, int group = 0);
    void addSpan(const QString& start, const QString& end, const QString& format);
    QTextCharFormat format(const QString& name) const;

    // Type definitions, function calls and the include pattern come first,
    // then the rules in order (later ones win), then spans over lines.
    void highlightBlock(const QString& text) override;

    QRegularExpression m_typeDefinition;
    QRegularExpression m_function;
    int m_functionGroup = 2;
    QRegularExpression m_include;
    QString m_includeFormat = QStringLiteral("Preprocessor");

private:
    void applyRule(const QString& text, const QRegularExpression& pattern, const QString& format, int group);
    void applySpans(const QString& text);

    QSyntaxStyle* m_style = nullptr;
    QList<Rule> m_rules;
    QList<Span> m_spans;
};
