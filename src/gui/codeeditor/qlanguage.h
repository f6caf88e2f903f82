#pragma once

#include <QMap>
#include <QObject>
#include <QStringList>

class QIODevice;

// A language file: named sections of words (keywords, builtins, types).
class QLanguage : public QObject {
    Q_OBJECT
public:
    explicit QLanguage(QIODevice* device, QObject* parent = nullptr);

    QStringList keys() const { return m_sections.keys(); }
    QStringList names(const QString& key) const { return m_sections.value(key); }
    bool isLoaded() const { return m_loaded; }

private:
    QMap<QString, QStringList> m_sections;
    bool m_loaded = false;
};
