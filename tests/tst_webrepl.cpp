#include "boardsession.h"
#include "connectionpopup.h"
#include "pelkamwindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QToolButton>
#include <QtTest>

// The board over MicroPython's WebREPL: the virtual board serves its console
// on a websocket with the password prompt, one client at a time and a small
// input buffer that drops what overflows it.
class TestWebRepl : public QObject {
    Q_OBJECT
    QTemporaryDir m_settingsDir;
    // Longer than the 9 characters a board compares.
    static constexpr char kPassword[] = "wifi-board-1";
    static QStringList served() { return {"--webrepl", "0", "--password", kPassword}; }

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }
    void init() { QSettings().clear(); }

    void loginAndOneClient();
    void transfers_data();
    void transfers();
    void softResetAndVanishing();
    void popupAndWindow();
};

void TestWebRepl::loginAndOneClient()
{
    BoardSession s(QStringLiteral("esp32"), served());
    QVERIFY(s.board.isRunning());
    QVERIFY(s.board.path().startsWith(QLatin1String("ws://127.0.0.1:")));

    // A wrong password: one line, no retries, and the password in no line.
    s.password = QStringLiteral("wrong-pass");
    QVERIFY(!s.link.connectToBoard(s.settings(), true, true));
    QTest::qWait(700);
    QVERIFY2(s.logged(QStringLiteral("the board refused the WebREPL password")), qPrintable(s.log.join('\n')));
    QVERIFY(!s.logged(QStringLiteral("Reconnect attempt")));
    QVERIFY(!(s.log + s.terminal).join('\n').contains(s.password));
    s.password.clear();
    QVERIFY(!s.link.connectToBoard(s.settings(), false, true));
    QVERIFY(s.logged(QStringLiteral("none was given")));

    // Only the first nine characters count, as on the board.
    s.password = QString::fromLatin1(kPassword).left(9) + QStringLiteral("xyz");
    QVERIFY(s.open());
    QVERIFY(!(s.log + s.terminal).join('\n').contains(s.password));

    // A second client is turned away at once; the first goes on working.
    BoardLink second;
    QStringList secondLog;
    connect(&second, &BoardLink::logLine, [&](const QString& line) { secondLog << line; });
    QVERIFY(!second.connectToBoard(s.settings(), true, true));
    QTest::qWait(700);
    QVERIFY2(secondLog.join('\n').contains(QStringLiteral("The board accepts one WebREPL client at a time")),
             qPrintable(secondLog.join('\n')));
    QVERIFY(!secondLog.join('\n').contains(QStringLiteral("Reconnect attempt")));
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
    BoardSession s(QStringLiteral("esp32"), served());
    s.password = QString::fromLatin1(kPassword);
    s.files.setFastTransfers(fast);
    QVERIFY(s.open());
    QTemporaryDir pc;
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
    QVERIFY(s.files.remove(QStringLiteral("/sub") + name, false));
    QVERIFY(!QFileInfo::exists(s.board.dump() + QStringLiteral("/sub") + name));
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

void TestWebRepl::popupAndWindow()
{
    VirtualBoard board(QStringLiteral("esp32"), served(), {{"main.py", "print('hi')\n"}});
    QVERIFY(board.isRunning());
    {
        // A ws:// address asks for a password instead of a baud rate.
        ConnectionPopup popup;
        popup.readSettings();
        auto* port = popup.findChild<QComboBox*>(QStringLiteral("portsCombo"));
        auto* password = popup.findChild<QLineEdit*>(QStringLiteral("passwordEdit"));
        auto* apply = popup.findChild<QToolButton*>(QStringLiteral("applyButton"));
        QVERIFY(port && password && apply);
        port->setEditText(board.path());
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
        port->setEditText(QStringLiteral("/dev/ttyUSB0"));
        QVERIFY(password->isHidden());
        QVERIFY(popup.password().isEmpty());
    }
    // The real window lists the board over WebREPL.
    PelkamWindow w;
    w.readSettings();
    BoardLink::PortSettings settings;
    settings.name = board.path();
    settings.type = MC_ESP32;
    settings.password = QString::fromLatin1(kPassword);
    QSignalSpy listed(&w.files(), &BoardFiles::queryInfoFinished);
    QVERIFY(w.connectTo(settings));
    QVERIFY(waitFor([&] { return listed.count() > 0 && !w.files().busy(); }, 20000));
    bool found = false;
    for (int r = 0; r < w.files().model()->rowCount(); ++r)
        found = found || w.files().model()->data(w.files().model()->index(r, 0)).toString() == "main.py";
    QVERIFY(found);
}

QTEST_MAIN(TestWebRepl)
#include "tst_webrepl.moc"
