#include "editrules.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QRegularExpression>

namespace EditRules {

namespace {
constexpr int kDumpLimit = 512;
constexpr int kDumpLine = 16;

bool parses(const QByteArray& data, QJsonDocument* document = nullptr)
{
    QJsonParseError error;
    const QJsonDocument parsed = QJsonDocument::fromJson(data, &error);
    if (document)
        *document = parsed;
    return error.error == QJsonParseError::NoError;
}
} // namespace

bool isBinary(const QByteArray& data)
{
    for (int i = 0; i < data.size();) {
        const auto b = static_cast<unsigned char>(data.at(i));
        if (b < 0x80)
            i += 1;
        else if ((b & 0xF8) == 0xF0)
            i += 4;
        else if ((b & 0xF0) == 0xE0)
            i += 3;
        else if ((b & 0xE0) == 0xC0)
            i += 2;
        else
            return true;
    }
    return false;
}

QString formatBinary(const QByteArray& data)
{
    QString out;
    const int shown = qMin(data.size(), kDumpLimit);
    for (int i = 0; i < shown; ++i) {
        if (i % kDumpLine == 0) {
            if (i > 0)
                out += QLatin1Char('\n');
            out += QStringLiteral("%1:").arg(i, 4, 16, QLatin1Char('0')).toUpper();
        }
        out += QStringLiteral(" %1").arg(static_cast<unsigned char>(data.at(i)), 2, 16, QLatin1Char('0')).toUpper();
    }
    if (data.size() > kDumpLimit)
        out += QStringLiteral("\n0200: <...>");
    return out;
}

Type detectType(const QString& name, const QString& text, const QByteArray& data)
{
    static const QRegularExpression xmlDeclaration(QStringLiteral("^(\\s*)\\<\\?(\\s*)xml"),
                                                   QRegularExpression::CaseInsensitiveOption);
    const auto ends = [&name](const char* suffix) { return name.endsWith(QLatin1String(suffix), Qt::CaseInsensitive); };
    if (ends(".py"))
        return Python;
    if (ends(".cxx") || ends(".cpp"))
        return CXX_Source;
    if (ends(".h") || ends(".hpp"))
        return CXX_Header;
    if (ends(".xml") || xmlDeclaration.match(text).hasMatch())
        return XML;
    if (ends(".html"))
        return HTML;
    // Deliberately a prefix test: config.json is JSON only by its content.
    if (name.startsWith(QLatin1String(".json"), Qt::CaseInsensitive) || parses(data))
        return JSON;
    return Other;
}

QString shown(Type type, const QString& text)
{
    QJsonDocument document;
    if (type == JSON && parses(text.toUtf8(), &document))
        return QString::fromUtf8(document.toJson(QJsonDocument::Indented));
    return text;
}

QByteArray stored(Type type, const QString& text)
{
    QJsonDocument document;
    if (type == JSON && parses(text.toUtf8(), &document))
        return document.toJson(QJsonDocument::Compact);
    return text.toUtf8();
}

QString jsonError(const QString& text)
{
    QJsonParseError error;
    QJsonDocument::fromJson(text.toUtf8(), &error);
    return error.error == QJsonParseError::NoError ? QString() : error.errorString();
}

} // namespace EditRules
