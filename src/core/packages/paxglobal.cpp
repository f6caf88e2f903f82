#include "paxglobal.h"

#include <QRegularExpression>

QHash<QString, QString> _tar_parse_global(const QByteArray& data)
{
    // "." matches a line end too, as in QRegExp: a value may span lines.
    static const QRegularExpression record(
        QRegularExpression::anchoredPattern(QStringLiteral("([^\\=]+)\\=(.*)\\n")),
        QRegularExpression::DotMatchesEverythingOption);
    QHash<QString, QString> values;
    qint64 p = 0;
    for (;;) {
        const int blank = data.indexOf(' ', static_cast<int>(p));
        if (blank <= 0)
            return values;
        bool ok = false;
        const qint64 length = data.mid(static_cast<int>(p), blank - static_cast<int>(p)).toLongLong(&ok);
        // A length that does not reach past its own digits would never advance.
        if (!ok || length <= blank - p || length > data.size() - p)
            return values;
        const qint64 start = p;
        p += length;
        const QByteArray text = data.mid(blank + 1, static_cast<int>(start + length) - blank - 1);
        const QRegularExpressionMatch match = record.match(QString::fromUtf8(text));
        if (match.hasMatch())
            values.insert(match.captured(1), match.captured(2));
    }
}
