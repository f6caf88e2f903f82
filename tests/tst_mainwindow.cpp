#include "boardsession.h"
#include "codeeditor/qcodeeditor.h"
#include "codeeditordialog.h"
#include "connectionpopup.h"
#include "pelkamwindow.h"
#include "preferences.h"
#include "remoteedit.h"
#include "windowviews.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSerialPortInfo>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTextBrowser>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QtTest>

class TestMainWindow : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    static ScriptedPrompter* script(PelkamWindow& w)
    {
        auto p = std::make_unique<ScriptedPrompter>();
        ScriptedPrompter* raw = p.get();
        w.setPrompter(std::move(p));
        return raw;
    }

private slots:
    // The Sync dialog's preview and extra options, Sync on Save, and the
    // board's space in the status bar.
    void syncPreviewSaveAndSpace()
    {
        const QByteArray filler(60000, 'f');
        BoardSession s(QStringLiteral("stm32"), {"--flash-size", "131072"},
                       {{"old.py", "x"}, {"keep.cfg", "k"}, {"filler.cfg", filler}});
        QSettings().setValue(Preferences::kKeepActionsKey, true);
        QTemporaryDir pc;
        writeFile(pc.filePath(QStringLiteral("app/main.py")), "v1");
        writeFile(pc.filePath(QStringLiteral(".pelkamignore")), "*.cfg\n");
        // A link to its own folder is named once and never followed.
        QVERIFY(QFile::link(QStringLiteral("."), pc.filePath(QStringLiteral("app/loop"))));
        PelkamWindow w;
        w.readSettings();
        w.setupLocalDir(pc.path());
        BoardLink::PortSettings settings;
        settings.name = s.board.path();
        QSignalSpy listed(&w.files(), &BoardFiles::queryInfoFinished);
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return listed.count() > 0 && !w.files().busy(); }, 20000));
        QVERIFY2(w.statusBar()->currentMessage().contains(QStringLiteral(" free of ")),
                 qPrintable(w.statusBar()->currentMessage()));
        QString preview;
        QString missing;
        QTimer::singleShot(200, &w, [&] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            // Without creating folders, the preview says where the sync would stop.
            dialog->findChild<QCheckBox*>(QStringLiteral("createDirsCheck"))->setChecked(false);
            dialog->findChild<QPushButton*>(QStringLiteral("previewButton"))->click();
            missing = dialog->findChild<QPlainTextEdit*>(QStringLiteral("previewView"))->toPlainText();
            dialog->findChild<QCheckBox*>(QStringLiteral("createDirsCheck"))->setChecked(true);
            dialog->findChild<QCheckBox*>(QStringLiteral("deleteCheck"))->setChecked(true);
            dialog->findChild<QPushButton*>(QStringLiteral("previewButton"))->click();
            preview = dialog->findChild<QPlainTextEdit*>(QStringLiteral("previewView"))->toPlainText();
            dialog->accept();
        });
        w.action(QStringLiteral("actionSync"))->trigger();
        QCOMPARE(preview, QStringLiteral("upload app/main.py\ndelete /flash/old.py"));
        QVERIFY2(missing.endsWith(
                     QStringLiteral("app/ is missing on the board: the sync stops there (tick Create missing folders)")),
                 qPrintable(missing));
        auto* syslog = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
        // Previews change nothing and never say they synchronised.
        QCOMPARE(syslog->toPlainText().count(QStringLiteral("Synchronized files from folders")), 1);
        QCOMPARE(syslog->toPlainText().count(QStringLiteral("Skipping app/loop - a link to a folder is not followed")),
                 1);
        QVERIFY(w.mcModel().dirExists(QStringLiteral("app")));
        QVERIFY(!w.mcModel().fileExists(QStringLiteral("old.py")));
        QVERIFY(w.mcModel().fileExists(QStringLiteral("keep.cfg")));

        w.action(QStringLiteral("actionSyncOnSave"))->setChecked(true);
        writeFile(pc.filePath(QStringLiteral("app/main.py")), "v2");
        QVERIFY(waitFor(
            [&] {
                s.board.dump();
                return s.board.readFile(QStringLiteral("app/main.py")) == "v2";
            },
            30000));
        // Sync on Save tries a failed upload again: here once the board has room.
        const QByteArray big(70000, 'b');
        writeFile(pc.filePath(QStringLiteral("app/big.bin")), big);
        QVERIFY2(waitFor([&] { return syslog->toPlainText().contains(QStringLiteral("Not synced yet: app/big.bin")); },
                         30000),
                 qPrintable(syslog->toPlainText().right(2000)));
        QVERIFY(waitFor([&] { return !w.files().busy(); }, 10000));
        QVERIFY(w.files().remove(QStringLiteral("/flash/filler.cfg"), false));
        QVERIFY(waitFor(
            [&] {
                s.board.dump();
                return s.board.readFile(QStringLiteral("app/big.bin")) == big;
            },
            30000));
        // A folder that vanishes is waited for; what comes back is synced.
        QVERIFY(QDir(pc.path()).removeRecursively());
        QVERIFY(waitFor([&] { return syslog->toPlainText().contains(QStringLiteral("Waiting for ") + pc.path()); },
                        10000));
        writeFile(pc.filePath(QStringLiteral("app/main.py")), "v3");
        QVERIFY(waitFor(
            [&] {
                s.board.dump();
                return s.board.readFile(QStringLiteral("app/main.py")) == "v3";
            },
            30000));
        // A board that drops off leaves no stale free space behind.
        QVERIFY(!w.statusBar()->currentMessage().isEmpty());
        s.board.unplug();
        QVERIFY(waitFor([&] { return !w.link().isOpen(); }, 10000));
        QCOMPARE(w.statusBar()->currentMessage(), QString());
    }

    void initTestCase() { isolateSettings(m_dir); }
    void init() { QSettings().clear(); }

    // "Keep waiting for the board" (Preferences, off by default): after the ten
    // reconnect attempts the window goes on looking for the same port, says
    // so in the status bar, and connects when the board is back.
    void keepWaitingForTheBoard()
    {
        QSettings().setValue(Preferences::kKeepWaitingKey, 1);
        BoardSession s(QStringLiteral("stm32"), {"--reset-delay", "9000"});
        PelkamWindow w;
        w.readSettings();
        w.action(QStringLiteral("actionAutomatic_Reconnect"))->setChecked(true);
        BoardLink::PortSettings settings;
        settings.name = s.board.path();
        QSignalSpy listed(&w.files(), &BoardFiles::queryInfoFinished);
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return listed.count() > 0 && !w.files().busy(); }, 20000));
        s.board.unplug();
        const auto waiting = [&] { return w.statusBar()->currentMessage().startsWith(QStringLiteral("Waiting for")); };
        QVERIFY(waitFor(waiting, 15000));
        auto* syslog = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
        QVERIFY(syslog->toPlainText().contains(QStringLiteral("Reconnection attempts exhausted")));
        QVERIFY(!w.link().isOpen());
        QVERIFY2(waitFor([&] { return w.link().isOpen(); }, 20000), qPrintable(syslog->toPlainText()));
        QVERIFY(waitFor([&] { return !waiting(); }, 5000));
    }

    // Each kind of failure during a Sync (default options), through the real
    // window: by default the file actions stay off, as they always have, and
    // the status bar says how to go on; with the Preferences option they stay
    // on and the board pane stays in its folder. A board that is gone leaves
    // them off either way.
    void failuresLeaveAWayOn_data()
    {
        QTest::addColumn<QStringList>("boardArgs");
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("words");
        QTest::addColumn<bool>("boardStays");
        QTest::newRow("missing folder") << QStringList() << "lib/util.py" << 6 << "ENOENT: no such file or folder"
                                        << true;
        QTest::newRow("full flash") << QStringList{"--flash-size", "20480"} << "big.bin" << 30000
                                    << "Not enough room on the board" << true;
        QTest::newRow("time-out") << QStringList{"--arm-on", "_upload(", "--mute-after", "40"} << "main.py" << 30000
                                  << "Transmission error. Aborted" << true;
        QTest::newRow("board gone") << QStringList{"--arm-on", "_upload(", "--drop-rx", "3000"} << "main.py" << 30000
                                    << "Connection closed" << false;
    }

    void failuresLeaveAWayOn()
    {
        QFETCH(QStringList, boardArgs);
        QFETCH(QString, file);
        QFETCH(int, size);
        QFETCH(QString, words);
        QFETCH(bool, boardStays);
        QTemporaryDir pc;
        writeFile(pc.filePath(file), QByteArray(size, 'x'));
        for (const bool keep : {false, true}) {
            QSettings().setValue(Preferences::kKeepActionsKey, keep);
            BoardSession s(QStringLiteral("esp32"), boardArgs, {{"app/", {}}});
            PelkamWindow w;
            w.readSettings();
            w.setupLocalDir(pc.path());
            BoardLink::PortSettings settings;
            settings.name = s.board.path();
            settings.type = MC_ESP32;
            QSignalSpy listed(&w.files(), &BoardFiles::queryInfoFinished);
            QVERIFY(w.connectTo(settings));
            QVERIFY(waitFor([&] { return listed.count() > 0 && !w.files().busy(); }, 20000));
            w.files().updateMcDir(QStringLiteral("/app/"));
            QTimer::singleShot(200, &w, [] {
                auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
                QVERIFY(dialog);
                dialog->accept();
            });
            w.action(QStringLiteral("actionSync"))->trigger();
            QVERIFY(waitFor([&] { return !w.files().busy(); }, 30000));
            auto* syslog = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
            QVERIFY2(syslog->toPlainText().contains(words), qPrintable(syslog->toPlainText()));
            QCOMPARE(w.link().isOpen(), boardStays);
            for (const char* name : {"actionUpload", "actionSync", "actionRefresh", "actionRename", "actionLaunch"})
                QVERIFY2(w.action(QString::fromLatin1(name))->isEnabled() == (keep && boardStays), name);
            QCOMPARE(w.statusBar()->currentMessage().contains(QStringLiteral("Abort (Ctrl+X)")), !keep && boardStays);
            if (boardStays)
                QCOMPARE(w.mcModel().dirPath(), QStringLiteral("/app/"));
        }
    }

    void fileActionsFollowTheLink()
    {
        PelkamWindow w;
        QVERIFY(!w.findChild<QToolBar*>(QStringLiteral("b_actionsToolBar"))->isEnabled());
        // The nine file actions, and Refresh and Rename with them.
        const QStringList nine{"actionUpload", "actionDownload", "actionNew_File", "actionNew_Directory",
                               "actionEdit",   "actionRemove",   "actionSync",     "actionUpload_Package",
                               "actionLaunch", "actionRefresh",  "actionRename"};
        w.fileOpsEnable(true);
        for (QAction* a : w.findChildren<QAction*>()) {
            // Cancel is on only while an operation runs.
            if (a->objectName().isEmpty() || a->objectName() == QLatin1String("actionCancel"))
                continue;
            QCOMPARE(a->isEnabled(), true);
        }
        w.fileOpsEnable(false);
        for (QAction* a : w.findChildren<QAction*>())
            if (!a->objectName().isEmpty() && a->objectName() != QLatin1String("actionCancel"))
                QCOMPARE(a->isEnabled(), !nine.contains(a->objectName()));
    }

    void settingsAndClose()
    {
        QSettings().setValue(QStringLiteral("UI/Dir"), m_dir.path());
        QSettings().setValue(QStringLiteral("MC/ConnRest"), true);
        writeFile(m_dir.filePath(QStringLiteral("a-file-with-a-date.py")), "x");
        {
            PelkamWindow w;
            QSignalSpy loaded(w.findChild<QTreeView*>(QStringLiteral("pcFileList"))->model(),
                              SIGNAL(directoryLoaded(QString)));
            w.show();
            w.readSettings();
            // A first start takes a good share of the screen, and the PC pane's
            // columns (Date Modified too) show what they hold.
            const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
            QVERIFY2(w.width() >= screen.width() * 7 / 10 && w.height() >= screen.height() * 7 / 10,
                     qPrintable(QStringLiteral("%1x%2").arg(w.width()).arg(w.height())));
            auto* pc = w.findChild<QTreeView*>(QStringLiteral("pcFileList"));
            QVERIFY(loaded.count() > 0 || loaded.wait(5000));
            const QModelIndex file = static_cast<QFileSystemModel*>(pc->model())
                                         ->index(m_dir.filePath(QStringLiteral("a-file-with-a-date.py")), 3);
            const QString date = WindowViews::pcColumnText(file);
            QVERIFY2(!date.isEmpty() && pc->columnWidth(3) > pc->fontMetrics().horizontalAdvance(date), qPrintable(date));
            // Sizes and dates in the interface's language, not the system's.
            QLocale::setDefault(QLocale(QStringLiteral("ru_RU")));
            QVERIFY(WindowViews::pcColumnText(file.siblingAtColumn(1)).contains(QString::fromUtf8("байт")));
            QLocale::setDefault(QLocale::c());
            QVERIFY(w.action(QStringLiteral("actionAutomatic_Reconnect"))->isChecked());
            QVERIFY(!w.action(QStringLiteral("actionMonitor_Only"))->isChecked());
            w.action(QStringLiteral("actionMonitor_Only"))->setChecked(true);
            w.writeSettings();
            // Typing a path letter by letter: the "/" after a folder name stays.
            QDir(m_dir.path()).mkpath(QStringLiteral("sub"));
            auto* folder = w.findChild<QLineEdit*>(QStringLiteral("pcFolderEdit"));
            w.findChild<QWidget*>(QStringLiteral("fileSystemGroup"))->setEnabled(true);
            folder->clear();
            QTest::keyClicks(folder, m_dir.path() + QStringLiteral("/sub/"));
            QCOMPARE(folder->text(), m_dir.path() + QStringLiteral("/sub/"));
            QCOMPARE(QSettings().value(QStringLiteral("UI/Dir")).toString(), m_dir.path() + QStringLiteral("/sub"));
            ScriptedPrompter* prompter = script(w);
            QMetaObject::invokeMethod(&w, "on_pcFolderSelTool_clicked");
            QCOMPARE(prompter->questions, QStringList{"Select Directory"});
            w.setupLocalDir(QDir::tempPath());
            QVERIFY(w.close());
        }
        QVERIFY(QSettings().value(QStringLiteral("MC/MonOnly")).toBool());
        QCOMPARE(QSettings().value(QStringLiteral("UI/Dir")).toString(), QDir::tempPath());
        QVERIFY(QSettings().contains(QStringLiteral("UI/Geometry")));

        // The close question only while an operation runs on an open link.
        BoardSession s;
        PelkamWindow w;
        ScriptedPrompter* prompter = script(w);
        w.setOperationInProgress(true);
        QVERIFY(w.close());
        QVERIFY(prompter->questions.isEmpty());
        BoardLink::PortSettings settings;
        settings.name = s.board.path();
        QVERIFY(w.connectTo(settings));
        QSettings().remove(QStringLiteral("UI/Win"));
        prompter->answers = {Prompter::No};
        QVERIFY(!w.close());
        QCOMPARE(prompter->questions.size(), 1);
        QVERIFY(!QSettings().contains(QStringLiteral("UI/Win")));
        prompter->answers = {Prompter::Yes};
        QVERIFY(w.close());
        QVERIFY(!w.link().isOpen());
    }

    void terminalColours()
    {
        const QString esc = QStringLiteral("\x1b");
        const QList<QPair<QString, QString>> cases{
            {esc + "[32mOK" + esc + "[0m", "<font color=green>OK</font>"},
            {esc + "[31ma" + esc + "[34mb", "<font color=red>a</font><font color=blue>b"},
            {esc + "[1;31mx", "<font color=black></font><font color=red>x"},
            {esc + "[94mx", "<font color=black>x"},
            // A reset at the start shortens the text: the search resumes counting
            // back from the end and passes over the next escape, as it must.
            {esc + "[0mabcdefgh" + esc + "[31mx", "abcdefgh" + esc + "[31mx"}};
        for (const auto& c : cases) {
            QString input = c.first;
            QCOMPARE(PelkamWindow::processTerminalData(input), c.second);
        }
    }

    void savingLogs()
    {
        PelkamWindow w;
        ScriptedPrompter* prompter = script(w);
        w.logAppend(QStringLiteral("hello <font color=red>world</font>"));
        auto* log = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
        QVERIFY(log->toPlainText().contains(QStringLiteral("hello world")));
        w.on_actionSaveSyslog_triggered(); // cancelled
        QVERIFY(!QSettings().contains(QStringLiteral("UI/LogDir")));
        prompter->fileName = m_dir.filePath(QStringLiteral("trace"));
        w.on_actionSaveSyslog_triggered();
        QVERIFY(readFile(m_dir.filePath(QStringLiteral("trace.log"))).contains("hello world"));
        QCOMPARE(QSettings().value(QStringLiteral("UI/LogDir")).toString(), m_dir.path());
        prompter->fileName = m_dir.filePath(QStringLiteral("x.LOG"));
        w.on_actionSaveTerminal_triggered();
        QVERIFY(QFile::exists(m_dir.filePath(QStringLiteral("x.LOG"))));
        prompter->fileName = QStringLiteral("/nonexistent-dir/a.log");
        w.on_actionSaveSyslog_triggered();
        QVERIFY(log->toPlainText().contains(QStringLiteral("Cannot save to /nonexistent-dir/a.log")));
        QCOMPARE(QSettings().value(QStringLiteral("UI/LogDir")).toString(), QStringLiteral("/nonexistent-dir"));
        w.on_actionClear_Syslog_triggered();
        QVERIFY(log->toPlainText().isEmpty());
        // A scrollback limit keeps only the newest lines.
        QSettings().setValue(QStringLiteral("UI/TerminalLines"), 3);
        w.readSettings();
        for (int i = 0; i < 10; ++i)
            w.logAppend(QString::number(i));
        QCOMPARE(log->document()->blockCount(), 3);
        QVERIFY(log->toPlainText().endsWith(QStringLiteral(": 9")));
    }

    void userActionsDuringTransfer()
    {
        VirtualBoard board(QStringLiteral("stm32"), {QStringLiteral("--baud"), QStringLiteral("115200")},
                           {{"lib/", {}}});
        PelkamWindow w;
        w.show();
        BoardLink::PortSettings settings;
        settings.name = board.path();
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return w.mcModel().dirExists(QStringLiteral("lib")); }, 20000));
        QTemporaryDir dir;
        const QString big = writeFile(dir.filePath(QStringLiteral("big.bin")), QByteArray(60000, 'q'));
        bool refused = false;
        QTimer::singleShot(2000, &w, [&] {
            // A click on a folder while the upload waits must not start a listing.
            QVERIFY(w.files().busy());
            w.on_mcFileList_doubleClicked(w.mcModel().index(1, 0));
            refused = w.mcModel().dirPath() == QStringLiteral("/flash/");
            // Disconnecting ends the transfer at once.
            w.on_actionConnect_triggered();
        });
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!w.files().upload(big, QStringLiteral("/flash/big.bin")));
        QVERIFY(timer.elapsed() < 6000);
        QVERIFY(refused);
        QVERIFY(!w.link().isOpen());
        QVERIFY(!w.files().busy());
        QCOMPARE(w.mcModel().rowCount(), 0);
        // The window reconnects and works as before.
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return w.mcModel().dirExists(QStringLiteral("lib")); }, 20000));

        // Escape cancels an upload the window runs: one line, a clean board, the pane listed again.
        w.setupLocalDir(dir.path());
        auto* pcList = w.findChild<QTreeView*>(QStringLiteral("pcFileList"));
        auto* pcModel = qobject_cast<QFileSystemModel*>(pcList->model());
        QVERIFY(waitFor([&] { return pcModel->index(big).isValid(); }));
        auto* log = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
        QTimer escape;
        connect(&escape, &QTimer::timeout, &w, [&] {
            if (w.findChild<QProgressBar*>(QStringLiteral("progressBar"))->value() > 8000) {
                escape.stop();
                QTest::keyClick(&w, Qt::Key_Escape);
            }
        });
        escape.start(20);
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        const int before = log->toPlainText().size();
        w.on_pcFileList_doubleClicked(pcModel->index(big));
        const QString after = log->toPlainText().mid(before);
        QCOMPARE(after.count(QStringLiteral("Cancelled")), 1);
        QVERIFY2(!after.contains(QStringLiteral("Traceback")), qPrintable(after));
        QVERIFY(w.mcModel().fileExists(QStringLiteral("big.bin")));
        QVERIFY(w.action(QStringLiteral("actionUpload"))->isEnabled());
    }

    void replLineAndRefresh()
    {
        QSettings().setValue(QStringLiteral("UI/ReplHistory"), QStringList{"print('old')"});
        BoardSession s(QStringLiteral("stm32"));
        PelkamWindow w;
        w.show();
        auto* line = w.findChild<QLineEdit*>(QStringLiteral("replEdit"));
        QVERIFY(!line->isEnabled());
        BoardLink::PortSettings settings;
        settings.name = s.board.path();
        // Monitor Only: the line talks to the board; its answer shows in the Terminal.
        w.action(QStringLiteral("actionMonitor_Only"))->setChecked(true);
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return line->isEnabled(); }));
        auto* terminal = w.findChild<QTextBrowser*>(QStringLiteral("runtimeLogBrowser"));
        QTest::keyClicks(line, QStringLiteral("print(6*7)"));
        QTest::keyClick(line, Qt::Key_Return);
        QVERIFY2(waitFor([&] { return terminal->toPlainText().contains(QStringLiteral("]: 42")); }),
                 qPrintable(terminal->toPlainText()));
        // One timestamped line per board line: never an empty one after it.
        QVERIFY2(!terminal->toPlainText().contains(QRegularExpression(QStringLiteral("\\]: ?(\\n|$)"))),
                 qPrintable(terminal->toPlainText()));
        QTest::keyClick(line, Qt::Key_Up);
        QCOMPARE(line->text(), QStringLiteral("print(6*7)"));
        QTest::keyClick(line, Qt::Key_Up);
        QCOMPARE(line->text(), QStringLiteral("print('old')"));
        QTest::keyClick(line, Qt::Key_Down);
        QTest::keyClick(line, Qt::Key_Down);
        QCOMPARE(line->text(), QString());
        QCOMPARE(QSettings().value(QStringLiteral("UI/ReplHistory")).toStringList(),
                 QStringList({"print('old')", "print(6*7)"}));
        // While the program drives the board the line is off; F5 lists what
        // changed behind the pane's back.
        w.on_actionConnect_triggered();
        w.action(QStringLiteral("actionMonitor_Only"))->setChecked(false);
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return w.action(QStringLiteral("actionRefresh"))->isEnabled(); }, 20000));
        QVERIFY(!line->isEnabled());
        // Off, it says why in place, and which action makes it usable.
        QVERIFY2(line->placeholderText().contains(QStringLiteral("press Launch")), qPrintable(line->placeholderText()));
        // View > "Show the program's own commands": on by default; off, the Syslog
        // drops the echo of what Pelkam sends and keeps the board's answers.
        auto* syslog = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
        QAction* own = w.action(QStringLiteral("actionShowOwnCommands"));
        QVERIFY(own->isChecked());
        QVERIFY(w.link().replCommand("x_shown = 1", 3000));
        w.link().processQueue();
        QVERIFY(syslog->toPlainText().contains(QStringLiteral("x_shown = 1")));
        own->setChecked(false);
        QVERIFY(w.link().replCommand("print(5 * 7, 'x_hidden')", 3000));
        w.link().processQueue();
        QVERIFY2(syslog->toPlainText().contains(QStringLiteral("35 x_hidden")) &&
                     !syslog->toPlainText().contains(QStringLiteral("print(5 * 7")),
                 qPrintable(syslog->toPlainText()));
        own->setChecked(true);
        QVERIFY(w.link().replCommand("open('/flash/new.txt','w').close()", 3000));
        QVERIFY(!w.mcModel().fileExists(QStringLiteral("new.txt")));
        QVERIFY(w.link().replCommand("import os; os.mkdir('/flash/sub')", 3000));
        QTest::keyClick(&w, Qt::Key_F5);
        QVERIFY(w.mcModel().fileExists(QStringLiteral("new.txt")));
        // The pane's keys: F2 renames, Delete removes, Enter opens, Backspace goes up.
        auto* pane = w.findChild<QTableView*>(QStringLiteral("mcFileList"));
        const auto select = [&](const QString& name) {
            for (int r = 0; r < w.mcModel().rowCount(); ++r)
                if (w.mcModel().path(w.mcModel().index(r, 0)) == name)
                    pane->setCurrentIndex(w.mcModel().index(r, 0));
        };
        script(w)->texts = QStringList{QStringLiteral("old.txt")};
        select(QStringLiteral("new.txt"));
        QTest::keyClick(&w, Qt::Key_F2);
        QVERIFY(w.mcModel().fileExists(QStringLiteral("old.txt")));
        select(QStringLiteral("old.txt"));
        QTest::keyClick(pane, Qt::Key_Delete);
        QVERIFY(!w.mcModel().fileExists(QStringLiteral("old.txt")));
        select(QStringLiteral("sub"));
        QTest::keyClick(pane, Qt::Key_Return);
        QCOMPARE(w.mcModel().dirPath(), QStringLiteral("/flash/sub/"));
        QCOMPARE(w.findChild<QLabel*>(QStringLiteral("mcFolderLabel"))->text(),
                 QStringLiteral("Board folder: /flash/sub/"));
        QTest::keyClick(pane, Qt::Key_Backspace);
        QCOMPARE(w.mcModel().dirPath(), QStringLiteral("/flash/"));

        // Drops: a PC file onto the board pane goes up, a board file onto the PC pane comes down.
        QTemporaryDir pc;
        w.setupLocalDir(pc.path());
        const auto drop = [](QWidget* target, QMimeData* mime) {
            QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(target, &enter);
            QDropEvent dropped(QPointF(5, 5), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(target, &dropped);
        };
        QMimeData up;
        up.setUrls({QUrl::fromLocalFile(writeFile(pc.filePath(QStringLiteral("dropped.py")), "x = 1\n"))});
        drop(pane->viewport(), &up);
        QVERIFY(w.mcModel().fileExists(QStringLiteral("dropped.py")));
        QFile::remove(pc.filePath(QStringLiteral("dropped.py")));
        select(QStringLiteral("dropped.py"));
        QMimeData down;
        down.setData(QStringLiteral("application/x-pelkam-board-row"), QByteArray::number(pane->currentIndex().row()));
        drop(w.findChild<QTreeView*>(QStringLiteral("pcFileList"))->viewport(), &down);
        QCOMPARE(readFile(pc.filePath(QStringLiteral("dropped.py"))), QByteArray("x = 1\n"));
    }

    void connectionPopup()
    {
        const QString device = m_dir.filePath(QStringLiteral("my-board"));
        writeFile(device);
        QSettings().setValue(QStringLiteral("UI/MC"), 1);
        QSettings().setValue(QStringLiteral("UI/Baud"), QStringLiteral("57600"));
        {
            ConnectionPopup popup;
            popup.readSettings();
            QCOMPARE(popup.type(), 1);
            QCOMPARE(popup.baud(), 57600);
            auto* ports = popup.findChild<QComboBox*>(QStringLiteral("portsCombo"));
            auto* apply = popup.findChild<QToolButton*>(QStringLiteral("applyButton"));
            ports->clear();
            ports->setEditText(QString());
            QVERIFY(!apply->isEnabled());
            // No port found: only a typed path to an existing device opens.
            ports->setEditText(QStringLiteral("/tmp/no-such-board"));
            QVERIFY(!apply->isEnabled());
            ports->setEditText(device);
            QVERIFY(apply->isEnabled());
            // Dismissing the popup emits done() but applies nothing.
            QSignalSpy done(&popup, &ConnectionPopup::done);
            popup.show();
            popup.close();
            QCOMPARE(done.count(), 1);
            QVERIFY(!popup.applied());
            popup.show();
            QTest::mouseClick(apply, Qt::LeftButton);
            QVERIFY(popup.applied());
            QCOMPARE(done.count(), 2);
            popup.writeSettings();
        }
        QCOMPARE(QSettings().value(QStringLiteral("UI/Port")).toString(), device);
        {
            // A serial port on another machine: no password; a baud rate only
            // where the server sets it; offered again once used.
            ConnectionPopup remote;
            remote.readSettings();
            auto* ports = remote.findChild<QComboBox*>(QStringLiteral("portsCombo"));
            auto* apply = remote.findChild<QToolButton*>(QStringLiteral("applyButton"));
            auto* baud = remote.findChild<QComboBox*>(QStringLiteral("baudCombo"));
            remote.show();
            for (const char* address : {"rfc2217://rack1:3001", "socket://rack1:3002"}) {
                ports->setEditText(QString::fromLatin1(address));
                QVERIFY(apply->isEnabled());
                QVERIFY(!remote.webRepl());
                QCOMPARE(baud->isVisible(), QByteArray(address).startsWith("rfc2217"));
                remote.writeSettings();
            }
            ports->setEditText(QStringLiteral("rfc2217://rack1"));
            QVERIFY(!apply->isEnabled());
            remote.readSettings();
            QVERIFY(ports->findText(QStringLiteral("rfc2217://rack1:3001")) >= 0);
            QCOMPARE(remote.port(), QStringLiteral("socket://rack1:3002"));
            QSettings().setValue(QStringLiteral("UI/Port"), device);
        }
        ConnectionPopup popup;
        popup.readSettings();
        QCOMPARE(popup.port(), device);
        // A remembered board that is gone: the first listed port instead.
        QSettings().setValue(QStringLiteral("UI/Port"), QStringLiteral("/tmp/no-such-board"));
        popup.readSettings();
        QCOMPARE(popup.port(), QSerialPortInfo::availablePorts().value(0).portName());
        ConnectionPopup offered;
        offered.setOfferedPort(QStringLiteral("/tmp/virtual"));
        offered.readSettings();
        QCOMPARE(offered.port(), QStringLiteral("/tmp/virtual"));

        // "Fast transfers" here and in Preferences are one setting.
        auto* fast = offered.findChild<QCheckBox*>(QStringLiteral("fastTransfersCheck"));
        QVERIFY(!fast->isChecked());
        fast->setChecked(true);
        offered.writeSettings();
        Preferences preferences;
        preferences.readSettings();
        auto* inPreferences = preferences.findChild<QCheckBox*>(QStringLiteral("global_FastTransfersCheck"));
        QVERIFY(inPreferences->isChecked());
        QCOMPARE(fast->toolTip(), inPreferences->toolTip());
        inPreferences->setChecked(false);
        preferences.writeSettings();
        offered.readSettings();
        QVERIFY(!fast->isChecked());
    }

    void realWindowWithBoard()
    {
        BoardSession s(QStringLiteral("stm32"), {}, {{"main.py", "print('hi')\n"}, {"lib/", {}}});
        PelkamWindow w;
        w.readSettings();
        w.show();
        BoardLink::PortSettings settings;
        settings.name = s.board.path();
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return w.mcModel().fileExists(QStringLiteral("main.py")); }, 20000));
        QVERIFY(w.mcModel().dirExists(QStringLiteral("lib")));
        auto* log = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
        QVERIFY(log->toPlainText().contains(QStringLiteral("Connected to micropython board pyboard")));
        QVERIFY(w.action(QStringLiteral("actionUpload"))->isEnabled());
        QVERIFY(w.findChild<QToolBar*>(QStringLiteral("b_actionsToolBar"))->isEnabled());
        // Double-clicking a folder opens it; ".." goes back.
        w.on_mcFileList_doubleClicked(w.mcModel().index(1, 0));
        QCOMPARE(w.mcModel().dirPath(), QStringLiteral("/flash/lib/"));
        w.on_mcFileList_doubleClicked(w.mcModel().index(0, 0));
        QCOMPARE(w.mcModel().dirPath(), QStringLiteral("/flash/"));

        // A real double click on a PC file uploads it into the listed folder.
        QTemporaryDir pc;
        const QString hello = writeFile(pc.filePath(QStringLiteral("hello.py")), "print('hello')\n");
        w.setupLocalDir(pc.path());
        auto* pcList = w.findChild<QTreeView*>(QStringLiteral("pcFileList"));
        auto* pcModel = qobject_cast<QFileSystemModel*>(pcList->model());
        QVERIFY(
            waitFor([&] { return pcModel->index(hello).isValid() && pcModel->rowCount(pcList->rootIndex()) == 1; }));
        const QRect cell = pcList->visualRect(pcModel->index(hello));
        QTest::mouseClick(pcList->viewport(), Qt::LeftButton, {}, cell.center());
        QTest::mouseDClick(pcList->viewport(), Qt::LeftButton, {}, cell.center());
        QVERIFY(waitFor([&] { return w.mcModel().fileExists(QStringLiteral("hello.py")); }, 20000));
        s.board.dump();
        QCOMPARE(s.board.readFile(QStringLiteral("hello.py")), QByteArray("print('hello')\n"));
        QVERIFY(w.action(QStringLiteral("actionUpload"))->isEnabled());

        // Sync through its dialog: the file is now identical.
        bool dialogSeen = false;
        QTimer::singleShot(200, &w, [&] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            QCOMPARE(dialog->objectName(), QStringLiteral("SyncConfigurationDialog"));
            QCOMPARE(dialog->windowTitle(), QStringLiteral("Synchronization"));
            QCOMPARE(dialog->findChild<QLineEdit*>(QStringLiteral("srcEdit"))->text(), pc.path());
            QCOMPARE(dialog->findChild<QLineEdit*>(QStringLiteral("destEdit"))->text(), QStringLiteral("/flash/"));
            QVERIFY(dialog->findChild<QCheckBox*>(QStringLiteral("recursiveCheck"))->isChecked());
            dialog->findChild<QCheckBox*>(QStringLiteral("missingCheck"))->setChecked(false);
            dialogSeen = true;
            dialog->accept();
        });
        w.action(QStringLiteral("actionSync"))->trigger();
        QVERIFY(dialogSeen);
        QVERIFY(log->toPlainText().contains(QStringLiteral("Skipping hello.py - files are identical")));
        QCOMPARE(QSettings().value(QStringLiteral("Sync/Missing")).toBool(), false);

        // Upload Package through the file question; New Directory by name.
        ScriptedPrompter* prompter = script(w);
        prompter->fileName = m_dir.filePath(QStringLiteral("none.zip"));
        w.action(QStringLiteral("actionUpload_Package"))->trigger();
        QVERIFY(
            prompter->questions.last().startsWith(QStringLiteral("Select package: Zarno pack files (*.upack);; UFW")));
        QVERIFY(log->toPlainText().endsWith(QStringLiteral("Unsupported package type")));
        // A second package while one installs gets the warning box.
        QCOMPARE(QProcess::execute(QStringLiteral("python3"),
                                   {QStringLiteral("-c"),
                                    QStringLiteral("import zipfile,sys\nwith zipfile.ZipFile(sys.argv[1],'w') as z: "
                                                   "z.writestr('p.bin', b'p'*60000)"),
                                    m_dir.filePath(QStringLiteral("p.upack"))}),
                 0);
        prompter->fileName = m_dir.filePath(QStringLiteral("p.upack"));
        QTimer poll;
        connect(&poll, &QTimer::timeout, &w, [&] {
            if (w.files().busy()) {
                poll.stop();
                QMetaObject::invokeMethod(&w, "on_actionUpload_Package_triggered");
            }
        });
        poll.start(20);
        w.action(QStringLiteral("actionUpload_Package"))->trigger();
        QVERIFY(
            prompter->questions.contains(QStringLiteral("Package Upload: A package is being uploaded. Please wait")));
        w.action(QStringLiteral("actionCheck_for_updates"))->trigger();
        QVERIFY(log->toPlainText().endsWith(QStringLiteral("Updates come from the system's package manager")));
        prompter->texts = QStringList{QStringLiteral("made")};
        w.action(QStringLiteral("actionNew_Directory"))->trigger();
        QVERIFY(w.mcModel().dirExists(QStringLiteral("made")));

        // A double click on a board file opens it in the editor.
        for (int row = 0; row < w.mcModel().rowCount(); ++row)
            if (w.mcModel().path(w.mcModel().index(row, 0)) == QLatin1String("main.py")) {
                w.findChild<QTableView*>(QStringLiteral("mcFileList"))->setCurrentIndex(w.mcModel().index(row, 0));
                w.on_mcFileList_doubleClicked(w.mcModel().index(row, 0));
            }
        QVERIFY(w.remoteEdit().editor());
        QCOMPARE(w.remoteEdit().editor()->editor()->toPlainText(), QStringLiteral("print('hi')\n"));
        QCOMPARE(w.remoteEdit().editor()->windowTitle(), QStringLiteral("main.py"));

        w.on_actionConnect_triggered(); // disconnects, which ends the edit
        QVERIFY(!w.link().isOpen());
        QVERIFY(!w.remoteEdit().editing());
        QCOMPARE(w.mcModel().rowCount(), 0);
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
