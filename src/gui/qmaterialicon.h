#pragma once

#include <QColor>
#include <QHash>
#include <QIconEngine>
#include <QObject>
#include <QStringList>

class QIODevice;

// Paints one glyph of an icon font at any size, in the theme's colours.
class QFontIconEngine : public QIconEngine {
public:
    void setFontFamily(const QString& family) { m_family = family; }
    void setLetter(const QChar& letter) { m_letter = letter; }
    void setBaseColor(const QColor& color) { m_baseColor = color; }
    void setCheckColor(const QColor& color) { m_checkColor = color; }

    QString fontFamily() const { return m_family; }
    QChar letter() const { return m_letter; }
    QColor baseColor() const { return m_baseColor; }
    QColor checkColor() const { return m_checkColor; }

    // The colour a glyph gets for a mode and state.
    QColor colorFor(QIcon::Mode mode, QIcon::State state) const;
    static int pixelSizeFor(const QRect& rect);

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override;
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override;
    // Deliberately narrow: only the family and base colour are copied.
    QIconEngine* clone() const override;

private:
    QString m_family;
    QChar m_letter;
    QColor m_baseColor;
    QColor m_checkColor;
};

// Process-wide registry of the Material Icons font and its name table.
class QMaterialIcon : public QObject {
    Q_OBJECT
public:
    static QMaterialIcon* instance();

    bool init();
    void deinit();

    unsigned codepoint(const QString& name, bool* ok = nullptr) const;
    QIcon icon(const QString& name, const QColor& color = QColor(), const QString& family = QString()) const;

    QColor baseColor() const { return m_baseColor; }
    void setBaseColor(const QColor& color) { m_baseColor = color; }
    QColor checkedColor() const { return m_checkedColor; }
    void setCheckedColor(const QColor& color) { m_checkedColor = color; }
    QStringList families() const { return m_families; }

    // Reads a "name hex" table; exposed for tests.
    static QHash<QString, unsigned> parseCodepoints(QIODevice& device);

private:
    QMaterialIcon();

    int m_fontId = -1;
    QStringList m_families;
    QHash<QString, unsigned> m_codepoints;
    QColor m_baseColor = Qt::black;
    QColor m_checkedColor;
};

inline QIcon materialIcon(const QString& name)
{
    return QMaterialIcon::instance()->icon(name);
}
