#include "qsyntaxstyle.h"

#include <QFile>
#include <QXmlStreamReader>

namespace {
QSyntaxStyle* loadShared(const QString& resource)
{
    auto* style = new QSyntaxStyle();
    QFile file(resource);
    if (file.open(QIODevice::ReadOnly))
        style->load(QString::fromUtf8(file.readAll()));
    return style;
}

QTextCharFormat::UnderlineStyle underlineStyle(const QStringRef& name)
{
    static const QMap<QString, QTextCharFormat::UnderlineStyle> styles{
        {QStringLiteral("SingleUnderline"), QTextCharFormat::SingleUnderline},
        {QStringLiteral("DashUnderline"), QTextCharFormat::DashUnderline},
        {QStringLiteral("DotLine"), QTextCharFormat::DotLine},
        {QStringLiteral("DashDotLine"), QTextCharFormat::DashDotLine},
        {QStringLiteral("DashDotDotLine"), QTextCharFormat::DashDotDotLine},
        {QStringLiteral("WaveUnderline"), QTextCharFormat::WaveUnderline},
        {QStringLiteral("SpellCheckUnderline"), QTextCharFormat::SpellCheckUnderline}};
    return styles.value(name.toString(), QTextCharFormat::NoUnderline);
}
} // namespace

QSyntaxStyle::QSyntaxStyle(QObject* parent) : QObject(parent) {}

bool QSyntaxStyle::load(const QString& xml)
{
    QXmlStreamReader reader(xml);
    QMap<QString, QTextCharFormat> formats;
    QString name;
    while (!reader.atEnd() && !reader.hasError()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QXmlStreamAttributes a = reader.attributes();
        if (reader.name() == QLatin1String("style-scheme")) {
            name = a.value(QStringLiteral("name")).toString();
            continue;
        }
        if (reader.name() != QLatin1String("style") || !a.hasAttribute(QStringLiteral("name")))
            continue;
        QTextCharFormat format;
        if (a.hasAttribute(QStringLiteral("foreground")))
            format.setForeground(QColor(a.value(QStringLiteral("foreground")).toString()));
        if (a.hasAttribute(QStringLiteral("background")))
            format.setBackground(QColor(a.value(QStringLiteral("background")).toString()));
        if (a.value(QStringLiteral("bold")) == QLatin1String("true"))
            format.setFontWeight(QFont::Bold);
        if (a.value(QStringLiteral("italic")) == QLatin1String("true"))
            format.setFontItalic(true);
        if (a.hasAttribute(QStringLiteral("underlineStyle")))
            format.setUnderlineStyle(underlineStyle(a.value(QStringLiteral("underlineStyle"))));
        if (a.hasAttribute(QStringLiteral("underlineColor")))
            format.setUnderlineColor(QColor(a.value(QStringLiteral("underlineColor")).toString()));
        formats.insert(a.value(QStringLiteral("name")).toString(), format);
    }
    if (reader.hasError())
        return false;
    m_name = name;
    m_formats = formats;
    m_loaded = true;
    return true;
}

QTextCharFormat QSyntaxStyle::getFormat(const QString& name) const
{
    return m_formats.value(name);
}

QSyntaxStyle* QSyntaxStyle::defaultStyle()
{
    static QSyntaxStyle* style = loadShared(QStringLiteral(":/default_style.xml"));
    return style;
}

QSyntaxStyle* QSyntaxStyle::defaultDarkStyle()
{
    static QSyntaxStyle* style = loadShared(QStringLiteral(":/drakula.xml"));
    return style;
}
