#include "ignorerules.h"

#include <QFile>
#include <QObject>

const QString IgnoreRules::kFileName = QStringLiteral(".pelkamignore");

namespace {
// One gitignore glob (already without "!", the trailing "/" and the anchoring
// "/") as a regular expression over a whole relative path.
QString globToRegex(const QString& glob)
{
    QString rx;
    const int n = glob.size();
    for (int i = 0; i < n; ++i) {
        const QChar c = glob.at(i);
        const bool atStart = i == 0;
        if (c == QLatin1Char('*') && i + 1 < n && glob.at(i + 1) == QLatin1Char('*') &&
            (atStart || glob.at(i - 1) == QLatin1Char('/')) && (i + 2 == n || glob.at(i + 2) == QLatin1Char('/'))) {
            if (i + 2 == n) {
                rx += QStringLiteral(".*"); // "dir/**": everything inside
            } else {
                rx += QStringLiteral("(?:.*/)?"); // "**/" and "/**/": any folders, none included
                ++i;
            }
            ++i;
        } else if (c == QLatin1Char('*')) {
            rx += QStringLiteral("[^/]*");
        } else if (c == QLatin1Char('?')) {
            rx += QStringLiteral("[^/]");
        } else if (c == QLatin1Char('[')) {
            const int close = glob.indexOf(QLatin1Char(']'), i + 2);
            if (close < 0) {
                rx += QStringLiteral("\\[");
                continue;
            }
            QString set = glob.mid(i + 1, close - i - 1);
            const bool negated = set.startsWith(QLatin1Char('!')) || set.startsWith(QLatin1Char('^'));
            if (negated)
                set.remove(0, 1);
            set.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
            set.replace(QLatin1Char('['), QStringLiteral("\\["));
            // Only "**" crosses a "/": a class never matches it.
            rx += (negated ? QStringLiteral("[^/") : QStringLiteral("(?!/)[")) + set + QLatin1Char(']');
            i = close;
        } else if (c == QLatin1Char('\\') && i + 1 < n) {
            rx += QRegularExpression::escape(glob.at(++i));
        } else {
            rx += QRegularExpression::escape(c);
        }
    }
    return rx;
}
} // namespace

IgnoreRules::IgnoreRules(const QString& text)
{
    int number = 0;
    // An editor's byte-order mark is not part of the first rule.
    const QString body = text.startsWith(QChar(0xFEFF)) ? text.mid(1) : text;
    for (QString line : body.split(QLatin1Char('\n'))) {
        ++number;
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        // Trailing blanks go unless escaped.
        while (line.endsWith(QLatin1Char(' ')) && !line.endsWith(QLatin1String("\\ ")))
            line.chop(1);
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        Rule rule;
        if (line.startsWith(QLatin1Char('!'))) {
            rule.negated = true;
            line.remove(0, 1);
        } else if (line.startsWith(QLatin1String("\\!")) || line.startsWith(QLatin1String("\\#"))) {
            line.remove(0, 1);
        }
        if (line.endsWith(QLatin1Char('/'))) {
            rule.dirOnly = true;
            line.chop(1);
        }
        if (line.isEmpty())
            continue;
        // A slash anywhere but at the end anchors the pattern to the root;
        // without one it matches at every level.
        const bool anchored = line.contains(QLatin1Char('/'));
        if (line.startsWith(QLatin1Char('/')))
            line.remove(0, 1);
        const QString pattern = (anchored ? QString() : QStringLiteral("(?:.*/)?")) + globToRegex(line);
        rule.pattern.setPattern(QStringLiteral("\\A") + pattern + QStringLiteral("\\z"));
        if (rule.pattern.isValid())
            m_rules << rule;
        else
            m_problems << QObject::tr("%1, line %2: \"%3\" is not a valid pattern").arg(kFileName).arg(number).arg(line);
    }
}

IgnoreRules IgnoreRules::forFolder(const QString& root)
{
    QFile file(root + QLatin1Char('/') + kFileName);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return IgnoreRules(QString::fromUtf8(file.readAll()));
}

bool IgnoreRules::matchesOwn(const QString& path, bool isDir) const
{
    bool result = false;
    for (const Rule& rule : m_rules)
        if ((!rule.dirOnly || isDir) && rule.pattern.match(path).hasMatch())
            result = !rule.negated;
    return result;
}

bool IgnoreRules::ignored(const QString& path, bool isDir) const
{
    if (m_rules.isEmpty())
        return false;
    for (int slash = path.indexOf(QLatin1Char('/')); slash > 0; slash = path.indexOf(QLatin1Char('/'), slash + 1))
        if (matchesOwn(path.left(slash), true))
            return true;
    return matchesOwn(path, isDir);
}

QStringList IgnoreRules::filtered(const QStringList& files) const
{
    if (m_rules.isEmpty())
        return files;
    QStringList kept;
    for (const QString& f : files)
        if (!ignored(f, false))
            kept << f;
    return kept;
}
