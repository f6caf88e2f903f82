#include "clirun.h"
#include "testsupport.h"
#include "virtualboard.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QSet>
#include <QTcpServer>
#include <QtTest>

#include <csignal>

// Drives pelkam-cli as a user would, against the virtual board.
class TestCli : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    static constexpr char kPassword[] = "s3cret-pw";
    static QStringList webRepl() { return {"--webrepl", "0", "--password", kPassword}; }

    static constexpr int kHung = CliRun::kHung;
    static constexpr int kCrashed = CliRun::kCrashed;
    using Run = CliRun;
    static Run cli(const QStringList& args) { return runCli(args); }

private slots:
    void initTestCase()
    {
        isolateSettings(m_dir);
        qputenv("XDG_CONFIG_HOME", m_dir.path().toLocal8Bit());
        // WebREPL boards below are served with this password.
        qputenv("PELKAM_WEBREPL_PASSWORD", kPassword);
        QVERIFY(!qgetenv("PELKAM_CLI").isEmpty());
    }

    void usageErrors()
    {
        QCOMPARE(cli({}).code, 2);
        QCOMPARE(cli({"--port", "/x", "frobnicate"}).code, 2);
        QCOMPARE(cli({"--port", "/x", "get", "a"}).code, 2);
        QCOMPARE(cli({"ls", "/"}).code, 2);
        QCOMPARE(cli({"--port", "/x", "--type", "avr", "info"}).code, 2);
        // A network port without its port number is refused before anything is tried.
        const Run noPort = cli({"--port", "rfc2217://rack1", "info"});
        QVERIFY2(noPort.code == 2 && noPort.err.contains("rfc2217://HOST:PORT"), noPort.err.constData());
        const Run help = cli({"--help"});
        QCOMPARE(help.code, 0);
        for (const char* command : {"info", "ls DIR", "get BOARD_PATH", "put LOCAL_PATH", "rm BOARD_PATH", "rmdir",
                                    "mkdir", "hash", "exec LOCAL_SCRIPT", "install PACKAGE", "sync LOCAL_DIR BOARD_DIR",
                                    "--dry-run", "backup BOARD_DIR LOCAL_DIR", "--force"})
            QVERIFY2(help.out.contains(command), command);
        const Run missing = cli({"--port", m_dir.filePath("no-such-device"), "info"});
        QCOMPARE(missing.code, 1);
        QCOMPARE(missing.err.count("Cannot connect to"), 1);
    }

    void everyCommand_data()
    {
        QTest::addColumn<QStringList>("boardArgs");
        QTest::newRow("serial") << QStringList();
        QTest::newRow("webrepl") << webRepl();
    }

    void everyCommand()
    {
        QFETCH(QStringList, boardArgs);
        VirtualBoard board(QStringLiteral("esp32"), boardArgs);
        QVERIFY(board.isRunning());
        const QStringList port{"--port", board.path(), "--type", "esp32"};
        Run r = cli(port + QStringList{"info"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("sysname: esp32"));

        const QByteArray data = QByteArray("payload\x00\xff", 9).repeated(500);
        const QString local = writeFile(m_dir.filePath("in.bin"), data);
        QCOMPARE(cli(port + QStringList{"mkdir", "/data/sub"}).code, 0);
        // Into a board folder, as cp does.
        QCOMPARE(cli(port + QStringList{"put", local, "/data/sub"}).code, 0);
        r = cli(port + QStringList{"ls", "/data/sub"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QByteArray("f 4500 in.bin\n"));
        // --quiet: results only, the log once something fails.
        r = cli(port + QStringList{"-q", "ls", "/data/sub"});
        QVERIFY2(r.code == 0 && r.out == "f 4500 in.bin\n" && r.err.isEmpty(), r.err.constData());
        r = cli(port + QStringList{"--quiet", "ls", "/nothere"});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("No such board folder") && r.err.contains("REPL initialized"), r.err.constData());
        r = cli(port + QStringList{"hash", "/data/sub/in.bin"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out.trimmed(), QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
        QCOMPARE(cli(port + QStringList{"hash", "/nothere"}).code, 1);
        QCOMPARE(cli(port + QStringList{"get", "/data/sub/in.bin", m_dir.filePath("out.bin")}).code, 0);
        QCOMPARE(readFile(m_dir.filePath("out.bin")), data);
        QVERIFY(QDir(m_dir.path()).mkpath("down"));
        QCOMPARE(cli(port + QStringList{"get", "/data/sub/in.bin", m_dir.filePath("down")}).code, 0);
        QCOMPARE(readFile(m_dir.filePath("down/in.bin")), data);
        QCOMPARE(cli(port + QStringList{"get", "/nothere", m_dir.filePath("x.bin")}).code, 1);

        // A script's output as it was printed: a ">" of its own, UTF-8, no last line end.
        r = cli(port + QStringList{"exec", writeFile(m_dir.filePath("s.py"),
                                                     "print(6*7, 'a>')\nprint('h\\u00e4llo', end='')\n")});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QByteArray("42 a>\nh\xc3\xa4llo"));
        // An exception: its traceback on stderr, whole, and exit status 1.
        r = cli(port + QStringList{"exec", writeFile(m_dir.filePath("e.py"), "print(1)\nraise ValueError('<bad>')\n")});
        QCOMPARE(r.code, 1);
        QCOMPARE(r.out, QByteArray("1\n"));
        QVERIFY2(r.err.contains("File \"<stdin>\", line 2") && r.err.contains("ValueError: <bad>"), r.err.constData());
        QCOMPARE(cli(port + QStringList{"rmdir", "/data/sub"}).code, 1);
        QCOMPARE(cli(port + QStringList{"rm", "/data/sub/in.bin"}).code, 0);
        QCOMPARE(cli(port + QStringList{"rm", "/data/sub/in.bin"}).code, 1);
        QCOMPARE(cli(port + QStringList{"rmdir", "/data/sub"}).code, 0);
        board.dump();
        QVERIFY(QFileInfo(board.dump() + "/data").isDir());
        QVERIFY(!QFileInfo::exists(board.dump() + "/data/sub"));
    }

    void installAndSync();
    void mirrorAndIgnore();
    void watch();
    void quickCommands();
    void manyBoards();
    void backupAndRestore_data();
    void backupAndRestore();
    void backupFaults();
    void stopSignals();
    void watchNeverLoses();
    void linksAndMounts();
    void severalBoardsWriteApart();
    void wordsAndEdges();
    void passwordsRefused();
};

namespace {
QMap<QString, QByteArray> seedFiles()
{
    QByteArray big(100 * 1024, Qt::Uninitialized);
    for (int i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>((i * 7919) >> 3);
    return {{"main.py", "print('main')\n"},
            {"lib/deep/x.py", "x = 1\n"},
            {"lib/it's.py", "quote\n"},
            {"my file.txt", "space\n"},
            {QString::fromUtf8("\xd0\xbf\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82.txt"), "non-ascii\n"},
            {"zero.txt", ""},
            {"data/big.bin", big}};
}
} // namespace

void TestCli::installAndSync()
{
    VirtualBoard board(QStringLiteral("esp32"));
    QVERIFY(board.isRunning());
    const QStringList port{"--port", board.path(), "--type", "esp32"};
    const QString ufw = m_dir.filePath("fw.ufw");
    const QString corrupt = m_dir.filePath("corrupt.ufw");
    QCOMPARE(QProcess::execute(
                 "python3", {"-c",
                             "import tarfile, io, sys\n"
                             "def make(path, names):\n"
                             " with tarfile.open(path, 'w', format=tarfile.PAX_FORMAT, pax_headers={'board': 'esp32', "
                             "'mod': 'x'}) as t:\n"
                             "  for n in names:\n"
                             "   i = tarfile.TarInfo(n); i.size = len(n); t.addfile(i, io.BytesIO(n.encode()))\n"
                             "make(sys.argv[1], ['/fw/a.py', '/fw/b.py'])\n"
                             "make(sys.argv[2], ['/c/1.py', '/c/2.py'])\n"
                             "d = bytearray(open(sys.argv[2], 'rb').read()); d[2048] ^= 1\n"
                             "open(sys.argv[2], 'wb').write(d)\n",
                             ufw, corrupt}),
             0);
    Run r = cli(port + QStringList{"install", ufw});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QByteArray("/fw/a.py\n/fw/b.py\n"));
    QVERIFY(r.err.contains("UFW firmware package is for esp32/x ()"));
    r = cli(port + QStringList{"install", corrupt});
    QCOMPARE(r.code, 1);
    QCOMPARE(r.out, QByteArray("/c/1.py\n"));
    QCOMPARE(cli(port + QStringList{"install", m_dir.filePath("x.zip")}).code, 2);

    QCOMPARE(cli(port + QStringList{"sync", m_dir.filePath("nowhere"), "/app"}).code, 2);
    // A name the board cannot take: both runs list it and upload nothing.
    QTemporaryDir project;
    for (const char* name : {"main.py", "lib/util.py", "a_new.py", "b:bad.py"})
        writeFile(project.filePath(QString::fromLatin1(name)), "x");
    for (const QStringList& extra : {QStringList{"--dry-run"}, QStringList{}}) {
        r = cli(port + QStringList{"sync", project.path(), "/app"} + extra);
        QCOMPARE(r.code, 1);
        QCOMPARE(r.out, QByteArray());
        QVERIFY(r.err.contains("forbidden character : in /app/b:bad.py"));
    }
    QVERIFY(!QFileInfo::exists(board.dump() + "/app"));
}

void TestCli::mirrorAndIgnore()
{
    VirtualBoard board(
        QStringLiteral("esp32"), {},
        {{"app/main.py", "old"}, {"app/old.py", "x"}, {"app/olddir/sub/y.py", "y"}, {"app/secrets/key.txt", "k"}});
    QVERIFY(board.isRunning());
    QTemporaryDir project;
    const QMap<QString, QByteArray> tree{{"main.py", "m"},
                                         {"lib/u.py", "u"},
                                         {"__pycache__/c.pyc", "c"},
                                         {"secrets/key.txt", "local key"},
                                         {"secrets/public.txt", "pub"},
                                         {".pelkamignore", "# caches and keys stay here\n__pycache__/\n/secrets/*\n"
                                                           "!/secrets/public.txt\n"}};
    for (auto it = tree.cbegin(); it != tree.cend(); ++it)
        writeFile(project.filePath(it.key()), it.value());
    const auto report = [](const char* verb) {
        QByteArray text("lib/u.py\nsecrets/public.txt\nmain.py\n");
        for (const char* path : {"/app/old.py", "/app/olddir/sub/y.py", "/app/olddir/sub", "/app/olddir"})
            text += QByteArray(verb) + ' ' + path + '\n';
        return text;
    };
    const QStringList sync{"--port", board.path(), "--type", "esp32", "sync", project.path(), "/app", "--delete"};
    Run r = cli(sync + QStringList{"--dry-run"});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, report("would delete"));
    QCOMPARE(files(board.dump() + "/app").value("old.py"), QByteArray("x"));
    r = cli(sync);
    QVERIFY2(r.code == 0, r.err.constData());
    QCOMPARE(r.out, report("deleted"));
    QCOMPARE(cli(sync).out, QByteArray());
    const QMap<QString, QByteArray> expected{
        {"main.py", "m"}, {"lib/u.py", "u"}, {"secrets/key.txt", "k"}, {"secrets/public.txt", "pub"}};
    QCOMPARE(files(board.dump() + "/app"), expected);
    QVERIFY(!QFileInfo::exists(board.dump() + "/app/olddir"));
}

void TestCli::watch()
{
    VirtualBoard board(QStringLiteral("esp32"), {"--reset-delay", "1500"});
    QVERIFY(board.isRunning());
    QTemporaryDir project;
    writeFile(project.filePath("main.py"), "v1");
    QProcess p;
    QByteArray out, err;
    connect(&p, &QProcess::readyReadStandardOutput, [&] { out += p.readAllStandardOutput(); });
    connect(&p, &QProcess::readyReadStandardError, [&] { err += p.readAllStandardError(); });
    p.start(QString::fromLocal8Bit(qgetenv("PELKAM_CLI")),
            {"--port", board.path(), "--type", "esp32", "watch", project.path(), "/app"});
    QVERIFY2(waitFor([&] { return err.contains("Watching"); }, 60000), err.constData());
    QCOMPARE(out, QByteArray("main.py\n"));
    // An editor that saves by writing a temporary and renaming it over the file.
    writeFile(project.filePath("lib/.new.py.swp"), "new");
    QVERIFY(QFile::rename(project.filePath("lib/.new.py.swp"), project.filePath("lib/new.py")));
    QVERIFY2(waitFor([&] { return out.contains("lib/new.py\n"); }, 30000), err.constData());
    // Saved while the board is away: uploaded once it is back.
    board.unplug();
    QVERIFY(waitFor([&] { return err.contains("dropped off"); }, 10000));
    writeFile(project.filePath("main.py"), "v2");
    QVERIFY2(waitFor([&] { return out.count("main.py\n") == 2; }, 60000), err.constData());
    ::kill(static_cast<pid_t>(p.processId()), SIGTERM);
    QVERIFY(p.waitForFinished(20000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 143);
    QCOMPARE(files(board.dump() + "/app"), (QMap<QString, QByteArray>{{"main.py", "v2"}, {"lib/new.py", "new"}}));
}

// ls and exec go straight into the raw REPL with fast transfers: they must
// still stop a program that prints without end, list exactly what the full
// way lists, and leave our temporaries to the full way to tidy.
void TestCli::quickCommands()
{
    VirtualBoard board(QStringLiteral("esp32"), {},
                       {{"main.py", "import time\nwhile 1:\n print('tick')\n time.sleep(0.01)\n"},
                        {"lib/a.py", "aa"},
                        {"lib/b.py.pelkam-tmp", "half"},
                        {"lib/sub/", {}}});
    QVERIFY(board.isRunning());
    const QStringList port{"--port", board.path()};
    const QString script = writeFile(m_dir.filePath("q.py"), "print(6*7)\n");
    for (int round = 0; round < 2; ++round) {
        Run r = cli(port + QStringList{"exec", script});
        QVERIFY2(r.code == 0 && r.out == "42\n", r.err.constData());
        r = cli(port + QStringList{"ls", "/"});
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(r.out, QByteArray("d lib\nf 54 main.py\n"));
        r = cli(port + QStringList{"ls", "/lib"});
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(r.out, QByteArray("d sub\nf 2 a.py\n"));
        QCOMPARE(cli(port + QStringList{"--no-fast", "ls", "/lib"}).out, QByteArray("d sub\nf 2 a.py\n"));
        QCOMPARE(cli(port + QStringList{"ls", "/none"}).code, 1);
        // The program runs again from the next start: a reset between rounds.
        board.hardReset();
    }
    board.dump();
    QVERIFY(!QFileInfo::exists(board.dump() + "/lib/b.py.pelkam-tmp"));
}

void TestCli::manyBoards()
{
    const QByteArray big = QByteArray("0123456789abcdef").repeated(1500);
    QTemporaryDir project;
    writeFile(project.filePath("big.bin"), big);
    writeFile(project.filePath("main.py"), "m");
    VirtualBoard a(QStringLiteral("esp32")), b(QStringLiteral("esp32"));
    VirtualBoard pulled(QStringLiteral("esp32"), {"--arm-on", "_upload(", "--drop-rx", "8000"});
    QVERIFY(a.isRunning() && b.isRunning() && pulled.isRunning());
    // The default mode, whose upload call the fault waits for.
    const Run r = cli({"--port", a.path(), "--port", pulled.path(), "--port", b.path(), "--type", "esp32", "--no-fast",
                       "sync", project.path(), "/"});
    QCOMPARE(r.code, 1);
    for (VirtualBoard* board : {&a, &b}) {
        for (const char* name : {"\tbig.bin\n", "\tmain.py\n"})
            QVERIFY2(r.out.contains(board->path().toUtf8() + name), r.out.constData());
        QCOMPARE(files(board->dump()).value("big.bin"), big);
    }
    QVERIFY(!r.out.contains((pulled.path() + "\tmain.py").toUtf8()));
    QVERIFY(r.err.contains((pulled.path() + ": failed (exit 1)").toUtf8()));
    QVERIFY(r.err.contains("2 of 3 boards succeeded"));
}

void TestCli::backupAndRestore_data()
{
    QTest::addColumn<QString>("flavour");
    QTest::addColumn<QString>("root");
    QTest::addColumn<QStringList>("boardArgs");
    QTest::newRow("stm32") << "stm32"
                           << "/flash" << QStringList();
    QTest::newRow("esp32") << "esp32"
                           << "/" << QStringList();
    QTest::newRow("esp32 over WebREPL") << "esp32"
                                        << "/" << webRepl();
}

void TestCli::backupAndRestore()
{
    QFETCH(QString, flavour);
    QFETCH(QString, root);
    QFETCH(QStringList, boardArgs);
    QMap<QString, QByteArray> seed = seedFiles();
    seed.insert("empty/", {});
    VirtualBoard board(flavour, boardArgs, seed);
    QVERIFY(board.isRunning());
    seed.remove("empty/");
    QTemporaryDir out;
    const QString local = out.filePath("backup");
    Run r = cli({"--port", board.path(), "--type", flavour, "backup", root, local});
    QVERIFY2(r.code == 0, r.err.constData());
    QCOMPARE(files(local), seed);
    QVERIFY(QFileInfo(local + "/empty").isDir());
    QCOMPARE(r.out.count('\n'), seed.size());
    QVERIFY(r.out.contains("lib/it's.py\n"));

    // Not into a folder that holds files, unless asked to.
    QCOMPARE(cli({"--port", board.path(), "--type", flavour, "backup", root, local}).code, 1);
    QCOMPARE(cli({"--port", board.path(), "--type", flavour, "backup", root, local, "--force"}).code, 0);

    // Restoring is a sync into a fresh board, here with fast transfers.
    VirtualBoard fresh(flavour, boardArgs);
    QVERIFY(fresh.isRunning());
    r = cli({"--port", fresh.path(), "--type", flavour, "--fast", "sync", local, root});
    QVERIFY2(r.code == 0, r.err.constData());
    QCOMPARE(files(fresh.dump()), seed);
}

void TestCli::backupFaults()
{
    QMap<QString, QByteArray> seed = seedFiles();
    // One flipped byte in the big file's download: retried, and all is saved.
    {
        VirtualBoard board("esp32", {"--arm-on", "_frd('/data/big.bin')", "--flip-tx", "5000"}, seed);
        QTemporaryDir out;
        const Run r = cli({"--port", board.path(), "--type", "esp32", "backup", "/", out.path()});
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY(r.err.contains("Retrying /data/big.bin"));
        QCOMPARE(files(out.path()), seed);
    }
    // A listing garbled on its way (a folder's files would be left out
    // unnoticed): asked again, and all is saved.
    {
        VirtualBoard board("esp32", {"--arm-on", "import os,json", "--flip-rx", "30"}, seed);
        QTemporaryDir out;
        const Run r = cli({"--port", board.path(), "--no-fast", "backup", "/", out.path()});
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(files(out.path()), seed);
    }
    // A board that stops answering at the listing: a failed backup that says
    // why, not an empty one.
    {
        VirtualBoard board("esp32", {"--arm-on", "import os,json", "--mute-after", "0"}, seed);
        QTemporaryDir out;
        const Run r = cli({"--port", board.path(), "--no-fast", "backup", "/", out.path()});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("The board did not list /"), r.err.constData());
    }
    // The board drops during the big file: exit 1, nothing half-written.
    {
        VirtualBoard board("esp32", {"--arm-on", "_frd('/data/big.bin')", "--drop-tx", "20000"}, seed);
        QTemporaryDir out;
        const Run r = cli({"--port", board.path(), "--type", "esp32", "backup", "/", out.path()});
        QCOMPARE(r.code, 1);
        const QMap<QString, QByteArray> saved = files(out.path());
        QVERIFY(!saved.contains("data/big.bin"));
        for (auto it = saved.cbegin(); it != saved.cend(); ++it) {
            QVERIFY2(seed.contains(it.key()), qPrintable(it.key())); // no temporary left behind
            QCOMPARE(it.value(), seed.value(it.key()));
        }
    }
}

void TestCli::stopSignals()
{
    VirtualBoard board(QStringLiteral("esp32"), {}, {{"big.bin", QByteArray(60000, 'b')}});
    QVERIFY(board.isRunning());
    const QStringList port{"--port", board.path(), "--type", "esp32"};
    // A script that prints forever: SIGINT ends it and leaves a board that answers.
    const QString loop =
        writeFile(m_dir.filePath("loop.py"), "import time\nwhile 1:\n print('tick')\n time.sleep(0.02)\n");
    {
        // Its output streams, a line still growing included.
        const QString dots = writeFile(m_dir.filePath("dots.py"),
                                       "import time\nwhile 1:\n print('tick', end=' ')\n time.sleep(0.02)\n");
        Background exec(port + QStringList{"exec", dots});
        QVERIFY2(waitFor([&] { return exec.out.count("tick") > 5; }, 30000), exec.err.constData());
        // A command gives up on its board 1.5 s after the signal; the rest is
        // slack for a loaded or sanitized build.
        const qint64 took = exec.stop(SIGINT);
        QVERIFY2(took >= 0 && took < 3000, qPrintable(QString::number(took)));
        QCOMPARE(exec.p.exitCode(), 130);
    }
    QCOMPARE(cli(port + QStringList{"info"}).code, 0);
    {
        // A hard reset behind the open port (the board's button): the run
        // ends with a line instead of waiting for a prompt that never comes.
        VirtualBoard bridged(QStringLiteral("esp32"), {"--bridge"});
        Background exec({"--port", bridged.path(), "--type", "esp32", "exec", loop});
        QVERIFY2(waitFor([&] { return exec.out.count("tick") > 5; }, 30000), exec.err.constData());
        bridged.hardReset();
        QVERIFY2(waitFor([&] { return exec.p.state() == QProcess::NotRunning; }, 10000), exec.err.constData());
        QCOMPARE(exec.p.exitCode(), 1);
        QVERIFY(exec.err.contains("The board restarted while the script ran"));
    }
    // A download stopped midway: no half file, the old one whole.
    const QString local = writeFile(m_dir.filePath("kept.bin"), "old");
    {
        Background get(port + QStringList{"get", "/big.bin", local});
        QVERIFY(waitFor([&] { return get.err.contains("Downloading"); }, 30000));
        QTest::qWait(300);
        const qint64 took = get.stop(SIGTERM);
        QVERIFY2(took >= 0 && took < 3000, qPrintable(QString::number(took)));
        QCOMPARE(get.p.exitCode(), 143);
    }
    QCOMPARE(readFile(local), QByteArray("old"));
    QCOMPARE(QDir(m_dir.path()).entryList({"kept.bin*"}, QDir::Files | QDir::Hidden), QStringList{"kept.bin"});
    // Let through, the download replaces the old file.
    QCOMPARE(cli(port + QStringList{"get", "/big.bin", local}).code, 0);
    QCOMPARE(readFile(local), QByteArray(60000, 'b'));
    // Several boards: the parent passes the signal on and waits for its children.
    VirtualBoard other(QStringLiteral("esp32"));
    Background both({"--port", board.path(), "--port", other.path(), "--type", "esp32", "exec", loop});
    QVERIFY(waitFor([&] { return both.out.count("tick") > 10; }, 30000));
    const qint64 took = both.stop(SIGTERM);
    QVERIFY2(took >= 0 && took < 4500, qPrintable(QString::number(took)));
    QCOMPARE(both.p.exitCode(), 143);
    QVERIFY2(both.err.contains("failed (exit 143)"), both.err.constData());
    QCOMPARE(cli(port + QStringList{"info"}).code, 0);
}

void TestCli::watchNeverLoses()
{
    VirtualBoard board(QStringLiteral("esp32"), {"--flash-size", "60000"},
                       {{"app/a.py", "a"}, {"app/b.py", "b"}, {"app/c.py", "c"}});
    QVERIFY(board.isRunning());
    QTemporaryDir top;
    const QString p = top.filePath("p");
    for (const char* name : {"a.py", "b.py", "c.py"})
        writeFile(p + '/' + name, QByteArray(name).left(1));
    Background watch({"--port", board.path(), "--type", "esp32", "watch", p, "/app", "--delete"});
    QVERIFY2(waitFor([&] { return watch.err.contains("Watching"); }, 60000), watch.err.constData());
    const auto boardFiles = [&] { return files(board.dump() + "/app"); };
    // The folder replaced by one with a new file (a branch switch): the board
    // mirrors the new folder, never an empty one.
    QVERIFY(QDir(p).removeRecursively());
    writeFile(p + "/n.py", "n");
    QVERIFY2(waitFor([&] { return watch.out.contains("n.py\n"); }, 30000), watch.err.constData());
    QVERIFY(waitFor([&] { return boardFiles() == QMap<QString, QByteArray>{{"n.py", "n"}}; }, 10000));
    // Gone, then back empty: waited for, nothing deleted.
    QVERIFY(QDir(p).removeRecursively());
    QVERIFY(waitFor([&] { return watch.err.contains("Waiting for " + p.toUtf8()); }, 10000));
    QVERIFY(QDir().mkpath(p));
    QTest::qWait(1500);
    QCOMPARE(boardFiles(), (QMap<QString, QByteArray>{{"n.py", "n"}}));
    // A file the board has no room for is tried again and reported at the end.
    writeFile(p + "/big.bin", QByteArray(80000, 'x'));
    QVERIFY2(waitFor([&] { return watch.err.contains("Trying again: big.bin"); }, 30000), watch.err.constData());
    QVERIFY(watch.stop(SIGTERM, 20000) >= 0);
    QVERIFY(watch.p.exitCode() != 0);
    QVERIFY(watch.err.contains("Left unsynced: big.bin"));
    QCOMPARE(boardFiles().value("n.py"), QByteArray("n"));
}

void TestCli::linksAndMounts()
{
    VirtualBoard board(QStringLiteral("stm32"), {},
                       {{"main.py", "m"}, {"other.py", "o"}, {"app/x/a.py", "old"}, {"app/out", "o"}});
    QVERIFY(board.isRunning());
    const QStringList port{"--port", board.path()};
    QTemporaryDir project;
    writeFile(project.filePath("a.py"), "a");
    QVERIFY(QFile::link(".", project.filePath("x")));
    QVERIFY(QFile::link("/etc/hostname", project.filePath("out")));
    QVERIFY(QFile::link("nowhere", project.filePath("dang")));
    QVERIFY(QFile::link("a.py", project.filePath("alias.py")));
    Run r = cli(port + QStringList{"sync", project.path(), "/flash/app", "--delete"});
    QVERIFY2(r.code == 0, r.err.constData());
    QCOMPARE(r.out, QByteArray("a.py\nalias.py\n"));
    for (const char* line :
         {"Skipping x - a link to a folder is not followed", "Skipping dang - the link leads nowhere",
          "Skipping out - the link leads out of the folder"})
        QVERIFY2(r.err.contains(line), r.err.constData());
    const QMap<QString, QByteArray> app = files(board.dump() + "/app");
    QCOMPARE(app, (QMap<QString, QByteArray>{{"a.py", "a"}, {"alias.py", "a"}, {"x/a.py", "old"}, {"out", "o"}}));

    // Relative board paths in fast mode, as in the default one.
    const QString here = QDir::currentPath();
    QVERIFY(QDir::setCurrent(project.path()));
    r = cli(port + QStringList{"--fast", "put", "a.py", "rel.py"});
    QDir::setCurrent(here);
    QVERIFY2(r.code == 0, r.err.constData());
    QCOMPARE(files(board.dump()).value("rel.py"), QByteArray("a"));

    // A mirror of "/" never walks into /flash, another mounted file system.
    QTemporaryDir root;
    writeFile(root.filePath("flash/main.py"), "m2");
    r = cli(port + QStringList{"sync", root.path(), "/", "--delete"});
    QVERIFY2(r.code == 0, r.err.constData());
    QCOMPARE(files(board.dump()).value("other.py"), QByteArray("o"));
    QCOMPARE(files(board.dump()).value("main.py"), QByteArray("m2"));

    // A mount query that goes unanswered deletes nothing: /flash could be another file system.
    {
        VirtualBoard mute(QStringLiteral("stm32"), {"--arm-on", "'mounts'", "--mute-after", "0"}, {{"keep.py", "k"}});
        QTemporaryDir mirror;
        writeFile(mirror.filePath("flash/other.py"), "x");
        r = cli({"--port", mute.path(), "sync", mirror.path(), "/", "--delete"});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("Nothing deleted: the board did not say which file systems it mounts"),
                 r.err.constData());
        QCOMPARE(files(mute.dump()).value("keep.py"), QByteArray("k"));
    }

    // An empty folder, or ignore rules that cannot be read, delete nothing.
    QTemporaryDir empty;
    r = cli(port + QStringList{"sync", empty.path(), "/flash/app", "--delete"});
    QCOMPARE(r.code, 1);
    QVERIFY(r.err.contains("Nothing deleted"));
    writeFile(project.filePath(".pelkamignore"), "\xef\xbb\xbfx/\n[z-a].py\n");
    r = cli(port + QStringList{"sync", project.path(), "/flash/app", "--delete"});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(".pelkamignore, line 2"), r.err.constData());
    QCOMPARE(files(board.dump() + "/app").size(), 4);
}

void TestCli::severalBoardsWriteApart()
{
    VirtualBoard a(QStringLiteral("esp32"), {}, {{"main.py", "# a"}});
    VirtualBoard b(QStringLiteral("esp32"), {}, {{"main.py", "# b"}});
    QVERIFY(a.isRunning() && b.isRunning());
    const QStringList ports{"--port", a.path(), "--port", b.path(), "--type", "esp32"};
    QTemporaryDir out;
    Run r = cli(ports + QStringList{"backup", "/", out.filePath("saved")});
    QVERIFY2(r.code == 0, r.err.constData());
    r = cli(ports + QStringList{"get", "/main.py", out.filePath("got/main.py")});
    QVERIFY2(r.code == 0, r.err.constData());
    // A get into a folder: a folder per board within it.
    QVERIFY(QDir().mkpath(out.filePath("into")));
    r = cli(ports + QStringList{"get", "/main.py", out.filePath("into")});
    QVERIFY2(r.code == 0, r.err.constData());
    const QSet<QByteArray> both{"# a", "# b"};
    for (const char* folder : {"saved", "got", "into"}) {
        QSet<QByteArray> found;
        for (const QString& sub : QDir(out.filePath(folder)).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            found << readFile(out.filePath(QString::fromLatin1(folder) + "/" + sub + "/main.py"));
        QCOMPARE(found, both);
    }
}

QTEST_GUILESS_MAIN(TestCli)

void TestCli::wordsAndEdges()
{
    // No --type: an ESP32 board is recognised by its uname, so writes work.
    VirtualBoard board(QStringLiteral("esp32"), {}, {{"main.py", "# main"}, {"lib/", ""}});
    const QStringList port{"--port", board.path()};
    const QString local = writeFile(m_dir.filePath("w.py"), "print(1)\n");
    Run r = cli(port + QStringList{"put", local, "/w.py"});
    QVERIFY2(r.code == 0, r.err.constData());
    // Board errors in words, never a bare number (stock firmware prints ENOTDIR and others as numbers).
    const QList<QPair<QStringList, QByteArray>> failures{
        // First, before the board holds any of our scripts.
        {{"--type", "stm32", "--no-fast", "put", local, "/y.py"}, "This board has no pyb module: pass --type esp32"},
        {{"rmdir", "/main.py"}, "Not a folder on the board: /main.py"},
        {{"put", local, "/nodir/w.py"}, "ENOENT: no such file or folder"},
        {{"--no-fast", "put", local, "/nodir/w.py"}, "ENOENT: no such file or folder"},
        {{"put", local, "/main.py/x"}, "ENOTDIR: a part of the path is a file, not a folder"},
        {{"hash", "/lib"}, "Cannot hash /lib: EISDIR: it is a folder"},
        {{"put", m_dir.filePath("absent.py"), "/a.py"}, "No such local file: "},
        {{"install", m_dir.filePath("absent.upack")}, "No such local file: "},
    };
    for (const auto& [args, words] : failures) {
        r = cli(port + args);
        QVERIFY2(r.code == 1 && r.err.contains(words), qPrintable(args.join(' ') + ": " + r.err));
        QVERIFY2(args.contains("stm32") || (!r.err.contains("Invalid reply 4F4B") && !r.err.contains("#8")),
                 r.err.constData());
    }
    QCOMPARE(files(board.dump()).value("main.py"), QByteArray("# main"));
    // The window's settings never reach the CLI: a broken script set there changes nothing here.
    {
        // Where the window keeps them for this test's XDG_CONFIG_HOME.
        QSettings window(m_dir.filePath("Tarvel/Pelkam.conf"), QSettings::IniFormat);
        window.setValue(QStringLiteral("Scripts/Upload"), m_dir.filePath("gone.py"));
        window.setValue(QStringLiteral("MC/TransferSize"), 32);
        window.sync();
        r = cli(port + QStringList{"--no-fast", "put", local, "/v.py"});
        window.remove(QStringLiteral("Scripts"));
        window.remove(QStringLiteral("MC/TransferSize"));
        QVERIFY2(r.code == 0 && !r.err.contains("gone.py"), r.err.constData());
    }

    // On a terminal, progress counts the file's own bytes (not its base64 text).
    const QByteArray big(60000, 'g');
    QProcess tty;
    tty.start(QStringLiteral("script"),
              {"-qec", "\"$PELKAM_CLI\" --port " + board.path() + " put " + writeFile(m_dir.filePath("big.bin"), big) +
                           " /big.bin", "/dev/null"});
    QVERIFY(tty.waitForFinished(60000));
    const QByteArray shown = tty.readAllStandardOutput();
    QVERIFY2(tty.exitCode() == 0 && shown.contains("100% (60000 of 60000 bytes)") && !shown.contains("80000"),
             shown.constData());
    QCOMPARE(cli(port + QStringList{"get", "/big.bin", m_dir.filePath("back.bin")}).code, 0);
    QCOMPARE(readFile(m_dir.filePath("back.bin")), big);

    // A file-size limit on the PC: get fails, names the local file and keeps the old one whole.
    QTemporaryDir out;
    const QString kept = writeFile(out.filePath("kept.bin"), QByteArray(30000, 'k'));
    QProcess p;
    p.start(QStringLiteral("bash"), {"-c", "ulimit -f 40; exec \"$0\" \"$@\"", qEnvironmentVariable("PELKAM_CLI"),
                                     "--port", board.path(), "get", "/big.bin", kept});
    QVERIFY(p.waitForFinished(60000));
    const QByteArray err = p.readAllStandardError();
    QVERIFY2(p.exitCode() == 1 && err.contains("Cannot write to " + kept.toUtf8()), err.constData());
    QCOMPARE(readFile(kept), QByteArray(30000, 'k'));
    QCOMPARE(QDir(out.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"kept.bin"});
}


void TestCli::passwordsRefused()
{
    // Ctrl+C at the password prompt: the terminal gets its echo back.
    QProcess tty;
    tty.setProcessChannelMode(QProcess::MergedChannels);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("PELKAM_WEBREPL_PASSWORD"));
    tty.setProcessEnvironment(env);
    tty.start(QStringLiteral("script"),
              {"-qc", "trap '' INT; \"$PELKAM_CLI\" --port ws://127.0.0.1:9 info; stty -a", "/dev/null"});
    QByteArray shown;
    QVERIFY(waitFor([&] { return (shown += tty.readAll()).contains("WebREPL password for"); }, 20000));
    tty.write("\x03");
    QVERIFY(tty.waitForFinished(20000));
    shown += tty.readAll();
    QVERIFY2(shown.contains(" echo ") && !shown.contains("-echo "), shown.constData());

    // watch stops when the board refuses for good: its password changed while it was away.
    QTcpServer probe;
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    const QString port = QString::number(probe.serverPort());
    probe.close();
    QTemporaryDir project;
    writeFile(project.filePath("main.py"), "v1");
    auto board = std::make_unique<VirtualBoard>(QStringLiteral("esp32"), QStringList{"--webrepl", port, "--password", kPassword});
    QVERIFY(board->isRunning());
    Background watch({"--port", board->path(), "watch", project.path(), "/app"});
    QVERIFY2(waitFor([&] { return watch.err.contains("Watching"); }, 60000), watch.err.constData());
    board.reset();
    QVERIFY2(waitFor([&] { return watch.err.contains("dropped off"); }, 20000), watch.err.constData());
    board = std::make_unique<VirtualBoard>(QStringLiteral("esp32"), QStringList{"--webrepl", port, "--password", "changed"});
    QVERIFY(board->isRunning());
    QVERIFY2(waitFor([&] { return watch.p.state() == QProcess::NotRunning; }, 30000), watch.err.constData());
    QCOMPARE(watch.p.exitCode(), 1);
    QVERIFY2(watch.err.contains("refuses the connection for good"), watch.err.constData());
}

#include "tst_cli.moc"
