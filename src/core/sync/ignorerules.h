#pragma once

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

// The ".pelkamignore" file at the root of a local folder, in gitignore
// syntax: what sync, mirror deletion and watch leave alone on both sides.
class IgnoreRules {
public:
    static const QString kFileName;

    IgnoreRules() = default;
    explicit IgnoreRules(const QString& text);
    // The rules of root/.pelkamignore; none when the file is absent.
    static IgnoreRules forFolder(const QString& root);

    bool isEmpty() const { return m_rules.isEmpty() && m_problems.isEmpty(); }
    // One line for each rule that could not be read, with its line number.
    QStringList problems() const { return m_problems; }
    // path is relative to the root, "/"-separated. A path inside an ignored
    // folder is ignored whatever later rules say, as in git.
    bool ignored(const QString& path, bool isDir) const;
    QStringList filtered(const QStringList& files) const;

private:
    struct Rule {
        QRegularExpression pattern;
        bool negated = false;
        bool dirOnly = false;
    };
    bool matchesOwn(const QString& path, bool isDir) const;

    QList<Rule> m_rules;
    QStringList m_problems;
};
