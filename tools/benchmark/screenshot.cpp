// Shows the real main window connected to a virtual board and saves a picture
// of it: pelkam-screenshot OUTPUT.png (run under Xvfb or the offscreen platform).
#include "boardsession.h"
#include "pelkamwindow.h"

#include <QAction>
#include <QApplication>
#include <QPixmap>
#include <QTemporaryDir>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QTemporaryDir settingsDir;
    isolateSettings(settingsDir);
    const QString output = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("screenshot.png");
    BoardSession s(QStringLiteral("stm32"), {},
                   {{"main.py", "print('hello')\n"}, {"boot.py", "# boot\n"}, {"lib/", {}}, {"data/", {}}});
    QSettings().setValue(QStringLiteral("UI/Dir"), VirtualBoard::sourceDir() + QStringLiteral("/resources/data"));
    PelkamWindow window;
    window.readSettings();
    window.action(QStringLiteral("actionAutomatic_Reconnect"))->setChecked(true);
    window.show();
    BoardLink::PortSettings settings;
    settings.name = s.board.path();
    window.connectTo(settings);
    waitFor([&] { return window.mcModel().rowCount() > 0; }, 20000);
    waitFor([] { return false; }, 500);
    return window.grab().save(output) ? 0 : 1;
}
