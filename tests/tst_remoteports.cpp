#include "boardsession.h"
#include "clirun.h"
#include "pelkamwindow.h"
#include "ser2net.h"
#include "virtualboard.h"

#include "board/boardfiles.h"
#include "link/boardlink.h"
#include "link/tcpserialtransport.h"

#include <QAction>
#include <QRandomGenerator>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

// Boards on another machine: rfc2217:// and socket:// ports, against a fake
// Telnet server for the wire and against Debian's ser2net end to end.
class TestRemotePorts : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        isolateSettings(m_dir);
        QVERIFY2(Ser2Net::installed(), "ser2net is missing: scripts/install-deps.sh installs it");
    }

    // Telnet both ways: what the link asks of the port server, and what it
    // makes of what the server sends, however the server's bytes are cut.
    void telnetOnTheWire()
    {
        using T = TelnetComPort;
        const auto b = [](std::initializer_list<unsigned char> list) {
            QByteArray out;
            for (const unsigned char c : list)
                out += static_cast<char>(c);
            return out;
        };
        // From the server: data with a doubled 0xFF, an unasked modem-state
        // report that holds a doubled 0xFF, a NOP, options we take or refuse,
        // and the same refusal asked twice.
        const QByteArray fromServer = QByteArray("ab") + b({T::kIac, T::kIac}) + "c" +
                                      b({T::kIac, T::kSb, T::kComPort, 107, T::kIac, T::kIac, 0x30, T::kIac, T::kSe}) +
                                      "d" + b({T::kIac, 241}) + b({T::kIac, T::kDo, T::kBinary}) +
                                      b({T::kIac, T::kDo, 1}) + b({T::kIac, T::kWill, 5}) + "e" +
                                      b({T::kIac, T::kDo, 1}) + b({T::kIac, T::kWill, T::kComPort});
        const QByteArray data = QByteArray("ab\xff", 3) + "cde";
        const QByteArray answers = b({T::kIac, T::kWont, 1}) + b({T::kIac, T::kDont, 5}) +
                                   b({T::kIac, T::kDo, T::kComPort});
        for (int cut = 0; cut <= fromServer.size(); ++cut) {
            for (int second = cut; second <= fromServer.size(); second += 3) {
                TelnetComPort telnet;
                QByteArray reply;
                QByteArray got = telnet.decode(fromServer.left(cut), &reply);
                got += telnet.decode(fromServer.mid(cut, second - cut), &reply);
                got += telnet.decode(fromServer.mid(second), &reply);
                QVERIFY2(got == data && reply == answers, qPrintable(QStringLiteral("cut at %1, %2").arg(cut).arg(second)));
            }
        }

        // Through the link, against a fake server that records the wire.
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QByteArray wire;
        QTcpSocket* peer = nullptr;
        connect(&server, &QTcpServer::newConnection, this, [&] {
            peer = server.nextPendingConnection();
            connect(peer, &QTcpSocket::readyRead, this, [&] { wire += peer->readAll(); });
        });
        BoardLink link;
        QStringList lines;
        connect(&link, &BoardLink::terminalLine, this, [&](const QString& l) { lines << l; });
        BoardLink::PortSettings settings;
        settings.name = QStringLiteral("rfc2217://127.0.0.1:%1").arg(server.serverPort());
        settings.baud = 57600;
        // Monitor only: nothing of the board's protocol, only the port's.
        QVERIFY(link.connectToBoard(settings, false, false));
        QVERIFY(waitFor([&] { return peer != nullptr; }));
        const QByteArray opening =
            b({T::kIac, T::kWill, T::kBinary, T::kIac, T::kDo, T::kBinary, T::kIac, T::kWill, T::kSga, T::kIac, T::kDo,
               T::kSga, T::kIac, T::kWill, T::kComPort}) +
            T::subnegotiation(T::kSetBaudrate, b({0, 0, 0xe1, 0x00})) + T::subnegotiation(T::kSetDatasize, b({8})) +
            T::subnegotiation(T::kSetParity, b({1})) + T::subnegotiation(T::kSetStopsize, b({1})) +
            T::subnegotiation(T::kSetControl, b({1})) + T::subnegotiation(T::kSetControl, b({8})) +
            T::subnegotiation(T::kSetControl, b({11})) + T::subnegotiation(T::kPurgeData, b({3}));
        QVERIFY(waitFor([&] { return wire.size() >= opening.size(); }));
        QCOMPARE(wire, opening);
        wire.clear();
        QVERIFY(link.write(QByteArray("x\xffy", 3)));
        QVERIFY(waitFor([&] { return wire.size() >= 4; }));
        QCOMPARE(wire, QByteArray("x\xff\xffy", 4));
        wire.clear();
        peer->write(QByteArray("hel") + b({T::kIac, T::kSb, T::kComPort, 107, 0x30, T::kIac, T::kSe}) + "lo\r\n");
        QVERIFY(waitFor([&] { return lines.contains(QStringLiteral("hello")); }));
        // Closing drops RTS, then DTR, as closing a local port drops both.
        link.connectionClosed();
        const QByteArray closing =
            T::subnegotiation(T::kSetControl, b({T::kRtsOff})) + T::subnegotiation(T::kSetControl, b({T::kDtrOff}));
        QVERIFY(waitFor([&] { return wire.size() >= closing.size(); }));
        QCOMPARE(wire, closing);
    }

    // pelkam-cli through ser2net, both port kinds, both transfer modes.
    void cliThroughSer2net()
    {
        // One board per port kind: ser2net lets one accepter at a time hold a device.
        VirtualBoard board(QStringLiteral("esp32"));
        VirtualBoard other(QStringLiteral("esp32"));
        QVERIFY(board.isRunning() && other.isRunning());
        Ser2Net daemon({board.path(), other.path()});
        QVERIFY2(daemon.isRunning(), qPrintable(daemon.log()));
        const QByteArray data = awkwardBytes(20000);
        const QString local = writeFile(m_dir.filePath("awkward.bin"), data);
        QTemporaryDir project;
        writeFile(project.filePath("main.py"), "print('main')\n");
        writeFile(project.filePath("lib/blob.bin"), data.left(3000));
        int round = 0;
        for (const QString& port : {daemon.rfc2217(0), daemon.socket(1)}) {
            for (const char* mode : {"--fast", "--no-fast"}) {
                const QString what = port + ' ' + mode;
                const QStringList args{"--port", port, "--type", "esp32", mode};
                const QString target = QStringLiteral("/r%1.bin").arg(++round);
                CliRun r = runCli(args + QStringList{"put", local, target});
                QVERIFY2(r.code == 0, qPrintable(what + r.err));
                const QString back = m_dir.filePath(QStringLiteral("back%1.bin").arg(round));
                r = runCli(args + QStringList{"get", target, back});
                QVERIFY2(r.code == 0, qPrintable(what + r.err));
                QVERIFY2(readFile(back) == data, qPrintable(what));
                const QString folder = QStringLiteral("/app%1").arg(round);
                r = runCli(args + QStringList{"sync", project.path(), folder});
                QVERIFY2(r.code == 0, qPrintable(what + r.err));
                const QString copy = m_dir.filePath(QStringLiteral("copy%1").arg(round));
                r = runCli(args + QStringList{"backup", folder, copy});
                QVERIFY2(r.code == 0, qPrintable(what + r.err));
                QCOMPARE(files(copy), files(project.path()));
            }
        }
        QCOMPARE(readFile(board.dump() + "/r1.bin"), data);

        // A device someone else holds: the server's own words, not just
        // "closed", and nothing written to the dead socket after them.
        QTcpSocket holder;
        holder.connectToHost(QHostAddress::LocalHost, QUrl(daemon.socket(1)).port());
        QVERIFY(holder.waitForConnected(5000));
        QTest::qWait(300);
        const CliRun busy = runCli({"--port", daemon.rfc2217(1), "--type", "esp32", "ls", "/"});
        QVERIFY2(busy.code != 0 && busy.err.contains("the server said \"Port's device already in use\"") &&
                     !busy.err.contains("QSocketNotifier"),
                 busy.err.constData());
    }

    // Three boards behind one port server, served at once; then the server
    // killed in the middle of an upload: an error, no hang, no half file.
    void manyBoardsAndALostServer()
    {
        VirtualBoard a(QStringLiteral("esp32"), {}, {{"keep.bin", "old"}});
        VirtualBoard b(QStringLiteral("esp32"));
        VirtualBoard c(QStringLiteral("esp32"));
        QVERIFY(a.isRunning() && b.isRunning() && c.isRunning());
        Ser2Net daemon({a.path(), b.path(), c.path()});
        QVERIFY2(daemon.isRunning(), qPrintable(daemon.log()));
        const QByteArray data = awkwardBytes(12000);
        const QString local = writeFile(m_dir.filePath("three.bin"), data);
        const CliRun r = runCli({"--port", daemon.rfc2217(0), "--port", daemon.rfc2217(1), "--port", daemon.socket(2),
                                 "--type", "esp32", "put", local, "/three.bin"});
        QVERIFY2(r.code == 0, r.err.constData());
        for (VirtualBoard* board : {&a, &b, &c})
            QCOMPARE(readFile(board->dump() + "/three.bin"), data);

        const QByteArray big = awkwardBytes(200000);
        const QString bigFile = writeFile(m_dir.filePath("big.bin"), big);
        Background put({"--port", daemon.rfc2217(0), "--type", "esp32", "put", bigFile, "/keep.bin"});
        QVERIFY2(waitFor([&] { return put.err.contains("Start uploading"); }, 30000), put.err.constData());
        QTest::qWait(500);
        daemon.kill();
        QVERIFY2(waitFor([&] { return put.p.state() == QProcess::NotRunning; }, 20000), put.err.constData());
        QCOMPARE(put.p.exitCode(), 1);
        QVERIFY2(put.err.contains("closed"), put.err.constData());
        // The old file stays whole once the board is reached again.
        QVERIFY(daemon.start());
        const CliRun get = runCli({"--port", daemon.rfc2217(0), "--type", "esp32", "get", "/keep.bin",
                                   m_dir.filePath("keep.bin")});
        QVERIFY2(get.code == 0, get.err.constData());
        const QByteArray kept = readFile(m_dir.filePath("keep.bin"));
        QVERIFY2(kept == "old" || kept == big, qPrintable(QString::number(kept.size())));
    }

    // A port server that goes silent (power, network) without closing
    // anything is a dropped port within about ten seconds, idle or not.
    void silentServer()
    {
        BoardSession s(QStringLiteral("esp32"));
        Ser2Net daemon({s.board.path()}, QStringLiteral("127.0.0.2"));
        QVERIFY2(daemon.isRunning(), qPrintable(daemon.log()));
        s.port = daemon.rfc2217();
        QVERIFY(s.open());
        Blackhole cut;
        if (!cut.on())
            QSKIP("this machine cannot route an address into a blackhole (ip route needs CAP_NET_ADMIN)");
        const qint64 took = s.msUntilClosed(20000);
        QVERIFY2(took >= 0 && took < 13000, qPrintable(QString::number(took) + s.log.join('\n')));
        QVERIFY2(s.logged(QStringLiteral("closed")), qPrintable(s.log.join('\n')));
    }

    // The window over rfc2217: a server that goes away is a dropped port,
    // and the reconnect cycle finds the board once the server is back.
    void windowReconnects()
    {
        VirtualBoard board(QStringLiteral("stm32"));
        QVERIFY(board.isRunning());
        Ser2Net daemon({board.path()});
        QVERIFY2(daemon.isRunning(), qPrintable(daemon.log()));
        PelkamWindow w;
        w.action(QStringLiteral("actionAutomatic_Reconnect"))->setChecked(true);
        BoardLink::PortSettings settings;
        settings.name = daemon.rfc2217();
        QSignalSpy listed(&w.files(), &BoardFiles::queryInfoFinished);
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return listed.count() > 0 && !w.files().busy(); }, 20000));
        daemon.stop();
        QVERIFY(waitFor([&] { return !w.link().isOpen(); }, 10000));
        QVERIFY(daemon.start());
        QVERIFY(waitFor([&] { return w.link().isOpen() && listed.count() > 1; }, 20000));
        QVERIFY(w.action(QStringLiteral("actionRefresh"))->isEnabled());
    }
};

QTEST_MAIN(TestRemotePorts)
#include "tst_remoteports.moc"
