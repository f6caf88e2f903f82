#pragma once

#include <QMap>
#include <QObject>
#include <QTextCharFormat>

// Named text formats read from a style-scheme XML file.
class QSyntaxStyle : public QObject {
    Q_OBJECT
public:
    explicit QSyntaxStyle(QObject* parent = nullptr);

    bool load(const QString& xml);
    QString name() const { return m_name; }
    // An empty format for a name the scheme does not define.
    QTextCharFormat getFormat(const QString& name) const;
    bool isLoaded() const { return m_loaded; }

    static QSyntaxStyle* defaultStyle();
    static QSyntaxStyle* defaultDarkStyle();

private:
    QString m_name;
    QMap<QString, QTextCharFormat> m_formats;
    bool m_loaded = false;
};
