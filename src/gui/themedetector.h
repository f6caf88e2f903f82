#pragma once

#include <QColor>
#include <QString>

class QCommandLineParser;

// Decides once per process whether the desktop uses a dark appearance.
class ThemeDetector {
public:
    static bool addOptions(QCommandLineParser& parser);
    static void init(QCommandLineParser* parser, const QString& key);
    static bool isDarkThemeEnabled();
    static QColor iconColor();

    // The Linux rule: dark when the palette's window colour is dark.
    static bool isDarkWindowColor(const QColor& window);

private:
    static void detect();
    static bool s_detected;
    static bool s_dark;
};
