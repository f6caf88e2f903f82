#include "qstylesyntaxhighlighter.h"

#include "qlanguage.h"
#include "qsyntaxstyle.h"

#include <QFile>

QStyleSyntaxHighlighter::QStyleSyntaxHighlighter(QTextDocument* document) : QSyntaxHighlighter(document) {}

void QStyleSyntaxHighlighter::setSyntaxStyle(QSyntaxStyle* style)
{
    m_style = style;
}

QTextCharFormat QStyleSyntaxHighlighter::format(const QString& name) const
{
    return m_style ? m_style->getFormat(name) : QTextCharFormat();
}

void QStyleSyntaxHighlighter::addLanguage(const QString& resource, const QString& wordPattern)
{
    QFile file(resource);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QLanguage language(&file);
    // One alternation per section finds the same whole words as one rule per
    // word, at a fraction of the cost on long files.
    for (const QString& key : language.keys()) {
        QStringList words;
        for (const QString& word : language.names(key))
            words << QRegularExpression::escape(word);
        if (!words.isEmpty())
            addRule(wordPattern.arg(QStringLiteral("(?:%1)").arg(words.join(QLatin1Char('|')))), key);
    }
}

void QStyleSyntaxHighlighter::addRule(const QString& pattern, const QString& format, int group)
{
    QRegularExpression expression(pattern);
    expression.optimize();
    m_rules.append({expression, format, group});
}

void QStyleSyntaxHighlighter::addSpan(const QString& start, const QString& end, const QString& format)
{
    m_spans.append({QRegularExpression(start), QRegularExpression(end), format});
}

void QStyleSyntaxHighlighter::applyRule(const QString& text, const QRegularExpression& pattern,
                                        const QString& formatName, int group)
{
    if (pattern.pattern().isEmpty())
        return;
    const QTextCharFormat f = format(formatName);
    QRegularExpressionMatchIterator it = pattern.globalMatch(text);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        if (m.capturedLength(group) > 0)
            setFormat(m.capturedStart(group), m.capturedLength(group), f);
    }
}

void QStyleSyntaxHighlighter::highlightBlock(const QString& text)
{
    applyRule(text, m_typeDefinition, QStringLiteral("Type"), 0);
    applyRule(text, m_function, QStringLiteral("Function"), m_functionGroup);
    applyRule(text, m_include, m_includeFormat, 0);
    for (const Rule& rule : qAsConst(m_rules))
        applyRule(text, rule.pattern, rule.format, rule.group);
    applySpans(text);
}

void QStyleSyntaxHighlighter::applySpans(const QString& text)
{
    setCurrentBlockState(0);
    if (m_spans.isEmpty())
        return;
    // The block state is 0, or the 1-based index of the span left open.
    int open = previousBlockState() > 0 && previousBlockState() <= m_spans.size() ? previousBlockState() : 0;
    int from = 0;
    int pos = 0;
    for (;;) {
        if (open == 0) {
            int bestStart = -1;
            int bestEnd = 0;
            for (int i = 0; i < m_spans.size(); ++i) {
                const QRegularExpressionMatch m = m_spans.at(i).start.match(text, pos);
                if (m.hasMatch() && (bestStart < 0 || m.capturedStart() < bestStart)) {
                    bestStart = m.capturedStart();
                    bestEnd = m.capturedEnd();
                    open = i + 1;
                }
            }
            if (open == 0)
                return;
            from = bestStart;
            pos = bestEnd;
        }
        const Span& span = m_spans.at(open - 1);
        const QRegularExpressionMatch end = span.end.match(text, pos);
        if (!end.hasMatch()) {
            setFormat(from, text.length() - from, format(span.format));
            setCurrentBlockState(open);
            return;
        }
        setFormat(from, end.capturedEnd() - from, format(span.format));
        pos = qMax(end.capturedEnd(), pos + 1);
        open = 0;
        if (pos > text.length())
            return;
    }
}
