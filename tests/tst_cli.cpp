#include "testsupport.h"
#include "virtualboard.h"

#include <QCryptographicHash>
#include <QProcess>
#include <QtTest>

// Drives pelkam-cli as a user would, against the virtual board.
class TestCli : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    struct Run {
        int code;
        QByteArray out;
        QByteArray err;
    };
    Run cli(const QStringList& args)
    {
        QProcess p;
        p.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
        p.start(QString::fromLocal8Bit(qgetenv("PELKAM_CLI")), args);
        p.waitForFinished(120000);
        return {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
    }

private slots:
    void initTestCase()
    {
        isolateSettings(m_dir);
        qputenv("XDG_CONFIG_HOME", m_dir.path().toLocal8Bit());
        QVERIFY(!qgetenv("PELKAM_CLI").isEmpty());
    }

    void usageErrors()
    {
        QCOMPARE(cli({}).code, 2);
        QCOMPARE(cli({"--port", "/x", "frobnicate"}).code, 2);
        QCOMPARE(cli({"--port", "/x", "get", "a"}).code, 2);
        QCOMPARE(cli({"ls", "/"}).code, 2);
        QCOMPARE(cli({"--port", "/x", "--type", "avr", "info"}).code, 2);
        const Run help = cli({"--help"});
        QCOMPARE(help.code, 0);
        for (const char* command : {"info", "ls DIR", "get BOARD_PATH", "put LOCAL_PATH", "rm BOARD_PATH", "rmdir",
                                    "mkdir", "hash", "exec LOCAL_SCRIPT"})
            QVERIFY2(help.out.contains(command), command);
        QCOMPARE(cli({"--port", m_dir.filePath("no-such-device"), "info"}).code, 1);
    }

    void everyCommand()
    {
        VirtualBoard board(QStringLiteral("esp32"));
        QVERIFY(board.isRunning());
        const QStringList port{"--port", board.path(), "--type", "esp32"};
        Run r = cli(port + QStringList{"info"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("sysname: esp32"));

        const QByteArray data = QByteArray("payload\x00\xff", 9).repeated(500);
        QFile local(m_dir.filePath("in.bin"));
        QVERIFY(local.open(QIODevice::WriteOnly));
        local.write(data);
        local.close();
        QCOMPARE(cli(port + QStringList{"mkdir", "/data/sub"}).code, 0);
        QCOMPARE(cli(port + QStringList{"put", local.fileName(), "/data/sub/in.bin"}).code, 0);
        r = cli(port + QStringList{"ls", "/data/sub"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QByteArray("f 4500 in.bin\n"));
        QCOMPARE(cli(port + QStringList{"ls", "/nothere"}).code, 1);
        r = cli(port + QStringList{"hash", "/data/sub/in.bin"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out.trimmed(), QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
        QCOMPARE(cli(port + QStringList{"hash", "/nothere"}).code, 1);
        QCOMPARE(cli(port + QStringList{"get", "/data/sub/in.bin", m_dir.filePath("out.bin")}).code, 0);
        QFile back(m_dir.filePath("out.bin"));
        QVERIFY(back.open(QIODevice::ReadOnly));
        QCOMPARE(back.readAll(), data);
        QCOMPARE(cli(port + QStringList{"get", "/nothere", m_dir.filePath("x.bin")}).code, 1);

        QFile script(m_dir.filePath("s.py"));
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("print(6*7)\n");
        script.close();
        r = cli(port + QStringList{"exec", script.fileName()});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("42"));
        QCOMPARE(cli(port + QStringList{"rmdir", "/data/sub"}).code, 1);
        QCOMPARE(cli(port + QStringList{"rm", "/data/sub/in.bin"}).code, 0);
        QCOMPARE(cli(port + QStringList{"rm", "/data/sub/in.bin"}).code, 1);
        QCOMPARE(cli(port + QStringList{"rmdir", "/data/sub"}).code, 0);
        board.dump();
        QVERIFY(QFileInfo(board.dump() + "/data").isDir());
        QVERIFY(!QFileInfo::exists(board.dump() + "/data/sub"));
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
