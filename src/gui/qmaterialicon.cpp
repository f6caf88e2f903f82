#include "qmaterialicon.h"

#include <QApplication>
#include <QFile>
#include <QFontDatabase>
#include <QPainter>
#include <QPalette>
#include <QtMath>

namespace {
const QString kFontResource = QStringLiteral(":/qtmf/src_v48/MaterialIcons-Regular.ttf");
const QString kCodepointsResource = QStringLiteral(":/qtmf/src_v48/codepoints");
constexpr double kGlyphToRect = 0.8;
} // namespace

QColor QFontIconEngine::colorFor(QIcon::Mode mode, QIcon::State state) const
{
    const QPalette palette = QApplication::palette("QWidget");
    QColor color = m_baseColor.isValid() ? m_baseColor : palette.color(QPalette::Active, QPalette::ButtonText);
    switch (mode) {
    case QIcon::Normal:
    case QIcon::Active:
        if (state == QIcon::On && m_checkColor.isValid())
            color = m_checkColor;
        break;
    case QIcon::Disabled:
        color = palette.color(QPalette::Disabled, QPalette::ButtonText);
        break;
    case QIcon::Selected:
        color = palette.color(QPalette::Active, QPalette::ButtonText);
        break;
    }
    return color;
}

int QFontIconEngine::pixelSizeFor(const QRect& rect)
{
    return qRound(kGlyphToRect * (rect.bottom() - rect.top() + 1));
}

void QFontIconEngine::paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state)
{
    QFont font(m_family);
    font.setPixelSize(pixelSizeFor(rect));
    painter->save();
    painter->setPen(QPen(colorFor(mode, state)));
    painter->setFont(font);
    painter->drawText(rect, Qt::AlignCenter, QString(m_letter));
    painter->restore();
}

QPixmap QFontIconEngine::pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state)
{
    QPixmap pix(size);
    pix.fill(Qt::transparent);
    QPainter painter(&pix);
    paint(&painter, QRect(QPoint(0, 0), size), mode, state);
    return pix;
}

QIconEngine* QFontIconEngine::clone() const
{
    auto* engine = new QFontIconEngine;
    engine->setFontFamily(m_family);
    engine->setBaseColor(m_baseColor);
    return engine;
}

static void initIconFont()
{
    Q_INIT_RESOURCE(qtmf);
}

QMaterialIcon::QMaterialIcon()
{
    initIconFont();
    init();
}

QMaterialIcon* QMaterialIcon::instance()
{
    // Function-local static: one-time construction is thread-safe.
    static QMaterialIcon registry;
    return &registry;
}

bool QMaterialIcon::init()
{
    m_fontId = QFontDatabase::addApplicationFont(kFontResource);
    if (m_fontId < 0)
        return false;
    m_families = QFontDatabase::applicationFontFamilies(m_fontId);
    QFile file(kCodepointsResource);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    m_codepoints = parseCodepoints(file);
    return true;
}

void QMaterialIcon::deinit()
{
    if (m_fontId >= 0) {
        QFontDatabase::removeApplicationFont(m_fontId);
        m_fontId = -1;
    }
}

QHash<QString, unsigned> QMaterialIcon::parseCodepoints(QIODevice& device)
{
    QHash<QString, unsigned> table;
    for (;;) {
        const QByteArray raw = device.readLine();
        if (raw.isEmpty())
            break;
        const QStringList parts = QString::fromLatin1(raw).trimmed().split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (parts.size() != 2)
            continue;
        // An unparsable code point deliberately becomes 0.
        table.insert(parts.at(0), parts.at(1).toUInt(nullptr, 16));
    }
    return table;
}

unsigned QMaterialIcon::codepoint(const QString& name, bool* ok) const
{
    const auto it = m_codepoints.constFind(name);
    if (ok)
        *ok = it != m_codepoints.constEnd();
    return it != m_codepoints.constEnd() ? it.value() : 0;
}

QIcon QMaterialIcon::icon(const QString& name, const QColor& color, const QString& family) const
{
    if (m_fontId < 0)
        return QIcon();
    auto* engine = new QFontIconEngine;
    engine->setFontFamily(family.isEmpty() ? m_families.value(0) : family);
    engine->setLetter(QChar(static_cast<ushort>(codepoint(name))));
    engine->setBaseColor(color.isValid() ? color : m_baseColor);
    engine->setCheckColor(m_checkedColor);
    return QIcon(engine);
}
