#include "themedetector.h"

#include <QGuiApplication>
#include <QPalette>

bool ThemeDetector::s_detected = false;
bool ThemeDetector::s_dark = false;

namespace {
constexpr int kDarkLightnessLimit = 128;
}

bool ThemeDetector::addOptions(QCommandLineParser&)
{
    return true;
}

void ThemeDetector::init(QCommandLineParser*, const QString&)
{
    if (!s_detected)
        detect();
}

bool ThemeDetector::isDarkThemeEnabled()
{
    if (!s_detected)
        detect();
    return s_dark;
}

QColor ThemeDetector::iconColor()
{
    return isDarkThemeEnabled() ? QColor(0xE2, 0xE2, 0xE2) : QColor(0x3A, 0x3A, 0x3A);
}

bool ThemeDetector::isDarkWindowColor(const QColor& window)
{
    return window.lightness() < kDarkLightnessLimit;
}

void ThemeDetector::detect()
{
    s_detected = true;
    s_dark = qGuiApp && isDarkWindowColor(QGuiApplication::palette().color(QPalette::Window));
}
