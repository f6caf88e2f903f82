// Shows the real main window connected to a virtual board and saves a picture
// of it; with a folder as second argument, also pictures of the Sync dialog
// and of the upload question, the code editor and the Plotter:
//   pelkam-screenshot OUTPUT.png [DIALOG_DIR]   (run under Xvfb or offscreen)
// PELKAM_SCREENSHOT_DARK=1 gives the desktop a dark palette first;
// PELKAM_SCREENSHOT_LANG=ru_RU shows the interface in that language.
#include "boardsession.h"
#include "codeeditordialog.h"
#include "connectionpopup.h"
#include "packages/packageinstaller.h"
#include "pelkamwindow.h"
#include "plotterview.h"
#include "preferences.h"
#include "remoteedit.h"
#include "startup.h"
#include "workflows/fileworkflows.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QPalette>
#include <QPixmap>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QWidget>

#include <cmath>

namespace {
// Saves the dialog that the next modal call opens, then closes it.
void grabNextDialog(const QString& path)
{
    QTimer::singleShot(700, [path] {
        if (QWidget* dialog = QApplication::activeModalWidget()) {
            dialog->grab().save(path);
            dialog->close();
        }
    });
}
} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    if (qEnvironmentVariableIntValue("PELKAM_SCREENSHOT_DARK")) {
        QPalette dark;
        dark.setColor(QPalette::Window, QColor(0x2d, 0x2d, 0x30));
        dark.setColor(QPalette::WindowText, Qt::white);
        dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
        dark.setColor(QPalette::Text, Qt::white);
        dark.setColor(QPalette::Button, QColor(0x3c, 0x3c, 0x3c));
        dark.setColor(QPalette::ButtonText, Qt::white);
        QApplication::setPalette(dark);
    }
    QTemporaryDir settingsDir;
    isolateSettings(settingsDir);
    if (qEnvironmentVariableIsSet("PELKAM_SCREENSHOT_LANG")) {
        QSettings().setValue(QStringLiteral("UI/Language"), qEnvironmentVariable("PELKAM_SCREENSHOT_LANG"));
        startup::loadTranslations(app, nullptr, QStringLiteral("lang"));
    }
    const QString output = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("screenshot.png");
    const QString dialogs = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();
    BoardSession s(
        QStringLiteral("stm32"), {},
        {{"main.py", "import machine, time\n\nled = machine.Pin(2, machine.Pin.OUT)  # on-board LED\n\n"
                     "def blink(times=3, delay=0.25):\n    \"\"\"Blink the LED.\"\"\"\n    for _ in range(times):\n"
                     "        led.value(not led.value())\n        time.sleep(delay)\n\nblink()\nprint('hello', 42)\n"},
         {"boot.py", "# boot\n"},
         {"lib/", {}},
         {"data/", {}}});
    QTemporaryDir pc;
    QDir(pc.path()).mkpath(QStringLiteral("drivers"));
    for (const char* name : {"main.py", "config.json", "drivers/bme280.py"}) {
        QFile f(pc.filePath(QLatin1String(name)));
        f.open(QIODevice::WriteOnly);
        f.write("# sample\n");
    }
    const QString package = pc.filePath(QStringLiteral("station.ufw"));
    QProcess::execute(
        QStringLiteral("python3"),
        {QStringLiteral("-c"),
         QStringLiteral("import tarfile, io, sys\nwith tarfile.open(sys.argv[1], 'w', "
                        "format=tarfile.PAX_FORMAT, pax_headers={'board': 'pyboard', 'mod': 'v1.1', "
                        "'comment': 'weather station 2.3'}) as t:\n"
                        " for n in ('/flash/lib/sensors.py', '/flash/lib/radio.py'):\n"
                        "  i = tarfile.TarInfo(n); i.size = 10; t.addfile(i, io.BytesIO(b'# sensors\\n'))\n"),
         package});
    QSettings().setValue(QStringLiteral("UI/Dir"), pc.path());
    PelkamWindow window;
    window.readSettings();
    window.action(QStringLiteral("actionAutomatic_Reconnect"))->setChecked(true);
    window.show();
    BoardLink::PortSettings settings;
    settings.name = s.board.path();
    window.connectTo(settings);
    waitFor([&] { return window.mcModel().rowCount() > 0; }, 20000);
    window.packages().install(package);
    waitFor([] { return false; }, 500);
    if (!window.grab().save(output))
        return 1;
    if (!dialogs.isEmpty()) {
        {
            Preferences preferences(&window);
            preferences.readSettings();
            preferences.show();
            waitFor([] { return false; }, 300);
            preferences.grab().save(dialogs + QStringLiteral("/preferences.png"));
        }
        {
            // The Connect popup with a WebREPL address: a password in place of the baud rate.
            ConnectionPopup popup;
            popup.readSettings();
            if (auto* port = popup.findChild<QComboBox*>(QStringLiteral("portsCombo")))
                port->setEditText(QStringLiteral("ws://192.168.4.1"));
            if (auto* password = popup.findChild<QLineEdit*>(QStringLiteral("passwordEdit")))
                password->setText(QStringLiteral("secret"));
            popup.show();
            waitFor([] { return false; }, 300);
            popup.grab().save(dialogs + QStringLiteral("/connection-webrepl.png"));
            // A serial port on another machine: the baud rate its server sets, no password.
            if (auto* port = popup.findChild<QComboBox*>(QStringLiteral("portsCombo")))
                port->setEditText(QStringLiteral("rfc2217://rack1:3001"));
            waitFor([] { return false; }, 300);
            popup.grab().save(dialogs + QStringLiteral("/connection-rfc2217.png"));
        }
        grabNextDialog(dialogs + QStringLiteral("/sync-dialog.png"));
        window.action(QStringLiteral("actionSync"))->trigger();
        grabNextDialog(dialogs + QStringLiteral("/upload-question.png"));
        window.workflows().local_file_upload(QFileInfo(pc.filePath(QStringLiteral("drivers/bme280.py"))));
        for (int row = 0; row < window.mcModel().rowCount(); ++row)
            if (window.mcModel().path(window.mcModel().index(row, 0)) == QLatin1String("main.py"))
                window.remoteEdit().action_edit_core(window.mcModel().index(row, 0));
        if (CodeEditor* editor = window.remoteEdit().editor()) {
            waitFor([] { return false; }, 500);
            editor->grab().save(dialogs + QStringLiteral("/code-editor.png"));
            editor->reject();
        }
        // A sensor's readings in the Plotter tab.
        auto* plotter = window.findChild<PlotterView*>(QStringLiteral("plotterView"));
        window.action(QStringLiteral("actionPlotter"))->trigger();
        for (int i = 0; i < 600; ++i)
            plotter->addLine(QStringLiteral("temp: %1 hum: %2")
                                 .arg(21 + 2 * std::sin(i / 40.0), 0, 'f', 2)
                                 .arg(45 + 6 * std::cos(i / 55.0), 0, 'f', 1));
        plotter->setXAxis(PlotterView::Samples);
        waitFor([] { return false; }, 300);
        window.grab().save(dialogs + QStringLiteral("/plotter.png"));
    }
    return 0;
}
