#include "boardsession.h"
#include "codeeditor/qcodeeditor.h"
#include "codeeditordialog.h"
#include "connectionpopup.h"
#include "link/webreplrelay.h"
#include "pelkamwindow.h"
#include "remoteedit.h"
#include "secretstore.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QJsonArray>
#include <QJsonObject>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTableView>
#include <QTextBrowser>
#include <QToolButton>
#include <QWebSocket>
#include <QtTest>

// The board over MicroPython's WebREPL: the virtual board serves its console
// on a websocket with the password prompt, one client at a time and a small
// input buffer that drops what overflows it.
class TestWebRepl : public QObject {
    Q_OBJECT
    QTemporaryDir m_settingsDir;
    // Longer than the 9 characters a board compares.
    static constexpr char kPassword[] = "wifi-brd1";
    static QStringList served() { return {"--webrepl", "0", "--password", kPassword}; }

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }
    void init() { QSettings().clear(); }

    void loginAndOneClient();
    void transfers_data();
    void transfers();
    void softResetAndVanishing();
    void silentLoss();
    void characterCutInTwo();
    void frameMarker();
    void popup();
    void keyringOnlyAfterAcceptance();
    void windowWorkflows_data() { transfers_data(); }
    void windowWorkflows();
    void boardFileProtocol();
    void uploadsThroughFileProtocol();
};

void TestWebRepl::loginAndOneClient()
{
    BoardSession s(QStringLiteral("esp32"), served());
    QVERIFY(s.board.isRunning());
    QVERIFY(s.board.path().startsWith(QLatin1String("ws://127.0.0.1:")));

    // A wrong password: one line, no retries, and the password in no line.
    s.password = QStringLiteral("wrong-pw");
    QVERIFY(!s.link.connectToBoard(s.settings(), true, true));
    QTest::qWait(700);
    QVERIFY2(s.logged(QStringLiteral("the board refused the WebREPL password")), qPrintable(s.log.join('\n')));
    QVERIFY(!s.logged(QStringLiteral("Reconnect attempt")));
    QVERIFY(!(s.log + s.terminal).join('\n').contains(s.password));
    s.password.clear();
    QVERIFY(!s.link.connectToBoard(s.settings(), false, true));
    QVERIFY(s.logged(QStringLiteral("none was given")));

    // A password longer than the 9 bytes a board keeps is wrong: never cut and sent.
    s.password = QString::fromLatin1(kPassword) + QStringLiteral("xyz");
    const int refusals = s.board.log().count(QStringLiteral("password refused"));
    QVERIFY(!s.link.connectToBoard(s.settings(), true, true));
    QTest::qWait(700);
    QVERIFY2(s.logged(QStringLiteral("longer than the 9 bytes a board keeps")), qPrintable(s.log.join('\n')));
    QVERIFY(!s.logged(QStringLiteral("Reconnect attempt")));
    QCOMPARE(s.board.log().count(QStringLiteral("password refused")), refusals);
    s.password = QString::fromLatin1(kPassword);
    QVERIFY(s.open());
    QVERIFY(!(s.log + s.terminal).join('\n').contains(s.password));

    // A second client is turned away at once (after its handshake, as current
    // MicroPython does, or before it, as older releases do); the first goes on working.
    BoardLink second;
    QStringList secondLog;
    connect(&second, &BoardLink::logLine, [&](const QString& line) { secondLog << line; });
    const auto turnedAway = [&](const BoardLink::PortSettings& settings) {
        secondLog.clear();
        QVERIFY(!second.connectToBoard(settings, true, true));
        QTest::qWait(700);
        QVERIFY2(secondLog.join('\n').contains(QStringLiteral("The board accepts one WebREPL client at a time")),
                 qPrintable(secondLog.join('\n')));
        QVERIFY(!secondLog.join('\n').contains(QStringLiteral("Reconnect attempt")));
    };
    turnedAway(s.settings());
    {
        BoardSession older(QStringLiteral("esp32"), served() << QStringLiteral("--reject-before-handshake"));
        older.password = QString::fromLatin1(kPassword);
        QVERIFY2(older.open(), qPrintable(older.log.join(QLatin1Char(10))));
        turnedAway(older.settings());
    }
    // Nothing listening there: the system's reason, not a board turning us away.
    secondLog.clear();
    BoardLink::PortSettings nowhere = s.settings();
    nowhere.name = QStringLiteral("ws://127.0.0.1:1");
    QVERIFY(!second.connectToBoard(nowhere, false, true));
    QVERIFY2(secondLog.join('\n').contains(QStringLiteral("refused")), qPrintable(secondLog.join('\n')));
    QVERIFY(!secondLog.join('\n').contains(QStringLiteral("one WebREPL client")));
    QTemporaryDir pc;
    QVERIFY(s.files.upload(writeFile(pc.filePath(QStringLiteral("a.py")), "print(1)\n"), QStringLiteral("/a.py")));
    s.board.dump();
    QCOMPARE(s.board.readFile(QStringLiteral("a.py")), QByteArray("print(1)\n"));

    // DFU mode has no network: refused, and the board stays connected.
    s.link.dfu();
    QVERIFY(s.logged(QStringLiteral("DFU is not possible over WebREPL")));
    QVERIFY(s.link.isOpen());
}

void TestWebRepl::transfers_data()
{
    QTest::addColumn<bool>("fast");
    QTest::newRow("default") << false;
    QTest::newRow("fast") << true;
}

void TestWebRepl::transfers()
{
    QFETCH(bool, fast);
    // An ESP8266's console ring: 256 bytes, of which 255 hold input.
    BoardSession s(QStringLiteral("esp32"), served() + QStringList{"--uart-ring", "256"});
    s.password = QString::fromLatin1(kPassword);
    s.files.setFastTransfers(fast);
    QVERIFY(s.open());
    QTemporaryDir pc;
    // A script far longer than the ring: one lost byte would change the sum.
    // The board stops reading for a while as it goes in.
    QByteArray sum = "s=0\n";
    for (int i = 0; i < 400; ++i)
        sum += "s+=" + QByteArray::number(i) + "\n";
    sum += "print('sum', s)\n";
    QByteArray printed;
    s.files.setWholeScriptOutput(true);
    connect(&s.files, &BoardFiles::scriptOutput, [&](const QByteArray& bytes, bool) { printed += bytes; });
    QTimer::singleShot(200, [&] { s.board.freeze(true); });
    QTimer::singleShot(600, [&] { s.board.freeze(false); });
    QVERIFY(s.files.execute_script(writeFile(pc.filePath(QStringLiteral("sum.py")), sum)));
    QVERIFY2(printed.contains("sum 79800") && !s.files.scriptRaised(), printed.constData());
    s.files.setWholeScriptOutput(false);
    QByteArray data(60000, Qt::Uninitialized);
    for (int i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>((i * 131) ^ (i >> 7));
    const QString name = QString::fromUtf8("/d\xc3\xa9j\xc3\xa0 vu.bin");
    QVERIFY(s.files.mc_mkdir(QStringLiteral("/sub")));
    QVERIFY(s.files.upload(writeFile(pc.filePath(QStringLiteral("in.bin")), data), QStringLiteral("/sub") + name));
    s.board.dump();
    QCOMPARE(s.board.readFile(QStringLiteral("sub") + name), data);
    QVERIFY(s.files.download(QStringLiteral("/sub") + name, pc.filePath(QStringLiteral("out.bin"))));
    QCOMPARE(readFile(pc.filePath(QStringLiteral("out.bin"))), data);
    // Rename, then the listing shows the new name alone.
    QVERIFY(s.files.mc_rename(QStringLiteral("/sub") + name, QStringLiteral("/sub/moved.bin")));
    const QJsonArray listed = s.files.mc_lsdir(QStringLiteral("/sub"), MC_LIST_FILES);
    QCOMPARE(listed.size(), 1);
    QCOMPARE(listed.at(0).toObject().value(QStringLiteral("n")).toString(), QStringLiteral("moved.bin"));
    QVERIFY(s.files.remove(QStringLiteral("/sub/moved.bin"), false));
    QVERIFY(!QFileInfo::exists(s.board.dump() + QStringLiteral("/sub/moved.bin")));
    // Fast uploads skip the REPL: the board's file protocol writes our temporary.
    QCOMPARE(s.board.log().contains(QStringLiteral("WebREPL put /sub") + name + QStringLiteral(".pelkam-tmp")), fast);
    // Scripts of several kB and every chunk went in without overflowing
    // the board's input buffer.
    QVERIFY2(!s.board.log().contains(QStringLiteral("input overflow")), qPrintable(s.board.log()));
}

void TestWebRepl::softResetAndVanishing()
{
    BoardSession s(QStringLiteral("esp32"), served());
    s.password = QString::fromLatin1(kPassword);
    QVERIFY(s.open(true));
    // Ctrl-D in the friendly REPL closes the socket; Automatic Reconnect brings it back.
    QVERIFY(s.link.to_repl());
    s.log.clear();
    s.infoDone = false;
    QVERIFY(s.link.write(QByteArray(1, '\x04')));
    QVERIFY(waitFor([&] { return s.infoDone; }, 20000));
    QVERIFY2(s.logged(QStringLiteral("The WebREPL connection closed")), qPrintable(s.log.join('\n')));
    QVERIFY(s.logged(QStringLiteral("Connected to ws://")));
    QVERIFY(s.link.isOpen());

    // Reset: the board's server goes away while it boots, and the link finds it again.
    s.log.clear();
    s.infoDone = false;
    s.link.reset();
    QVERIFY2(waitFor([&] { return s.infoDone; }, 20000), qPrintable(s.log.join('\n')));
    QVERIFY(s.logged(QStringLiteral("Reconnect attempt")));
    QVERIFY(s.link.abort());

    // Monitor Only and the REPL line: what the board prints reaches the Terminal.
    s.link.connectionClosed();
    QVERIFY(s.link.connectToBoard(s.settings(), false, false));
    QVERIFY(waitFor([&] { return s.terminal.join('\n').contains(QStringLiteral("Opened connection to ws://")); }));
    QVERIFY(s.link.write("\x03print(6*7)\r\n"));
    QVERIFY(waitFor([&] { return s.terminal.contains(QStringLiteral("42")); }));
    QVERIFY(s.link.mc_stop(true) == MC_STOPPED);

    // The board vanishes in the middle of an upload: the upload fails with
    // one line and returns, nothing waits forever.
    s.link.setAutomaticReconnect(false);
    QTemporaryDir pc;
    const QString local = writeFile(pc.filePath(QStringLiteral("big.bin")), QByteArray(300000, 'x'));
    QTimer::singleShot(800, [&] { s.board.stop(); });
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!s.files.upload(local, QStringLiteral("/big.bin")));
    QVERIFY(timer.elapsed() < 15000);
    QVERIFY(!s.link.isOpen());
    QVERIFY2(s.logged(QStringLiteral("The WebREPL connection closed")), qPrintable(s.log.join('\n')));
}

void TestWebRepl::silentLoss()
{
    // A board that loses power or Wi-Fi never closes its socket. Its address
    // routed into a blackhole is such a board: nothing arrives, nothing is refused.
    BoardSession s(QStringLiteral("esp32"), served() + QStringList{"--webrepl-host", "127.0.0.2"});
    s.password = QString::fromLatin1(kPassword);
    QVERIFY(s.open(true));
    s.log.clear();
    Blackhole cut;
    if (!cut.on())
        QSKIP("this machine cannot route an address into a blackhole (ip route needs CAP_NET_ADMIN)");
    // Idle, the link notices within about ten seconds and enters the reconnect cycle.
    const qint64 took = s.msUntilClosed(20000);
    QVERIFY2(took >= 0 && took < 13000, qPrintable(QString::number(took) + s.log.join('\n')));
    QVERIFY2(s.logged(QStringLiteral("The WebREPL connection closed")), qPrintable(s.log.join('\n')));
    QVERIFY(waitFor([&] { return s.logged(QStringLiteral("Reconnect attempt")); }, 5000));
    s.link.connectionClosed();
    cut.lift();
}

void TestWebRepl::characterCutInTwo()
{
    // A board whose output cuts characters between messages (a program
    // writing their bytes apart): the console arrives as
    // bytes, whole, and the connection stays up.
    BoardSession s(QStringLiteral("esp32"), served() + QStringList{"--cut-characters"});
    s.password = QString::fromLatin1(kPassword);
    s.files.setFastTransfers(true);
    QVERIFY(s.link.connectToBoard(s.settings(), false, false));
    QVERIFY(waitFor([&] { return s.terminal.join('\n').contains(QStringLiteral("Opened connection to ws://")); }));
    QVERIFY(s.link.write("\x03print('\\u043f\\u00e9' * 2)\r\n"));
    const QString expected = QString::fromUtf8("\xd0\xbf\xc3\xa9\xd0\xbf\xc3\xa9");
    QVERIFY2(waitFor([&] { return s.terminal.contains(expected); }),
             qPrintable(s.terminal.join('\n') + s.log.join('\n')));
    QVERIFY(s.link.isOpen());
    QVERIFY(!s.logged(QStringLiteral("The WebREPL connection closed")));

    // Names and listings, where the board prints non-ASCII, stay exact.
    QVERIFY(s.link.mc_stop(true) == MC_STOPPED);
    QTemporaryDir pc;
    const QByteArray data = QByteArrayLiteral("\xd0\xbf\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82\n");
    const QString name = QString::fromUtf8("/\xd0\xbf\xc3\xa9.txt");
    QVERIFY(s.files.upload(writeFile(pc.filePath(QStringLiteral("in.txt")), data), name));
    QVERIFY(s.files.download(name, pc.filePath(QStringLiteral("out.txt"))));
    QCOMPARE(readFile(pc.filePath(QStringLiteral("out.txt"))), data);
    const QJsonArray listed = s.files.mc_lsdir(QStringLiteral("/"), MC_LIST_FILES);
    QStringList names;
    for (const auto& entry : listed)
        names << entry.toObject().value(QStringLiteral("n")).toString();
    QVERIFY2(names.contains(name.mid(1)), qPrintable(names.join(',')));
    QVERIFY(s.link.isOpen());
}

void TestWebRepl::frameMarker()
{
    // The relay's rewriting of server frames, however the stream is cut:
    // text frames turn binary, every other byte passes unchanged.
    QByteArray http = QByteArrayLiteral("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n\r\n");
    QByteArray in = http;
    QByteArray want = http;
    auto frame = [&](char first, const QByteArray& payload, char markedFirst) {
        QByteArray header(1, first);
        if (payload.size() < 126) {
            header += char(payload.size());
        } else if (payload.size() < 65536) {
            header += char(126);
            header += char(payload.size() >> 8);
            header += char(payload.size() & 0xff);
        } else {
            header += char(127);
            for (int shift = 56; shift >= 0; shift -= 8)
                header += char((quint64(payload.size()) >> shift) & 0xff);
        }
        in += header + payload;
        header[0] = markedFirst;
        want += header + payload;
    };
    frame('\x81', QByteArrayLiteral("\xd0"), '\x82');                  // a text frame cut in a character
    frame('\x81', QByteArray(300, '\x81'), '\x82');                    // 16-bit length, payload like headers
    frame('\x01', QByteArrayLiteral("ab"), '\x02');                    // a text frame to be continued
    frame('\x80', QByteArrayLiteral("\x81\x01"), '\x80');              // its continuation
    frame('\x89', QByteArrayLiteral("ping"), '\x89');                  // control frames pass
    frame('\x82', QByteArrayLiteral("WB\0\0"), '\x81');              // a file protocol answer
    frame('\x81', QByteArray(70000, 'x'), '\x82');                     // 64-bit length
    frame('\x88', QByteArrayLiteral("\x03\xe8"), '\x88');              // close
    for (int piece : {1, 2, 3, 7, 130, int(in.size())}) {
        WebReplRelay::FrameMarker marker;
        QByteArray out;
        for (int i = 0; i < in.size(); i += piece)
            out += marker.mark(in.mid(i, piece));
        QCOMPARE(out.size(), want.size());
        QVERIFY2(out == want, qPrintable(QString::number(piece)));
    }
    // A server that answers no upgrade: its bytes pass as they are.
    WebReplRelay::FrameMarker marker;
    const QByteArray junk(20000, '\x81');
    QByteArray passed = marker.mark(junk);
    passed += marker.mark(QByteArrayLiteral("\x81\x01"));
    QCOMPARE(passed, junk + QByteArrayLiteral("\x81\x01"));
}

void TestWebRepl::keyringOnlyAfterAcceptance()
{
    // The window asks the secret store to keep a password only once the
    // board took it (here no store runs, so an attempt shows as its line).
    BoardSession s(QStringLiteral("esp32"), served());
    PelkamWindow w;
    w.readSettings();
    auto* syslog = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
    const auto connectWith = [&](const QString& password) {
        QTimer::singleShot(200, &w, [&, password] {
            ConnectionPopup* popup = nullptr;
            for (QWidget* top : QApplication::topLevelWidgets())
                if (auto* p = qobject_cast<ConnectionPopup*>(top); p && p->isVisible())
                    popup = p;
            QVERIFY(popup);
            popup->findChild<QComboBox*>(QStringLiteral("portsCombo"))->setEditText(s.board.path());
            popup->findChild<QLineEdit*>(QStringLiteral("passwordEdit"))->setText(password);
            popup->findChild<QCheckBox*>(QStringLiteral("rememberPasswordCheck"))->setChecked(true);
            popup->findChild<QToolButton*>(QStringLiteral("applyButton"))->click();
        });
        w.on_actionConnect_triggered();
    };
    connectWith(QStringLiteral("wrong-pw"));
    QVERIFY(!w.link().isOpen());
    QVERIFY2(!syslog->toPlainText().contains(QStringLiteral("secret store")), qPrintable(syslog->toPlainText()));
    connectWith(QString::fromLatin1(kPassword));
    QVERIFY(w.link().isOpen());
    // Kept, or (no store runs here) the attempt said so.
    QVERIFY2(syslog->toPlainText().contains(QStringLiteral("No secret store took the password")) ||
                 SecretStore::read(s.board.path()) == QString::fromLatin1(kPassword),
             qPrintable(syslog->toPlainText()));
    SecretStore::remove(s.board.path());
    w.link().connectionClosed();
}

void TestWebRepl::popup()
{
    const QString address = QStringLiteral("ws://127.0.0.1:18266");
    {
        // A ws:// address asks for a password instead of a baud rate.
        ConnectionPopup popup;
        popup.readSettings();
        auto* port = popup.findChild<QComboBox*>(QStringLiteral("portsCombo"));
        auto* password = popup.findChild<QLineEdit*>(QStringLiteral("passwordEdit"));
        auto* apply = popup.findChild<QToolButton*>(QStringLiteral("applyButton"));
        QVERIFY(port && password && apply);
        port->setEditText(address);
        QVERIFY(popup.webRepl());
        QVERIFY(!password->isHidden());
        QVERIFY(popup.findChild<QComboBox*>(QStringLiteral("baudCombo"))->isHidden());
        QVERIFY(!popup.findChild<QCheckBox*>(QStringLiteral("rememberPasswordCheck"))->isChecked());
        QVERIFY(!apply->isEnabled());
        password->setText(QString::fromLatin1(kPassword));
        QVERIFY(apply->isEnabled());
        QCOMPARE(popup.password(), QString::fromLatin1(kPassword));
        popup.writeSettings();
        QSettings().sync();
        QFile conf(QSettings().fileName());
        QVERIFY(conf.open(QIODevice::ReadOnly));
        const QByteArray stored = conf.readAll();
        QVERIFY(stored.contains("ws://127.0.0.1"));
        QVERIFY(!stored.contains(kPassword));
        // The address is offered again next time, though no system lists it.
        ConnectionPopup again;
        again.readSettings();
        QCOMPARE(again.port(), address);
        // Typing an address picks the ESP32 type (WebREPL's boards) once.
        auto* type = popup.findChild<QComboBox*>(QStringLiteral("mcCombo"));
        type->setCurrentIndex(0);
        port->clearEditText();
        QTest::keyClicks(port->lineEdit(), QStringLiteral("ws://10.0.0.7"));
        QCOMPARE(type->currentText(), QStringLiteral("ESP32"));
        type->setCurrentIndex(0);
        QTest::keyClicks(port->lineEdit(), QStringLiteral("1"));
        QCOMPARE(type->currentText(), QStringLiteral("STM32"));
        port->setEditText(QStringLiteral("/dev/ttyUSB0"));
        QVERIFY(password->isHidden());
        QVERIFY(popup.password().isEmpty());
    }
}

void TestWebRepl::windowWorkflows()
{
    QFETCH(bool, fast);
    QSettings().setValue(QStringLiteral("MC/FastTransfers"), fast);
    const QByteArray ticking("import time\nwhile True:\n print('tick')\n time.sleep(0.1)\n");
    VirtualBoard board(QStringLiteral("esp32"), served(), {{"main.py", ticking}, {"app/old.py", "x"}});
    QVERIFY(board.isRunning());
    QTemporaryDir pc;
    writeFile(pc.filePath(QStringLiteral("main.py")), "print('new main')\n");
    QByteArray script("total = 0\n");
    for (int i = 0; i < 80; ++i)
        script += "total += " + QByteArray::number(i) + "  # a script longer than the board's input buffer\n";
    script += "print('total is', total)\n";
    const QString local = writeFile(pc.filePath(QStringLiteral("run.py")), script);

    PelkamWindow w;
    w.readSettings();
    w.setupLocalDir(pc.path());
    ScriptedPrompter* prompter = new ScriptedPrompter;
    w.setPrompter(std::unique_ptr<Prompter>(prompter));
    BoardLink::PortSettings settings;
    settings.name = board.path();
    settings.type = MC_ESP32;
    settings.password = QString::fromLatin1(kPassword);
    QVERIFY(w.connectTo(settings));
    QVERIFY(waitFor([&] { return w.mcModel().dirExists(QStringLiteral("app")) && !w.files().busy(); }, 20000));
    auto* syslog = w.findChild<QTextBrowser*>(QStringLiteral("logBrowser"));
    auto* terminal = w.findChild<QTextBrowser*>(QStringLiteral("runtimeLogBrowser"));
    const auto boardFile = [&board](const QString& name) {
        board.dump();
        return board.readFile(name);
    };

    // Sync into /app with its preview and deletion.
    for (int row = 0; row < w.mcModel().rowCount(); ++row)
        if (w.mcModel().path(w.mcModel().index(row, 0)) == QLatin1String("app"))
            w.on_mcFileList_doubleClicked(w.mcModel().index(row, 0));
    QCOMPARE(w.mcModel().dirPath(), QStringLiteral("/app/"));
    QString preview;
    QTimer::singleShot(200, &w, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        dialog->findChild<QCheckBox*>(QStringLiteral("deleteCheck"))->setChecked(true);
        dialog->findChild<QPushButton*>(QStringLiteral("previewButton"))->click();
        preview = dialog->findChild<QPlainTextEdit*>(QStringLiteral("previewView"))->toPlainText();
        dialog->accept();
    });
    w.action(QStringLiteral("actionSync"))->trigger();
    QCOMPARE(preview, QStringLiteral("upload main.py\nupload run.py\ndelete /app/old.py"));
    QCOMPARE(boardFile(QStringLiteral("app/main.py")), QByteArray("print('new main')\n"));
    QCOMPARE(boardFile(QStringLiteral("app/run.py")), script);
    QVERIFY(!w.mcModel().fileExists(QStringLiteral("old.py")));

    // A package.
    const QString upack = pc.filePath(QStringLiteral("p.upack"));
    QCOMPARE(QProcess::execute(QStringLiteral("python3"),
                               {QStringLiteral("-c"),
                                QStringLiteral("import zipfile,sys\nwith zipfile.ZipFile(sys.argv[1],'w') as z: "
                                               "z.writestr('pkg/p.bin', bytes(range(256))*40)"),
                                upack}),
             0);
    prompter->fileName = upack;
    w.action(QStringLiteral("actionUpload_Package"))->trigger();
    QVERIFY(waitFor([&] { return !w.files().busy(); }, 60000));
    QByteArray expected;
    for (int i = 0; i < 40; ++i)
        for (int b = 0; b < 256; ++b)
            expected += static_cast<char>(b);
    QCOMPARE(boardFile(QStringLiteral("pkg/p.bin")), expected); // entries go to absolute paths

    // Run a PC script longer than the input buffer.
    QVERIFY(w.files().execute_script(local));
    QVERIFY2(syslog->toPlainText().contains(QStringLiteral("total is 3160")), qPrintable(syslog->toPlainText()));

    // Remote editing: open, change and save back.
    w.on_mcFileList_doubleClicked(QModelIndex()); // no row: nothing happens
    for (int row = 0; row < w.mcModel().rowCount(); ++row)
        if (w.mcModel().path(w.mcModel().index(row, 0)) == QLatin1String("main.py")) {
            w.findChild<QTableView*>(QStringLiteral("mcFileList"))->setCurrentIndex(w.mcModel().index(row, 0));
            w.on_mcFileList_doubleClicked(w.mcModel().index(row, 0));
        }
    QVERIFY(w.remoteEdit().editor());
    QCOMPARE(w.remoteEdit().editor()->editor()->toPlainText(), QStringLiteral("print('new main')\n"));
    w.remoteEdit().editor()->editor()->setPlainText(QStringLiteral("print('edited')\n"));
    QSignalSpy finished(&w.remoteEdit(), &RemoteEdit::editFinished);
    w.remoteEdit().editor()->findChild<QPushButton*>(QStringLiteral("applyButton"))->click();
    QVERIFY(finished.wait(20000));
    QCOMPARE(boardFile(QStringLiteral("app/main.py")), QByteArray("print('edited')\n"));

    // Launch: the board resets, its server comes back and main.py runs;
    // Abort stops it and the board is listed again.
    w.action(QStringLiteral("actionLaunch"))->trigger();
    QVERIFY2(waitFor([&] { return terminal->toPlainText().count(QStringLiteral("tick")) >= 3; }, 30000),
             qPrintable(syslog->toPlainText()));
    w.action(QStringLiteral("actionAbort"))->trigger();
    QVERIFY(waitFor([&] { return w.mcModel().fileExists(QStringLiteral("main.py")) && !w.files().busy(); }, 20000));
    QVERIFY(w.link().isOpen());
    QCOMPARE(boardFile(QStringLiteral("main.py")), ticking);
    QVERIFY2(!board.log().contains(QStringLiteral("input overflow")), qPrintable(board.log()));
}

// The board's own binary file protocol, which Pelkam does not use: the
// virtual board serves it as MicroPython does, quirks included, for tools
// that are checked against it.
void TestWebRepl::boardFileProtocol()
{
    // Room for about 4 kB: a larger put fails on the board, yet says 0.
    VirtualBoard board(QStringLiteral("esp32"), served() + QStringList{"--flash-size", "8192"});
    QVERIFY(board.isRunning());
    QWebSocket ws;
    QByteArray text;
    QList<QByteArray> binary;
    connect(&ws, &QWebSocket::textMessageReceived, [&](const QString& m) { text += m.toUtf8(); });
    connect(&ws, &QWebSocket::binaryMessageReceived, [&](const QByteArray& m) { binary << m; });
    ws.open(QUrl(board.path()));
    QVERIFY(waitFor([&] { return text.contains("Password: "); }));
    ws.sendTextMessage(QString::fromLatin1(kPassword) + QLatin1Char('\r'));
    QVERIFY(waitFor([&] { return text.contains("WebREPL connected"); }));
    const auto request = [&](char type, const QByteArray& name, quint32 size) {
        QByteArray h("WA");
        h += type;
        h += '\0';
        h += QByteArray(8, '\0');
        for (int i = 0; i < 4; ++i)
            h += static_cast<char>(size >> (8 * i));
        h += static_cast<char>(name.size());
        h += '\0';
        h += name.leftJustified(64, '\0');
        binary.clear();
        // Sent in two pieces, as MicroPython's own client does.
        ws.sendBinaryMessage(h.left(10));
        ws.sendBinaryMessage(h.mid(10));
    };
    const QByteArray ok("WB\0\0", 4);

    request(3, {}, 0);
    QVERIFY(waitFor([&] { return !binary.isEmpty(); }));
    QCOMPARE(binary.first().size(), 3);

    QByteArray data;
    for (int i = 0; i < 1000; ++i)
        data += static_cast<char>(i * 7);
    request(1, "/put.bin", data.size());
    ws.sendBinaryMessage(data.left(600));
    ws.sendBinaryMessage(data.mid(600));
    QVERIFY(waitFor([&] { return binary.size() == 2; }));
    QCOMPARE(binary, (QList<QByteArray>{ok, ok}));
    board.dump();
    QCOMPARE(board.readFile(QStringLiteral("put.bin")), data);

    // Get: one round trip per 256 bytes, a zero length, then the status.
    request(2, "/put.bin", 0);
    QVERIFY(waitFor([&] { return !binary.isEmpty(); }));
    QCOMPARE(binary.takeFirst(), ok);
    QByteArray got;
    for (;;) {
        ws.sendBinaryMessage(QByteArray(1, '\0'));
        QVERIFY(waitFor([&] { return !binary.isEmpty(); }));
        const QByteArray piece = binary.takeFirst();
        const int n = static_cast<unsigned char>(piece.at(0)) | static_cast<unsigned char>(piece.at(1)) << 8;
        QVERIFY(n <= 256 && piece.size() == n + 2);
        if (n == 0)
            break;
        got += piece.mid(2);
    }
    QVERIFY(waitFor([&] { return !binary.isEmpty(); }));
    QCOMPARE(binary.first(), ok);
    QCOMPARE(got, data);

    // A put the flash cannot hold: status 0 twice, and the file is not whole.
    const QByteArray big(20000, 'b');
    request(1, "/big.bin", big.size());
    ws.sendBinaryMessage(big);
    QVERIFY(waitFor([&] { return binary.size() == 2; }));
    QCOMPARE(binary, (QList<QByteArray>{ok, ok}));
    board.dump();
    QVERIFY(board.readFile(QStringLiteral("big.bin")) != big);

    // The REPL still answers on the same socket.
    text.clear();
    ws.sendTextMessage(QStringLiteral("print(6*7)\r"));
    QVERIFY(waitFor([&] { return text.contains("42"); }));

    // A put whose file cannot be opened ends WebREPL, as a raising read does.
    request(1, "/no/such/dir.bin", 10);
    QTest::qWait(500);
    text.clear();
    ws.sendTextMessage(QStringLiteral("print(6*7)\r"));
    QTest::qWait(1000);
    QVERIFY(binary.isEmpty() && !text.contains("42"));
}

void TestWebRepl::uploadsThroughFileProtocol()
{
    // Each byte value, and runs of what the REPL and Telnet treat specially.
    QByteArray data;
    for (int i = 0; i < 256; ++i)
        data += static_cast<char>(i);
    for (const char c : {'\x03', '\x04', '\r', '\n', '\xff'})
        data += QByteArray(300, c);
    {
        BoardSession s(QStringLiteral("esp32"), served() + QStringList{"--flash-size", "16384"},
                       {{"keep.bin", "old"}});
        s.password = QString::fromLatin1(kPassword);
        s.files.setFastTransfers(true);
        QVERIFY(s.open());
        QTemporaryDir pc;
        QVERIFY(s.files.upload(writeFile(pc.filePath(QStringLiteral("a.bin")), data), QStringLiteral("/keep.bin")));
        s.board.dump();
        QCOMPARE(s.board.readFile(QStringLiteral("keep.bin")), data);
        // Too big for the flash: refused before any data, the old file whole.
        const QByteArray big(40000, 'b');
        QVERIFY(!s.files.upload(writeFile(pc.filePath(QStringLiteral("big.bin")), big), QStringLiteral("/keep.bin")));
        QVERIFY2(s.log.join('\n').contains(QStringLiteral("Not enough room on the board")), qPrintable(s.log.join('\n')));
        // A missing folder: said in words, and WebREPL lives on.
        QVERIFY(!s.files.upload(pc.filePath(QStringLiteral("a.bin")), QStringLiteral("/no/a.bin")));
        QVERIFY(!s.board.log().contains(QStringLiteral("deactivating")));
        QVERIFY(s.files.mc_direxists(QStringLiteral("/")));
        s.board.dump();
        QCOMPARE(s.board.readFile(QStringLiteral("keep.bin")), data);
    }
    // A board without the file protocol: the REPL carries the file, and the
    // Syslog says so once for the connection.
    BoardSession s(QStringLiteral("esp32"), served() + QStringList{"--no-file-protocol"});
    s.password = QString::fromLatin1(kPassword);
    s.files.setFastTransfers(true);
    QVERIFY(s.open());
    QTemporaryDir pc;
    const QString local = writeFile(pc.filePath(QStringLiteral("a.bin")), data);
    QVERIFY(s.files.upload(local, QStringLiteral("/a.bin")));
    QVERIFY(s.files.upload(local, QStringLiteral("/b.bin")));
    s.board.dump();
    QCOMPARE(s.board.readFile(QStringLiteral("a.bin")), data);
    QCOMPARE(s.board.readFile(QStringLiteral("b.bin")), data);
    QCOMPARE(s.log.filter(QStringLiteral("file protocol failed")).size(), 1);
    QVERIFY(!QFileInfo::exists(s.board.dump() + QStringLiteral("/a.bin.pelkam-tmp")));
}

QTEST_MAIN(TestWebRepl)
#include "tst_webrepl.moc"
