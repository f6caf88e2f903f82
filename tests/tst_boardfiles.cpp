#include "boardsession.h"
#include "transcriptdevice.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include "sync/synchronizer.h"

class TestBoardFiles : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_settingsDir;
    QTemporaryDir m_work;

    QString writeLocal(const QString& name, const QByteArray& data) { return writeFile(m_work.filePath(name), data); }
    static QByteArray randomBytes(int size, quint32 seed)
    {
        QRandomGenerator gen(seed);
        QByteArray data(size, Qt::Uninitialized);
        for (char& c : data)
            c = static_cast<char>(gen.bounded(256));
        return data;
    }
    void roundTrips(const QString& flavour);

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }
    void init() { QSettings().clear(); }

    void pureFunctions();

    void roundTripStm32() { roundTrips(QStringLiteral("stm32")); }
    void roundTripEsp32() { roundTrips(QStringLiteral("esp32")); }
    void uploadFailures();
    void corruptedTransfers();
    void silentBoard();
    void shortExchanges();
    void cancel();
    void scriptsAndLinkTest();
    void listingAndInfo();
    void wireBytes();
    void fastTransfers();
    void rawTransfers();
    void fastReplaceIsAtomic();
    void uartFlashAndFat();
    void fullFlash();
    void boardsThatChange();
    void slowDigests();
};

void TestBoardFiles::pureFunctions()
{
    // Any path becomes an ASCII Python literal: quotes, backslashes and control
    // characters escaped, the rest as \x, \u or \U escapes.
    QCOMPARE(BoardFiles::pyString(QString::fromUtf8("it's a\\b\n caf\xc3\xa9 \xd0\xb6 \xf0\x9f\x98\x80")),
             QStringLiteral("'it\\'s a\\\\b\\x0a caf\\xe9 \\u0436 \\U0001f600'"));
    // Below 32 means 512; anything else is rounded down to a size the script takes.
    const QList<QPair<int, int>> chunks{{31, 512}, {32, 32}, {100, 64}, {1000, 512}, {1024, 1024}, {5000, 1024}};
    for (const auto& [setting, chunk] : chunks)
        QCOMPARE(BoardLink::safeTransferSize(setting), chunk);
    // The deliberate thresholds and unit labels.
    QCOMPARE(MCDirModel::humanReadableSize(0), QString());
    QCOMPARE(MCDirModel::humanReadableSize(1230), QStringLiteral("1230"));
    QCOMPARE(MCDirModel::humanReadableSize(1231), QStringLiteral("1.2kB"));
    QCOMPARE(MCDirModel::humanReadableSize(1048576), QStringLiteral("1024.0kB"));
    QCOMPARE(MCDirModel::humanReadableSize(1048577), QStringLiteral("1.0Mb"));
}

void TestBoardFiles::roundTrips(const QString& flavour)
{
    BoardSession s(flavour);
    QVERIFY2(s.open(), qPrintable(s.board.path() + s.board.log() + s.log.join(QLatin1Char(10))));
    struct Case {
        int size;
        int chunk;
        QString name;
    };
    QList<Case> cases;
    for (int size : {0, 1, 255, 256, 257, 767, 768, 1023, 1024, 1025, 50 * 1024})
        cases.append({size, 512, QStringLiteral("f%1.bin").arg(size)});
    // Every size Preferences offers, and ones it does not (1000 and 5000 are
    // rounded down: the board script fails on them).
    for (int chunk : {32, 64, 128, 256, 1000, 1024, 5000})
        for (int size : {0, 1025, 3000})
            cases.append({size, chunk, QStringLiteral("c%1_%2.bin").arg(chunk).arg(size)});
    cases.append({20000, 1024, QStringLiteral("c1024_20000.bin")});
    cases.append({300, 512, QStringLiteral("it's a file.txt")});
    cases.append({300, 512, QString::fromUtf8("\xd0\xbf\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82 caf\xc3\xa9.py")});

    quint32 seed = 1;
    for (const Case& c : cases) {
        s.option([&](BoardOptions& o) { o.transferSize = c.chunk; });
        const QByteArray data = randomBytes(c.size, seed++);
        const QString local = writeLocal(QStringLiteral("up.bin"), data);
        const QString target = s.root() + c.name;
        QVERIFY2(s.files.upload(local, target), qPrintable(c.name + '\n' + s.log.join('\n')));
        s.board.dump();
        QCOMPARE(s.board.readFile(c.name), data);
        const QString back = m_work.filePath(QStringLiteral("down.bin"));
        QVERIFY(s.files.download(target, back));
        QVERIFY2(s.files.lastDownloadOk(), qPrintable(c.name + '\n' + s.log.join('\n')));
        QCOMPARE(readFile(back), data);
    }
    QVERIFY(s.logged(QStringLiteral("Finished uploading to ") + s.root() + QStringLiteral("it's a file.txt")));
}

void TestBoardFiles::uploadFailures()
{
    BoardSession s;
    QVERIFY(s.open());
    const QString local = writeLocal(QStringLiteral("x.txt"), "hello");
    const int rawBefore = s.count(QStringLiteral("RAW REPL initialized"));
    QVERIFY(!s.files.upload(local, QStringLiteral("/flash/a:b.txt")));
    QVERIFY(s.logged(QStringLiteral("Cannot upload - forbidden character : in /flash/a:b.txt")));
    QCOMPARE(s.count(QStringLiteral("RAW REPL initialized")), rawBefore);
    QVERIFY(!s.files.upload(m_work.filePath(QStringLiteral("missing")), QStringLiteral("/flash/m.txt")));
    QVERIFY(s.logged(QStringLiteral("Cannot read from ")));
    // A target folder that does not exist: the board's own error comes back,
    // at once (it answers during the wait before the data), after the
    // default mode's own line and in words.
    QElapsedTimer took;
    took.start();
    QVERIFY(!s.files.upload(local, QStringLiteral("/flash/nodir/x.txt")));
    QVERIFY(took.elapsed() < 4000);
    QVERIFY2(s.logged(QStringLiteral("Invalid reply 23385B4572726E6F2032")) &&
                 s.logged(QStringLiteral("The board cannot write /flash/nodir/x.txt: ENOENT: no such file or folder")),
             qPrintable(s.log.join(QLatin1Char(10))));

    QVERIFY(s.files.download(QStringLiteral("/flash/nothere.txt"), m_work.filePath(QStringLiteral("n.txt"))));
    QVERIFY(!s.files.lastDownloadOk());
    QVERIFY(s.logged(QStringLiteral("Transmission error: ENOENT: no such file or folder")));
    QVERIFY(!s.files.download(QStringLiteral("/flash/x"), m_work.filePath(QStringLiteral("no/such/dir/x"))));
    QVERIFY(s.logged(QStringLiteral("Cannot write to ")));

    s.option([&](BoardOptions& o) { o.texts[QStringLiteral("Scripts/Upload")] = m_work.filePath(QStringLiteral("gone.py")); });
    QVERIFY(!s.files.upload(local, QStringLiteral("/flash/x.txt")));
    QVERIFY(s.logged(QStringLiteral("Cannot open ") + m_work.filePath(QStringLiteral("gone.py"))));
    s.option([](BoardOptions& o) { o.texts.remove(QStringLiteral("Scripts/Upload")); });

    // After all of that the board still works.
    QVERIFY(s.files.upload(local, QStringLiteral("/flash/x.txt")));
    s.board.dump();
    QCOMPARE(s.board.readFile(QStringLiteral("x.txt")), QByteArray("hello"));
}

void TestBoardFiles::corruptedTransfers()
{
    const QByteArray data = randomBytes(3000, 7);
    {
        BoardSession s(QStringLiteral("stm32"), {"--arm-on", "_upload('", "--flip-rx", "200"});
        QVERIFY(s.open());
        QVERIFY(!s.files.upload(writeLocal(QStringLiteral("d.bin"), data), QStringLiteral("/flash/d.bin")));
        // The default mode's own line, then what it means.
        QVERIFY2(s.logged(QStringLiteral("Invalid reply ") +
                          QString::fromLatin1(QByteArray("#4Inv csum").toHex().toUpper())) &&
                     s.logged(QStringLiteral("Cannot upload /flash/d.bin: the data arrived damaged")),
                 qPrintable(s.log.join('\n')));
    }
    {
        BoardSession s(QStringLiteral("esp32"), {"--arm-on", "_download('", "--flip-tx", "100"}, {{"d.bin", data}});
        QVERIFY(s.open());
        s.files.download(QStringLiteral("/d.bin"), m_work.filePath(QStringLiteral("d.bin")));
        QVERIFY(!s.files.lastDownloadOk());
        QVERIFY2(s.logged(QStringLiteral("File downloaded with errors!! (checksum mismatch ")),
                 qPrintable(s.log.join('\n')));
    }
}

void TestBoardFiles::silentBoard()
{
    const QByteArray data = randomBytes(20000, 9);
    // (A board dropped mid-upload is tested with the link.)
    BoardSession s(QStringLiteral("stm32"), {"--arm-on", "_upload('", "--mute-after", "40"});
    QVERIFY(s.open());
    QVERIFY(!s.files.upload(writeLocal(QStringLiteral("m.bin"), data), QStringLiteral("/flash/m.bin")));
    QVERIFY2(s.logged(QStringLiteral("Transmission error. Aborted")), qPrintable(s.log.join('\n')));
}

void TestBoardFiles::cancel()
{
    // Stopped after the current chunk: one "Cancelled" line, no traceback, and
    // the board answers the next exchange at once.
    BoardSession s(QStringLiteral("esp32"), {"--baud", "115200"}, {{"big.bin", randomBytes(12000, 5)}});
    QVERIFY(s.open());
    QObject::connect(&s.files, &BoardFiles::progressChanged, [&](int value) {
        if (value > 4000)
            s.files.cancel();
    });
    QVERIFY(!s.files.upload(writeLocal(QStringLiteral("c.bin"), randomBytes(20000, 6)), QStringLiteral("/c.bin")));
    QCOMPARE(s.count(QStringLiteral("Cancelled")), 1);
    s.files.cancel(); // nothing runs: ignored
    QVERIFY(s.files.download(QStringLiteral("/big.bin"), m_work.filePath(QStringLiteral("b.bin"))));
    QVERIFY(s.files.lastDownloadOk());
    QObject::connect(&s.files, &BoardFiles::logLine, [&](const QString& line) {
        if (line.startsWith(QLatin1String("Downloading")))
            s.files.cancel();
    });
    QVERIFY(s.files.download(QStringLiteral("/big.bin"), m_work.filePath(QStringLiteral("b.bin"))));
    QVERIFY(!s.files.lastDownloadOk());
    QCOMPARE(s.count(QStringLiteral("Cancelled")), 2);
    QVERIFY2(!s.logged(QStringLiteral("Traceback")) && !s.logged(QStringLiteral("Invalid reply")) &&
                 !s.logged(QStringLiteral("Transmission error")),
             qPrintable(s.log.join(QLatin1Char(10))));
    QCOMPARE(s.files.mc_lsdir(QStringLiteral("/"), MC_LIST_FILES).size(), 2);
}

void TestBoardFiles::shortExchanges()
{
    // On a board that answers "\r\n" with two prompts, delivered in random
    // pieces, a stale prompt must never end the next exchange: the short ones
    // are repeated often enough that a one-in-ten race fails the run.
    const QByteArray data = randomBytes(5000, 3);
    for (const QString& flavour : {QStringLiteral("stm32"), QStringLiteral("esp32")}) {
        // STM32 with upstream's pyb (no FlashWriter); ESP32 hashing with SHA1 only.
        const bool stm = flavour == QLatin1String("stm32");
        BoardSession s(flavour, stm ? QStringList{"--stock-pyb"} : QStringList{"--hash", "sha1"});
        QVERIFY(s.open());
        const QString r = s.root();
        QVERIFY(s.files.mc_mkdir(QStringLiteral("/")));
        QVERIFY(s.files.mc_mkdir(QString()));
        const int before = s.count(QStringLiteral("Creating dir"));
        QVERIFY(s.files.mc_mkdir(r + QStringLiteral("a/b/c")));
        QCOMPARE(s.count(QStringLiteral("Creating dir")) - before, stm ? 4 : 3);
        QVERIFY(s.files.mc_mkdir(r + QStringLiteral("a/b")));
        QVERIFY(!s.files.mc_direxists(r + QStringLiteral("zz")));
        const QString target = r + QStringLiteral("a/h.bin");
        QVERIFY(s.files.upload(writeLocal(QStringLiteral("h.bin"), data), target));
        QVERIFY(!s.files.remove(r + QStringLiteral("a/b"), true));
        QVERIFY2(s.logged(QStringLiteral("Removal error: ENOTEMPTY: the folder is not empty. Aborted")),
                 qPrintable(s.log.join(QLatin1Char(10))));
        // A quote in a name can neither break the call nor run code.
        QVERIFY(s.files.mc_mkdir(r + QStringLiteral("q'x")));
        QVERIFY(s.files.mc_direxists(r + QStringLiteral("q'x")));
        QVERIFY(s.files.remove(r + QStringLiteral("q'x"), true));

        const QByteArray expected =
            QCryptographicHash::hash(data, stm ? QCryptographicHash::Md5 : QCryptographicHash::Sha1).toHex();
        QVERIFY(s.files.upload_script(QStringLiteral(":/data/hash.py")));
        QVERIFY(s.link.to_repl());
        for (int round = 0; round < 25; ++round) {
            QCOMPARE(s.files.mc_file_hash(target), expected);
            QCOMPARE(s.files.mc_file_hash(r + QStringLiteral("none.bin")), QByteArray("err(2)"));
            QCOMPARE(s.files.mc_lsdir(r + QStringLiteral("a"), MC_LIST_FILES).size(), 1);
        }
        // Every switch between the two REPLs, where a stale ">>> " holds three ">".
        for (int round = 0; round < 6; ++round) {
            const QString folder = r + QStringLiteral("a/d%1").arg(round);
            QVERIFY(s.files.mc_direxists(r + QStringLiteral("a/b/c")));
            QVERIFY(s.files.mc_mkdir(folder));
            QCOMPARE(s.files.mc_lsdir(r + QStringLiteral("a"), MC_LIST_DIRS).size(), 2);
            QVERIFY(s.files.remove(folder, true));
        }
        QVERIFY(s.files.remove(target, false));
        QVERIFY(s.logged(target + QStringLiteral(" removed")));
        QVERIFY(!s.files.remove(target, false));
        QVERIFY(s.files.remove(r + QStringLiteral("a/b/c"), true));
        s.board.dump();
        QVERIFY(QFileInfo(s.board.dump() + QStringLiteral("/a/b")).isDir());
        QVERIFY(!QFileInfo::exists(s.board.dump() + QStringLiteral("/a/b/c")));
        QVERIFY2(!s.logged(QStringLiteral("invalid reply")) && !s.logged(QStringLiteral("no attribute")),
                 qPrintable(s.log.join(QLatin1Char(10))));
    }
}

void TestBoardFiles::scriptsAndLinkTest()
{
    BoardSession s(QStringLiteral("esp32"));
    QVERIFY(s.open());
    // No ">" in the output: a read that ends right after one looks like the
    // raw prompt and ends the run, and the rest would reach the next one.
    const QString script = writeLocal(QStringLiteral("run.py"), "for i in range(3):\n print('line', i)\n");
    QVERIFY(s.files.execute_script(script));
    QVERIFY(s.logged(QStringLiteral("&gt;&gt;line 0")));
    QVERIFY(s.logged(QStringLiteral("&gt;&gt;line 2")));
    QVERIFY(s.logged(QStringLiteral("Script ") + script + QStringLiteral(" executed")));
    QCOMPARE(s.link.state(), MC_RAW);

    const QString broken = writeLocal(QStringLiteral("broken.py"), "def f(:\n");
    QVERIFY(s.files.execute_script(broken));
    // Only the traceback's first line is sure to arrive: "<stdin>" holds a ">", and a read that ends
    // right after it looks like the raw prompt, so the rest may be cut from the log.
    QVERIFY2(s.logged(QStringLiteral("Traceback")), qPrintable(s.log.join(QLatin1Char(10))));

    QVERIFY2(s.files.debug(), qPrintable(s.log.join('\n')));
    // The board is usable after the link test.
    s.files.updateMcDir(QStringLiteral("/"));
    QVERIFY(s.link.state() == MC_REPL);
}

void TestBoardFiles::listingAndInfo()
{
    const QMap<QString, QByteArray> seed{
        {"lib/", {}}, {"zdir/", {}}, {"main.py", QByteArray(2000, 'x')}, {"a.txt", "1"}};
    for (const QString& entries : {QStringLiteral("4"), QStringLiteral("3")}) {
        BoardSession s(QStringLiteral("stm32"), {"--entries", entries, "--uname", "nodename=bench-1"}, seed);
        s.option([](BoardOptions& o) { o.texts[QStringLiteral("MC/STMDir")] = QStringLiteral("/sd"); });
        QVERIFY(s.open());
        QVERIFY2(s.logged(QStringLiteral("Connected to micropython board bench-1 (mod unknown), release 1.27.0. "
                                         "Core PYBv1.1 with STM32F405RG version v1.27.0 on 2025-12-10")),
                 qPrintable(s.log.join(QLatin1Char(10))));
        // The missing start folder falls back to /flash.
        QCOMPARE(s.model.dirPath(), QStringLiteral("/flash/"));
        QStringList names;
        for (int row = 0; row < s.model.rowCount(); ++row)
            names << s.model.data(s.model.index(row, 0)).toString();
        QCOMPARE(names, QStringList({"..", "lib", "zdir", "a.txt", "main.py"}));
        QCOMPARE(s.model.data(s.model.index(4, 1)).toString(), entries == QLatin1String("4") ? "2.0kB" : "");
        const QJsonArray files = s.files.mc_lsdir(QStringLiteral("/flash/"), MC_LIST_FILES);
        QCOMPARE(files.size(), 2);
        QCOMPARE(s.files.mc_lsdir(QStringLiteral("/flash"), MC_LIST_ALL).size(), 0);
        QCOMPARE(s.files.mc_lsdir(QStringLiteral("/"), MC_LIST_DIRS).size(), 1);

        s.files.updateMcDir(QStringLiteral("/"));
        QCOMPARE(s.model.rowCount(), 1);
        QCOMPARE(s.model.data(s.model.index(0, 0)).toString(), QStringLiteral("flash"));
        s.option([](BoardOptions& o) { o.texts[QStringLiteral("PY/uname")] = QStringLiteral("print('nothing')"); });
        s.files.displayMcInfo();
        QVERIFY(s.logged(QStringLiteral("System information request failed")));
        QSettings().clear();
    }
}

void TestBoardFiles::wireBytes()
{
    // Exactly what goes down the wire for one small upload in each mode.
    TranscriptDevice device;
    BoardLink link;
    BoardFiles files(link);
    QStringList log;
    QObject::connect(&files, &BoardFiles::logLine, [&log](const QString& line) { log << line; });
    BoardLink::PortSettings settings;
    settings.name = device.path();
    QVERIFY(link.connectToBoard(settings, false, false));
    QCoreApplication::processEvents();
    link.setState(MC_RAW);
    const QString local = writeLocal(QStringLiteral("w.txt"), "hello!");
    const auto script = [](const char* name) { return readFile(QStringLiteral(":/data/") + name) + '\x04'; };
    const QByteArray packets("!0000000008aGVsbG8h@0000000698");
    // Fast transfers paste their script in raw-paste mode; this board grants
    // one window larger than the script.
    const QByteArray rawPaste("\x05"
                              "A\x01");
    const auto expectUpload = [&](const QByteArray& paste, bool askCapability) {
        device.clearReceived();
        if (paste.startsWith(rawPaste)) {
            device.addStep(rawPaste, QByteArray("R\x01\xff\xff", 4));
            device.addStep(paste.mid(rawPaste.size()), "\x04\x04\x04>");
        } else if (!paste.isEmpty()) {
            device.addStep(paste, "OK\x04\x04>");
        }
        if (askCapability)
            device.addStep("_fcap()\x04", "OK1\r\n\x04\x04>");
        device.addStep("!0000000008", "OK#9>");
        device.addStep("aGVsbG8h", "#9>");
        device.addStep("@0000000698", "#0\x04\x04>");
    };

    expectUpload(script("upload.py"), false);
    device.addStep("\x01", "raw REPL; CTRL-B to exit\r\n>");
    QVERIFY2(files.upload(local, QStringLiteral("/flash/w.txt")), qPrintable(log.join(QLatin1Char(10))));
    QCOMPARE(device.received(), script("upload.py") + "_upload('/flash/w.txt', 512)\x04" + packets + '\x01');

    // Fast: the script goes once, then only the call and its packets; a
    // board that restarted gets it again.
    files.setFastTransfers(true);
    const QByteArray call("_fup('/flash/w.txt', 512, 0, 6, 565)\x04");
    const QByteArray fast = rawPaste + script("fast.py") + "_fcap()\x04";
    for (int round = 0; round < 2; ++round) {
        if (round == 1) {
            device.send("\r\nMPY: soft reboot\r\n");
            QVERIFY(waitFor([&] { return link.pendingBuffer().contains("soft reboot"); }));
        }
        expectUpload(rawPaste + script("fast.py"), true);
        QVERIFY2(files.upload(local, QStringLiteral("/flash/w.txt")), qPrintable(log.join(QLatin1Char(10))));
        QCOMPARE(device.received(), fast + call + packets);
        expectUpload({}, false);
        QVERIFY(files.upload(local, QStringLiteral("/flash/w.txt")));
        QCOMPARE(device.received(), call + packets);
    }

    // A board older than raw-paste takes the request's Ctrl-A as a fresh raw
    // REPL: the script then goes as in the default mode, and is never offered again.
    TranscriptDevice older;
    BoardLink oldLink;
    BoardFiles oldFiles(oldLink);
    settings.name = older.path();
    QVERIFY(oldLink.connectToBoard(settings, false, false));
    QCoreApplication::processEvents();
    oldLink.setState(MC_RAW);
    oldFiles.setFastTransfers(true);
    older.addStep(rawPaste, "raw REPL; CTRL-B to exit\r\n>");
    older.addStep(script("fast.py"), "OK\x04\x04>");
    older.addStep("_fcap()\x04", "OK0\r\n\x04\x04>");
    const QByteArray longCall = "_fmk('/flash/" + QByteArray(130, 'd') + "')\x04";
    older.addStep(longCall, "OK\x04\x04>");
    QVERIFY(oldFiles.mc_mkdir(QStringLiteral("/flash/") + QString(130, QLatin1Char('d'))));
    QCOMPARE(older.received(), rawPaste + script("fast.py") + "_fcap()\x04" + longCall);
}

void TestBoardFiles::fastTransfers()
{
    // Byte-exact both ways in fast mode on rude boards: deflated source, data
    // that does not shrink (sent plain), empty and odd sizes; ESP32 without deflate.
    QByteArray source;
    for (int i = 0; source.size() < 30000; ++i)
        source += QStringLiteral("def f%1(x):\n    return x * %2  # note\n").arg(i).arg(i % 7).toLatin1();
    const QList<QByteArray> payloads{source, awkwardBytes(9000, 11), {}, randomBytes(1025, 12), source.left(4097)};
    for (const QStringList& args : {QStringList{}, QStringList{"--no-deflate"}}) {
        const QString flavour = args.isEmpty() ? QStringLiteral("stm32") : QStringLiteral("esp32");
        BoardSession s(flavour, args, {{"old.bin", "old"}});
        s.files.setFastTransfers(true);
        QVERIFY(s.open());
        for (int i = 0; i < payloads.size(); ++i) {
            const QString name = QStringLiteral("f%1.py").arg(i);
            QVERIFY2(s.files.upload(writeLocal(QStringLiteral("up.bin"), payloads.at(i)), s.root() + name),
                     qPrintable(s.log.join('\n')));
            const QString back = m_work.filePath(QStringLiteral("down.bin"));
            QVERIFY2(s.files.download(s.root() + name, back) && s.files.lastDownloadOk(),
                     qPrintable(s.log.join('\n')));
            QCOMPARE(readFile(back), payloads.at(i));
        }
        // A cancelled replace keeps the old content; no temporary is left or listed.
        QObject::connect(&s.files, &BoardFiles::progressChanged, [&](int value) {
            if (value > 2000)
                s.files.cancel();
        });
        QVERIFY(!s.files.upload(writeLocal(QStringLiteral("c.bin"), randomBytes(20000, 6)), s.root() + "old.bin"));
        QCOMPARE(s.count(QStringLiteral("Cancelled")), 1);
        QCOMPARE(s.files.mc_lsdir(s.root(), MC_LIST_FILES).size(), payloads.size() + 1);
        s.board.dump();
        QCOMPARE(s.board.readFile(QStringLiteral("old.bin")), QByteArray("old"));
        QVERIFY(!QFileInfo::exists(s.board.dump() + QStringLiteral("/old.bin.pelkam-tmp")));
        QVERIFY2(!s.logged(QStringLiteral("Traceback")), qPrintable(s.log.join('\n')));
        // A folder in the file's place: the board's reason in words, the folder untouched.
        QVERIFY(s.files.mc_mkdir(s.root() + QStringLiteral("dir")));
        QVERIFY(!s.files.upload(writeLocal(QStringLiteral("d.py"), "x"), s.root() + QStringLiteral("dir")));
        QVERIFY2(s.logged(QStringLiteral("The board cannot write ") + s.root() + QStringLiteral("dir: EISDIR: it is a folder")),
                 qPrintable(s.log.join('\n')));
        QVERIFY(s.files.mc_direxists(s.root() + QStringLiteral("dir")));
    }
}

void TestBoardFiles::rawTransfers()
{
    // Fast transfers on a UART console (260-byte ring, slow sector erases,
    // paced): the bytes travel raw both ways and exactly; the ring never overflows.
    const QByteArray data = awkwardBytes(12000, 41);
    const QStringList uart{"--polite", "--baud", "115200", "--uart-ring", "260", "--erase-ms", "45"};
    BoardSession s(QStringLiteral("esp32"), uart + QStringList{"--arm-on", "_fru('/flip", "--flip-rx", "3000"},
                   {{"flip.bin", "old"}});
    s.files.setFastTransfers(true);
    QVERIFY(s.open());
    QVERIFY2(s.files.upload(writeLocal(QStringLiteral("raw.bin"), data), "/raw.bin"), qPrintable(s.log.join('\n')));
    QCOMPARE(readFile(s.board.dump() + "/raw.bin"), data);
    const QString back = m_work.filePath(QStringLiteral("back.bin"));
    const quint64 before = s.link.bytesReceived();
    QVERIFY2(s.files.download("/raw.bin", back) && s.files.lastDownloadOk(), qPrintable(s.log.join('\n')));
    QCOMPARE(readFile(back), data);
    QVERIFY(s.link.bytesReceived() - before < quint64(data.size()) * 21 / 20); // not base64
    // A byte flipped on its way: the copy fails its digest, the old file stays.
    QVERIFY(!s.files.upload(writeLocal(QStringLiteral("raw.bin"), data), "/flip.bin"));
    // "#5": the copy is wrong, or "#2": a window mark was hit; in words, no hex.
    QVERIFY2(s.logged(QStringLiteral("Cannot upload /flip.bin: the ")) && !s.logged(QStringLiteral("Invalid reply")),
             qPrintable(s.log.join(QLatin1Char(10))));
    QCOMPARE(readFile(s.board.dump() + "/flip.bin"), QByteArray("old"));
    // A cancelled download: one "Cancelled", the local file as it was, the board ready.
    writeLocal(QStringLiteral("keep.bin"), "mine");
    QObject::connect(&s.files, &BoardFiles::fileProgress, [&](qint64 done, qint64) {
        if (done > 3000)
            s.files.cancel();
    });
    QVERIFY(!s.files.downloadReplacing("/raw.bin", m_work.filePath(QStringLiteral("keep.bin"))));
    QCOMPARE(s.count(QStringLiteral("Cancelled")), 1);
    QCOMPARE(readFile(m_work.filePath(QStringLiteral("keep.bin"))), QByteArray("mine"));
    QVERIFY(s.files.mc_direxists(QStringLiteral("/")));
    QVERIFY2(!s.board.log().contains(QStringLiteral("bytes lost")), qPrintable(s.board.log()));

    // A byte lost on the line (an overrun): the board reads the next mark as
    // data and says it lost its place, or (in the last window) waits for a
    // byte that never comes. Either way the upload fails in seconds, no data
    // reaches the REPL, the old file stays and the board answers again.
    for (const int at : {2000, 12080}) {
        BoardSession lost(QStringLiteral("stm32"),
                          {"--no-deflate", "--arm-on", "_fru('/flash/lost", "--lose-rx", QString::number(at)},
                          {{"lost.bin", "old"}});
        lost.files.setFastTransfers(true);
        QVERIFY(lost.open());
        QElapsedTimer took;
        took.start();
        QVERIFY(!lost.files.upload(writeLocal(QStringLiteral("raw.bin"), data), "/flash/lost.bin"));
        QVERIFY(took.elapsed() < 15000);
        QVERIFY2(!lost.logged(QStringLiteral(">>>")) && !lost.logged(QStringLiteral("Traceback")),
                 qPrintable(lost.log.join('\n')));
        QVERIFY(lost.files.upload(writeLocal(QStringLiteral("raw.bin"), data), "/flash/again.bin"));
        lost.board.dump();
        QCOMPARE(lost.board.readFile(QStringLiteral("again.bin")), data);
        QCOMPARE(lost.board.readFile(QStringLiteral("lost.bin")), QByteArray("old"));
    }

    // Firmware whose console cannot carry raw bytes: base64 as before, said once.
    BoardSession old(QStringLiteral("stm32"), {"--no-raw-stdio"});
    old.files.setFastTransfers(true);
    QVERIFY(old.open());
    for (int i = 0; i < 2; ++i) {
        QVERIFY(old.files.upload(writeLocal(QStringLiteral("raw.bin"), data), "/flash/raw.bin"));
        QVERIFY(old.files.download("/flash/raw.bin", back) && old.files.lastDownloadOk());
        QCOMPARE(readFile(back), data);
    }
    QCOMPARE(old.count(QStringLiteral("cannot take raw bytes")), 1);
}

void TestBoardFiles::fastReplaceIsAtomic()
{
    // Pulled mid-replace: the old file stays whole beside a partial temporary.
    const QByteArray old = randomBytes(3000, 21);
    QString dump;
    BoardSession pulled(QStringLiteral("esp32"), {"--arm-on", "_fru(", "--drop-rx", "6000"}, {{"app/keep.py", old}});
    pulled.files.setFastTransfers(true);
    QVERIFY(pulled.open());
    QVERIFY(!pulled.files.upload(writeLocal(QStringLiteral("new.bin"), randomBytes(20000, 22)), "/app/keep.py"));
    dump = pulled.board.dump();
    QCOMPARE(readFile(dump + QStringLiteral("/app/keep.py")), old);
    QVERIFY(QFileInfo::exists(dump + QStringLiteral("/app/keep.py.pelkam-tmp")));

    // The same files on a board that is back: the temporary is not listed, and
    // the next upload into that folder removes it.
    BoardSession back(QStringLiteral("esp32"), {},
                      {{"app/keep.py", old}, {"app/keep.py.pelkam-tmp", readFile(dump + "/app/keep.py.pelkam-tmp")}});
    back.files.setFastTransfers(true);
    QVERIFY(back.open());
    const QJsonArray listed = back.files.mc_lsdir(QStringLiteral("/app"), MC_LIST_FILES);
    QCOMPARE(listed.size(), 1);
    QVERIFY(back.files.upload(writeLocal(QStringLiteral("o.py"), "other"), "/app/other.py"));
    QVERIFY(!QFileInfo::exists(back.board.dump() + QStringLiteral("/app/keep.py.pelkam-tmp")));
    QCOMPARE(readFile(back.board.dump() + QStringLiteral("/app/keep.py")), old);
}

namespace {
QStringList names(const QJsonArray& listing)
{
    QStringList out;
    for (const QJsonValue& v : listing)
        out << v.toObject().value(QStringLiteral("n")).toString();
    return out;
}
QByteArray pythonSource(int size)
{
    QByteArray source;
    for (int i = 0; source.size() < size; ++i)
        source += QStringLiteral("def g%1(y):\n    return y + %2\n").arg(i).arg(i % 5).toLatin1();
    return source;
}
} // namespace

void TestBoardFiles::uartFlashAndFat()
{
    // A UART console that drops what comes while the flash is busy (an
    // ESP8266's: 255 bytes held), FAT's rename that unlinks the target first,
    // and a reset between the two.
    const QByteArray old = randomBytes(3000, 31);
    const QByteArray fresh = randomBytes(6000, 32);
    BoardSession s(
        QStringLiteral("esp32"),
        {"--polite", "--baud", "115200", "--uart-ring", "256", "--flash-ms", "40", "--fs", "fat", "--crash-in-rename"},
        {{"app/main.py", old}, {"app/mine.pelkam-tmp", "a user's file"}});
    QVERIFY(s.open());
    // Fast transfers off: our suffix means nothing, the user's file is listed.
    QVERIFY(names(s.files.mc_lsdir(QStringLiteral("/app"), MC_LIST_FILES)).contains("mine.pelkam-tmp"));
    s.files.setFastTransfers(true);
    // The reset between the two is noticed: the file goes again and the
    // verified copy the reset left is put in place first, never deleted.
    QVERIFY2(s.files.upload(writeLocal(QStringLiteral("n.bin"), fresh), QStringLiteral("/app/main.py")),
             qPrintable(s.log.join('\n')));
    QVERIFY(s.logged(QStringLiteral("restarted during the upload of /app/main.py")));
    QCOMPARE(names(s.files.mc_lsdir(QStringLiteral("/app"), MC_LIST_FILES)), QStringList{"main.py"});
    QCOMPARE(readFile(s.board.dump() + QStringLiteral("/app/main.py")), fresh);
    {
        // What such a reset leaves when Pelkam was not there to send the
        // file again: the next look at the folder puts the copy in place.
        BoardSession left(QStringLiteral("esp32"), {"--polite", "--fs", "fat"}, {{"app/main.py.pelkam-new", fresh}});
        left.files.setFastTransfers(true);
        QVERIFY(left.open());
        QCOMPARE(names(left.files.mc_lsdir(QStringLiteral("/app"), MC_LIST_FILES)), QStringList{"main.py"});
        QVERIFY(left.logged(QStringLiteral("/app/main.py restored from its verified copy")));
        QCOMPARE(readFile(left.board.dump() + QStringLiteral("/app/main.py")), fresh);
    }
    // The same board takes replaces from now on, and never in a busy moment.
    for (int i = 0; i < 2; ++i) {
        const QByteArray next = randomBytes(4000 + i * 1500, 33 + i);
        QVERIFY2(s.files.upload(writeLocal(QStringLiteral("n.bin"), next), QStringLiteral("/app/main.py")),
                 qPrintable(s.log.join('\n')));
        QCOMPARE(readFile(s.board.dump() + QStringLiteral("/app/main.py")), next);
    }
    QVERIFY2(!s.board.log().contains(QStringLiteral("bytes lost")), qPrintable(s.board.log()));
    // Our leftovers never stop a folder's removal.
    QVERIFY(s.files.remove(QStringLiteral("/app/main.py"), false));
    QVERIFY(s.files.remove(QStringLiteral("/app"), true));
}

void TestBoardFiles::fullFlash()
{
    // Stock firmware, whose errno table has no ENOSPC: the board says a bare "28".
    for (const char* fs : {"littlefs", "fat"}) {
        // Room for one copy of big.bin, not two: the replace is written in place,
        // and one line says so.
        BoardSession s(QStringLiteral("esp32"), {"--flash-size", "20480", "--fs", fs},
                       {{"big.bin", randomBytes(10000, 41)}});
        s.files.setFastTransfers(true);
        QVERIFY(s.open());
        const QByteArray next = randomBytes(10000, 42);
        QVERIFY2(s.files.upload(writeLocal(QStringLiteral("b.bin"), next), QStringLiteral("/big.bin")),
                 qPrintable(s.log.join('\n')));
        QCOMPARE(s.count(QStringLiteral("it was written in place")), 1);
        QCOMPARE(readFile(s.board.dump() + QStringLiteral("/big.bin")), next);
        // A file that does not fit at all: one clear line in both modes (the
        // default mode keeps its "Invalid reply" line before it), and a board
        // that goes on answering.
        for (const bool fast : {true, false}) {
            s.log.clear();
            s.files.setFastTransfers(fast);
            QVERIFY(!s.files.upload(writeLocal(QStringLiteral("h.bin"), randomBytes(30000, 43)),
                                    QStringLiteral("/h.bin")));
            QVERIFY2(s.count(QStringLiteral("Not enough room on the board")) == 1, qPrintable(s.log.join('\n')));
            QCOMPARE(s.logged(QStringLiteral("Invalid reply")), !fast);
            QVERIFY(names(s.files.mc_lsdir(QStringLiteral("/"), MC_LIST_FILES)).contains("big.bin"));
        }
        // Fast mode decides before writing: a new big.bin that cannot fit even
        // in the old one's place is refused, and the old one stays whole (FAT
        // would have truncated it on open).
        s.files.setFastTransfers(true);
        s.log.clear();
        QVERIFY(!s.files.upload(writeLocal(QStringLiteral("c.bin"), randomBytes(30000, 44)), QStringLiteral("/big.bin")));
        QVERIFY2(s.logged(QStringLiteral("Not enough room on the board")), qPrintable(s.log.join('\n')));
        QCOMPARE(readFile(s.board.dump() + QStringLiteral("/big.bin")), next);
    }
}

void TestBoardFiles::boardsThatChange()
{
    // An ESP32 behind a USB-serial bridge whose heap is too fragmented to inflate.
    BoardSession s(QStringLiteral("esp32"), {"--bridge", "--inflate-oom"});
    s.files.setFastTransfers(true);
    QVERIFY(s.open());
    const QByteArray source = pythonSource(9000);
    const auto put = [&](const QString& target, const QByteArray& data) {
        return s.files.upload(writeLocal(QStringLiteral("x.py"), data), target) &&
               readFile(s.board.dump() + target) == data;
    };
    QVERIFY2(put(QStringLiteral("/a.py"), source), qPrintable(s.log.join('\n')));
    QVERIFY(put(QStringLiteral("/b.py"), source + "#"));
    QCOMPARE(s.count(QStringLiteral("no memory left to inflate")), 1);
    // A hard reset behind the open port (EN button, watchdog): its banner is enough.
    s.board.hardReset();
    QVERIFY(waitFor([&] { return s.link.state() == MC_REPL; }, 5000));
    QTest::qWait(1500); // the board boots
    QVERIFY2(put(QStringLiteral("/c.py"), "c"), qPrintable(s.log.join('\n')));
    // Scripts gone without a banner: the NameError makes them go again, once.
    QVERIFY(s.files.execute_script(writeLocal(QStringLiteral("forget.py"), "del _fru\n")));
    QVERIFY2(put(QStringLiteral("/d.py"), "d"), qPrintable(s.log.join('\n')));
    QCOMPARE(s.count(QStringLiteral("no longer knows Pelkam's scripts")), 1);

    // A reset in the middle of an upload: the file goes again, whole.
    QByteArray noise(300000, Qt::Uninitialized);
    for (int i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<char>((i * 7919) ^ (i >> 5));
    QTimer::singleShot(600, [&] { s.board.hardReset(); });
    // The log's end says why (QtTest cuts a long message).
    QVERIFY2(put(QStringLiteral("/e.bin"), noise), qPrintable(s.log.mid(qMax(0, s.log.size() - 25)).join('\n')));
    QCOMPARE(s.count(QStringLiteral("restarted during the upload of /e.bin")), 1);
    // ... and of a batch of digests: the batch is asked again.
    const QString slowHash = writeLocal(QStringLiteral("slowhash.py"),
                                        readFile(QStringLiteral(":/data/hash.py")) +
                                            "import time\n_h0=_hash\ndef _hash(f):\n time.sleep(0.3)\n return _h0(f)\n");
    const QStringList paths{"/a.py", "/b.py", "/c.py", "/d.py", "/e.bin"};
    QTest::qWait(1500);
    QTimer::singleShot(700, [&] { s.board.hardReset(); });
    QElapsedTimer took;
    took.start();
    const auto digests = s.files.mc_file_hashes(paths, slowHash);
    QCOMPARE(digests.size(), paths.size());
    QVERIFY2(s.logged(QStringLiteral("The board restarted during a call")), qPrintable(s.log.join('\n')));
    QVERIFY(took.elapsed() < 10000);
}

void TestBoardFiles::slowDigests()
{
    // A slow flash: 30 digests at 0.4 s each outlast a fixed 10 s call.
    QMap<QString, QByteArray> seed;
    QTemporaryDir pc;
    for (int i = 0; i < 30; ++i) {
        const QString name = QStringLiteral("f%1.py").arg(i);
        seed.insert(name, name.toLatin1());
        writeFile(pc.filePath(name), name.toLatin1());
    }
    // late.py outlasts even the grown time-out and answers right after Ctrl-C.
    const QString slowHash =
        writeLocal(QStringLiteral("slowhash.py"), readFile(QStringLiteral(":/data/hash.py")) +
                                                      "import time\n_h0=_hash\ndef _hash(f):\n"
                                                      " try:\n  time.sleep(60 if 'late' in f else 0.4)\n"
                                                      " except KeyboardInterrupt:\n  return b'late'\n"
                                                      " return _h0(f)\n");
    seed.insert(QStringLiteral("late.py"), "x");
    BoardSession s(QStringLiteral("esp32"), {"--polite"}, seed);
    s.option([&](BoardOptions& o) { o.texts[QStringLiteral("Scripts/Hash")] = slowHash; });
    s.files.setFastTransfers(true);
    QVERIFY(s.open());
    Synchronizer sync(s.files);
    QObject::connect(&sync, &Synchronizer::logLine, [&s](const QString& line) { s.log << line; });
    QVERIFY2(sync.synchronize(pc.path(), QStringLiteral("/"), Synchronizer::collectSyncFiles(pc.path(), {}, false), {}),
             qPrintable(s.log.join('\n')));
    QCOMPARE(s.count(QStringLiteral("files are identical")), 30);

    // The late answer is drained, never taken for the next call's.
    QVERIFY(s.files.mc_file_hashes({QStringLiteral("/late.py")}, slowHash).isEmpty());
    QVERIFY(s.logged(QStringLiteral("No answer from the board in 12 s: interrupted")));
    const auto next = s.files.mc_file_hashes({QStringLiteral("/f1.py")}, slowHash);
    const QByteArray digest = next.value(QStringLiteral("/f1.py"));
    QVERIFY2(digest == QCryptographicHash::hash("f1.py", QCryptographicHash::Md5).toHex() ||
                 digest == QCryptographicHash::hash("f1.py", QCryptographicHash::Sha1).toHex(),
             digest.constData());
}

QTEST_GUILESS_MAIN(TestBoardFiles)
#include "tst_boardfiles.moc"
