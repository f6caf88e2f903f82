#include "qlanguage.h"

#include <QIODevice>
#include <QXmlStreamReader>

QLanguage::QLanguage(QIODevice* device, QObject* parent) : QObject(parent)
{
    if (!device)
        return;
    QXmlStreamReader reader(device);
    QString section;
    while (!reader.atEnd() && !reader.hasError()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (reader.name() == QLatin1String("section"))
            section = reader.attributes().value(QStringLiteral("name")).toString();
        else if (reader.name() == QLatin1String("name") && !section.isEmpty())
            m_sections[section] << reader.readElementText().trimmed();
    }
    m_loaded = !reader.hasError();
}
