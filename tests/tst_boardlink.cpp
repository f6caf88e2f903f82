#include "boardsession.h"
#include "transcriptdevice.h"

#include <QtTest>

#include <csignal>

class TestBoardLink : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_settingsDir;

    struct Scripted {
        TranscriptDevice device;
        BoardLink link;
        QStringList log;
        QStringList terminal;
        Scripted()
        {
            QObject::connect(&link, &BoardLink::logLine, [this](const QString& s) { log << s; });
            QObject::connect(&link, &BoardLink::ownCommandLine, [this](const QString& s) { log << s; });
            QObject::connect(&link, &BoardLink::terminalLine, [this](const QString& s) { terminal << s; });
            BoardLink::PortSettings settings;
            settings.name = device.path();
            link.setPortSettings(settings);
        }
        bool open()
        {
            // Monitor-only: these tests drive the conversation by hand.
            BoardLink::PortSettings settings;
            settings.name = device.path();
            const bool ok = link.connectToBoard(settings, false, false);
            QCoreApplication::processEvents();
            return ok;
        }
    };

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }
    void init() { QSettings().clear(); }

    void replySplitting();
    void terminalLinesCutAnywhere();
    void chunkedWrites();
    void timeoutsAndAbort();
    void closingEndsWaits();

    void connectStopAndMonitor();
    void rawBoardRecoveredAndAbort();
    void launchResetAndReconnect();
    void dfuAndExhaustedAttempts();
    void pulledCableDuringWait();
};

void TestBoardLink::terminalLinesCutAnywhere()
{
    // One Terminal line per board line, wherever a read cuts the output
    // (between CR and LF included).
    Scripted s;
    QVERIFY(s.open());
    const QByteArray output("0\r\n1\r\n\r\n22\r\n");
    for (int cut = 1; cut < output.size(); ++cut) {
        s.terminal.clear();
        s.device.send(output.left(cut));
        QTest::qWait(30);
        s.device.send(output.mid(cut));
        QVERIFY(waitFor([&] { return s.terminal.size() >= 4; }));
        QTest::qWait(30);
        QCOMPARE(s.terminal, QStringList({"0", "1", "", "22"}));
    }
}

void TestBoardLink::replySplitting()
{
    Scripted s;
    QVERIFY(s.open());
    QSignalSpy eods(&s.link, &BoardLink::eod);
    // Friendly REPL: lines at "\r\n", the prompt without a line end ends the reply.
    s.link.setState(MC_REPL);
    s.device.addStep(QByteArray("x\r\n"), QByteArray("x\r\n42\r\n>>> "));
    QVERIFY(s.link.tranceive("x\r\n", 2000));
    QCOMPARE(eods.count(), 1);
    QCOMPARE(s.link.takeReply(), QByteArray("x"));
    QCOMPARE(s.link.takeReply(), QByteArray("42"));
    QCOMPARE(s.link.takeReply(), QByteArray(">>> "));
    QVERIFY(!s.link.hasReply());

    // The second prompt of a board that takes LF as Enter arrives late: it
    // must not end the next command, which waits for its own echo.
    s.device.send(QByteArray("\r\n>>"));
    QVERIFY(waitFor([&] { return !s.link.pendingBuffer().isEmpty(); }));
    s.device.addStep(QByteArray("y\r\n"), QByteArray("> y\r\n7\r\n>>> \r\n>>> "));
    QVERIFY(s.link.replCommand("y", 2000));
    QCOMPARE(s.link.takeReply(), QByteArray(">>> y"));
    QCOMPARE(s.link.takeReply(), QByteArray("7"));
    QCOMPARE(s.link.takeReply(), QByteArray(">>> "));
    // Entering the raw REPL: a stale ">>> " holds three ">", none ends it.
    QTest::qWait(50);
    s.link.processQueue();
    s.device.addStep(QByteArray("\x01"), QByteArray(">>> \r\nraw REPL; CTRL-B to exit\r\n>"));
    QVERIFY(s.link.to_raw());
    QTest::qWait(50);
    QCOMPARE(s.link.takeReply(), QByteArray(" \r\nraw REPL; CTRL-B to exit\r\n"));
    QVERIFY(!s.link.hasReply());

    // Raw REPL: every ">" ends a reply, also one inside a payload.
    eods.clear();
    s.device.addStep(QByteArray("y"), QByteArray("OKa>b>"));
    QVERIFY(s.link.tranceive("y", 2000));
    QVERIFY(waitFor([&] { return eods.count() == 2; }));
    QCOMPARE(s.link.takeReply(), QByteArray("OKa"));
    QCOMPARE(s.link.takeReply(), QByteArray("b"));

    // Queued lines go to the Syslog in REPL states, without the prompt, cut at a zero byte.
    s.link.setState(MC_REPL);
    s.device.send(QByteArray("one\0hidden\r\n>>> \r\n", 18));
    QVERIFY(waitFor([&] { return s.link.hasReply(); }));
    s.link.processQueue();
    QCOMPARE(s.log.last(), QStringLiteral("one"));
    QVERIFY(!s.log.contains(QStringLiteral(">>> ")));

    // Unknown state: lines go straight to the Terminal.
    s.link.setState(MC_UNKNOWN);
    s.device.send("boot message\r\n");
    QVERIFY(waitFor([&] { return s.terminal.contains(QStringLiteral("boot message")); }));

    // Leaving the running state says so in red.
    s.link.setState(MC_RUNNING);
    s.link.setState(MC_UNKNOWN);
    QCOMPARE(s.terminal.last(), QStringLiteral("<font color=red>Execution aborted</font>"));
}

void TestBoardLink::chunkedWrites()
{
    Scripted s;
    QVERIFY(s.open());
    const QByteArray data(1100, 'a');
    s.link.setTransferSize(31);
    QVERIFY(s.link.write(data));
    QVERIFY(waitFor([&] { return s.device.received().size() == data.size(); }));
    QCOMPARE(s.device.writeSizes(), QList<int>({512, 512, 76}));
    s.device.clearReceived();
    s.link.setTransferSize(32);
    QVERIFY(s.link.write(QByteArray(70, 'b')));
    QVERIFY(waitFor([&] { return s.device.received().size() == 70; }));
    QCOMPARE(s.device.writeSizes(), QList<int>({32, 32, 6}));
}

void TestBoardLink::timeoutsAndAbort()
{
    Scripted s;
    QVERIFY(s.open());
    s.link.setState(MC_RAW);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!s.link.tranceive("nothing", 300));
    QVERIFY(timer.elapsed() >= 250);
    // to_repl from the raw REPL sends Ctrl-B alone; in REPL it sends nothing.
    s.device.clearReceived();
    s.device.addStep(QByteArray("\x02"), QByteArray("\r\nMicroPython\r\n>>> "));
    QVERIFY(s.link.to_repl());
    QCOMPARE(s.device.received(), QByteArray("\x02"));
    s.device.clearReceived();
    QVERIFY(s.link.to_repl());
    QCOMPARE(s.device.received(), QByteArray());
    // to_raw from the unknown state: Ctrl-B Ctrl-C, then Ctrl-A.
    s.link.setState(MC_UNKNOWN);
    s.device.clearReceived();
    s.device.addStep(QByteArray("\x02\x03"), QByteArray(">>> "));
    s.device.addStep(QByteArray("\x01"), QByteArray("\r\nraw REPL; CTRL-B to exit\r\n>"));
    QVERIFY2(s.link.to_raw(),
             qPrintable(QString::fromLatin1(s.device.received().toHex()) + s.log.join(QLatin1Char('|'))));
    QCOMPARE(s.device.received(), QByteArray("\x02\x03\x01"));
    QVERIFY(s.log.contains(QStringLiteral("RAW REPL initialized")));
    // A board that does not answer: the old state comes back.
    s.link.setState(MC_UNKNOWN);
    QVERIFY(!s.link.to_repl());
    QCOMPARE(s.link.state(), MC_UNKNOWN);
    QVERIFY(!s.link.abort());
    QCOMPARE(s.log.last(), QStringLiteral("Abort failed"));
}

void TestBoardLink::closingEndsWaits()
{
    Scripted s;
    QVERIFY(s.open());
    s.link.setState(MC_RAW);
    QTimer::singleShot(200, [&] { s.link.connectionClosed(); });
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!s.link.tranceive("x", 10000));
    QVERIFY(timer.elapsed() < 3000);
    QVERIFY(!s.link.isOpen());
    QCOMPARE(s.link.state(), MC_UNKNOWN);
    QVERIFY(!s.link.qDelay(5000));
    QVERIFY(!s.link.write("x"));
}

void TestBoardLink::connectStopAndMonitor()
{
    const QMap<QString, QByteArray> seed{
        {"main.py", "import time\nn=0\nwhile True:\n print('tick', n)\n n+=1\n time.sleep(0.05)\n"}};
    for (const QString& flavour : {QStringLiteral("stm32"), QStringLiteral("esp32")}) {
        BoardSession s(flavour, {}, seed);
        QVERIFY(s.board.isRunning());
        // Monitor Only: the program keeps running, its output goes to the Terminal.
        QVERIFY(s.link.connectToBoard(s.settings(), false, false));
        QVERIFY(waitFor([&] { return s.terminal.filter(QStringLiteral("tick")).size() >= 3; }));
        QCOMPARE(s.terminal.filter(QStringLiteral("Opened connection to")).size(), 1);
        QCOMPARE(s.link.state(), MC_UNKNOWN);
        // Draining a board that never falls silent still ends.
        s.link.setState(MC_REPL);
        QElapsedTimer timer;
        timer.start();
        s.link.drain();
        QVERIFY(timer.elapsed() < 5000);
        s.link.setState(MC_UNKNOWN);
        s.link.connectionClosed();
        QVERIFY(!s.logged(QStringLiteral("Reconnecting")));
        // Connecting normally stops the program and lists the board.
        s.log.clear();
        QVERIFY(s.open());
        QCOMPARE(s.link.state(), MC_REPL);
        QVERIFY(s.logged(QStringLiteral("REPL initialized")));
        QVERIFY(s.model.fileExists(QStringLiteral("main.py")));
        const int ticks = s.terminal.filter(QStringLiteral("tick")).size();
        QTest::qWait(300);
        QCOMPARE(s.terminal.filter(QStringLiteral("tick")).size(), ticks);
    }
}

void TestBoardLink::rawBoardRecoveredAndAbort()
{
    BoardSession s;
    QVERIFY(s.open());
    QVERIFY(s.link.to_raw());
    // Forget the board's state, as after a restart of the program.
    s.link.connectionClosed();
    s.log.clear();
    s.infoDone = false;
    QVERIFY(s.open());
    QVERIFY(s.logged(QStringLiteral("REPL initialized")));
    QCOMPARE(s.link.state(), MC_REPL);

    // Abort while the REPL is driven interrupts and lists the board again.
    s.infoDone = false;
    QVERIFY(s.link.abort());
    QVERIFY(s.logged(QStringLiteral("Stopped")));
    QVERIFY(waitFor([&] { return s.infoDone; }));
    QCOMPARE(s.link.state(), MC_REPL);

    // Launch runs main.py after a reset; Abort stops it and the board is listed again.
    QVERIFY(s.link.tranceive(
        "f=open('main.py','w');f.write('import time\\nwhile 1:\\n print(12345)\\n time.sleep(0.1)\\n');"
        "f.close()\r\n",
        3000));
    s.link.drain();
    s.log.clear();
    s.link.launch();
    QCOMPARE(s.link.state(), MC_RUNNING);
    QVERIFY(s.logged(QStringLiteral("Launching...")));
    QVERIFY(waitFor([&] { return s.logged(QStringLiteral("Connection closed")); }));
    QVERIFY(waitFor([&] { return s.link.isOpen(); }, 15000));
    QVERIFY(waitFor([&] { return s.terminal.filter(QStringLiteral("12345")).size() >= 2; }, 15000));
    QCOMPARE(s.link.state(), MC_UNKNOWN);
    s.infoDone = false;
    QVERIFY(s.link.abort());
    QVERIFY(waitFor([&] { return s.infoDone; }));
    QCOMPARE(s.link.state(), MC_REPL);
    QVERIFY(s.model.fileExists(QStringLiteral("main.py")));
}

void TestBoardLink::launchResetAndReconnect()
{
    BoardSession s(QStringLiteral("esp32"));
    QVERIFY(s.open());
    // Reset MC resets once after connecting, then the option is off.
    QSignalSpy consumed(&s.link, &BoardLink::resetMcConsumed);
    s.link.connectionClosed();
    s.link.setResetMcOption(true);
    s.log.clear();
    s.infoDone = false;
    QVERIFY(s.link.connectToBoard(s.settings(), false, true));
    QVERIFY(waitFor([&] { return s.infoDone; }, 20000));
    QCOMPARE(consumed.count(), 1);
    QVERIFY(!s.link.resetMcOption());
    QVERIFY2(s.logged(QStringLiteral("Connection deferred...")) || s.logged(QStringLiteral("MC initialization...")),
             qPrintable(s.log.join('\n')));

    // The Reset action: the port drops and the same board comes back.
    s.log.clear();
    s.infoDone = false;
    s.link.reset();
    QVERIFY(waitFor([&] { return s.infoDone; }, 20000));
    const int closed = s.log.indexOf(QStringLiteral("Connection closed"));
    const int reconnecting = s.log.indexOf(QStringLiteral("Reconnecting.... Please wait."));
    const int attempt = s.log.indexOf(QRegularExpression(QStringLiteral("^Reconnect attempt 1 of 10$")));
    const int connected = s.log.indexOf(QRegularExpression(QStringLiteral("^Connected to /.*")));
    QVERIFY2(closed >= 0 && closed < reconnecting && reconnecting < attempt && attempt < connected,
             qPrintable(s.log.join('\n')));
    QVERIFY(s.link.isOpen());
    QCOMPARE(s.link.reconnectAttempts(), 0);
    // A user disconnect never reconnects.
    s.log.clear();
    s.link.connectionClosed();
    QTest::qWait(700);
    QVERIFY(!s.logged(QStringLiteral("Reconnect")));
}

void TestBoardLink::dfuAndExhaustedAttempts()
{
    {
        BoardSession s;
        QVERIFY(s.open(true));
        s.link.dfu();
        QVERIFY(waitFor([&] { return !s.link.isOpen(); }));
        QTest::qWait(800);
        QVERIFY(!s.logged(QStringLiteral("Reconnect attempt")));
    }
    {
        BoardSession s(QStringLiteral("stm32"), {"--reset-delay", "600000"});
        QVERIFY(s.open(true));
        s.log.clear();
        // Kill the board's port for good: ten attempts, the interval growing.
        s.link.reset();
        QVERIFY(waitFor([&] { return s.logged(QStringLiteral("Reconnection attempts exhausted")); }, 60000));
        QVERIFY(s.logged(QStringLiteral("Reconnect attempt 10 of 10")));
        QVERIFY(!s.logged(QStringLiteral("Reconnect attempt 11 of 10")));
    }
}

void TestBoardLink::pulledCableDuringWait()
{
    BoardSession s(QStringLiteral("stm32"), {"--arm-on", "_upload('", "--drop-rx", "5000"});
    QVERIFY(s.open());
    QTemporaryDir dir;
    const QString big = writeFile(dir.filePath(QStringLiteral("big.bin")), QByteArray(50000, 'z'));
    QVERIFY(!s.files.upload(big, QStringLiteral("/flash/big.bin")));
    QVERIFY(!s.link.isOpen());
    QVERIFY(s.logged(QStringLiteral("Fatal communication error")) || s.logged(QStringLiteral("Connection closed")));
    // Everything afterwards fails cleanly instead of touching the closed port.
    QVERIFY(!s.files.upload(big, QStringLiteral("/flash/big.bin")));
    QVERIFY(s.files.mc_lsdir(QStringLiteral("/flash"), MC_LIST_FILES).isEmpty());
    QVERIFY(!s.files.download(QStringLiteral("/flash/x"), dir.filePath(QStringLiteral("x"))));
}

QTEST_GUILESS_MAIN(TestBoardLink)
#include "tst_boardlink.moc"
