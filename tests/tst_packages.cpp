#include "boardsession.h"
#include "packages/microtar.h"
#include "packages/packageinstaller.h"
#include "packages/paxglobal.h"

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>


// Archives are written by Python's tarfile and zipfile and by GNU tar, so the
// reader is checked against archives it did not write.
class TestPackages : public QObject {
    Q_OBJECT
    QTemporaryDir m_settingsDir;
    QTemporaryDir m_work;

    // Runs a Python snippet in the work folder; "out" is the archive it writes.
    QString python(const QString& name, const QString& code)
    {
        const QString path = m_work.filePath(name);
        QProcess p;
        p.setWorkingDirectory(m_work.path());
        p.start(QStringLiteral("python3"), {QStringLiteral("-c"),
                                            QStringLiteral("import tarfile, zipfile, io, struct, sys\nout = "
                                                           "sys.argv[1]\ndef add(t, name, data=None, kind=None):\n"
                                                           " i = tarfile.TarInfo(name)\n"
                                                           " if data is None:\n  i.type = kind or tarfile.DIRTYPE\n"
                                                           "  t.addfile(i)\n  return\n"
                                                           " i.size = len(data)\n t.addfile(i, io.BytesIO(data))\n") +
                                                code,
                                            path});
        if (!p.waitForFinished(30000))
            qWarning() << "the archive maker did not finish";
        if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
            qWarning() << p.readAllStandardError();
        return path;
    }
    struct Installed {
        PackageInstaller::Result result;
        QStringList paths;
    };
    static Installed install(BoardSession& s, PackageInstaller& installer, const QString& path)
    {
        QStringList paths;
        auto c = connect(&installer, &PackageInstaller::fileInstalled, [&](const QString& p) { paths << p; });
        const PackageInstaller::Result r = installer.install(path);
        disconnect(c);
        s.board.dump();
        return {r, paths};
    }
    static void wire(BoardSession& s, PackageInstaller& installer)
    {
        connect(&installer, &PackageInstaller::logLine, [&s](const QString& l) { s.log << l; });
    }

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }

    void tarReader();
    void paxRecords_data();
    void paxRecords();
    void firmwarePackages();
    void zipPackages();
    void disconnected();
};

void TestPackages::tarReader()
{
    // GNU tar: a ustar name longer than 100 characters is split into prefix
    // and name; the reader joins them without the "/" (a deliberate quirk).
    QTemporaryDir tree;
    const QString longDir = QStringLiteral("d").repeated(110);
    QVERIFY(QDir(tree.path()).mkpath(longDir));
    writeFile(tree.filePath(longDir + QStringLiteral("/file.py")), "x = 1\n");
    writeFile(tree.filePath(QStringLiteral("empty.txt")), "");
    const QString gnu = m_work.filePath(QStringLiteral("gnu.tar"));
    QCOMPARE(QProcess::execute(QStringLiteral("tar"),
                               {QStringLiteral("--format=ustar"), QStringLiteral("-cf"), gnu, QStringLiteral("-C"),
                                tree.path(), QStringLiteral("empty.txt"), longDir + QStringLiteral("/file.py")}),
             0);
    mtar_t tar;
    QCOMPARE(mtar_open(&tar, QFile::encodeName(gnu).constData(), "r"), 0);
    mtar_header_t h;
    QCOMPARE(mtar_read_header(&tar, &h), 0);
    QVERIFY(h.ustar);
    QCOMPARE(QString::fromLatin1(h.name), QStringLiteral("empty.txt"));
    QCOMPARE(h.size, 0u);
    QCOMPARE(h.type, uint32_t('0'));
    QCOMPARE(mtar_tell(&tar), uint64_t(0));
    QCOMPARE(mtar_seek(&tar, 512), 0);
    QCOMPARE(mtar_read_header(&tar, &h), 0);
    QCOMPARE(QString::fromLatin1(h.name), longDir + QStringLiteral("file.py"));
    char data[6];
    QCOMPARE(mtar_read_data(&tar, data, 6), 0);
    QCOMPARE(QByteArray(data, 6), QByteArray("x = 1\n"));
    QCOMPARE(mtar_tell(&tar), uint64_t(512));               // back at the header once the entry is read
    QCOMPARE(mtar_read_data(&tar, data, 7), MTAR_EFAILURE); // more than the entry holds
    mtar_close(&tar);

    // (Records that would overrun a careless reader are the fuzzers' job.)
    // Open refuses what is not an archive, with the codes the log shows.
    const QString zeros = m_work.filePath(QStringLiteral("zeros.ufw"));
    writeFile(zeros, QByteArray(10240, '\0'));
    QCOMPARE(mtar_open(&tar, QFile::encodeName(zeros).constData(), "r"), MTAR_ENULLRECORD);
    const QString text = m_work.filePath(QStringLiteral("text.ufw"));
    writeFile(text, QByteArray("not a tar archive\n").repeated(40));
    QCOMPARE(mtar_open(&tar, QFile::encodeName(text).constData(), "r"), MTAR_EBADCHKSUM);
    writeFile(text, "short");
    QCOMPARE(mtar_open(&tar, QFile::encodeName(text).constData(), "r"), MTAR_EREADFAIL);
    QCOMPARE(mtar_open(&tar, "/no/such/file.ufw", "r"), MTAR_EOPENFAIL);
}

void TestPackages::paxRecords_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("expected"); // sorted key=value pairs joined by ";"
    QTest::newRow("three") << QByteArray("15 board=esp32\n13 mod=wroom\n17 comment=hello\n")
                           << "board=esp32;comment=hello;mod=wroom";
    QTest::newRow("record without =") << QByteArray("14 comment=ok\n11 nokey!!\n8 mod=x\n") << "comment=ok;mod=x";
    QTest::newRow("value over two lines") << QByteArray("29 comment=line one\nline two\n") << "comment=line one\nline two";
    QTest::newRow("later replaces") << QByteArray("8 a=one\n8 a=two\n") << "a=two";
    QTest::newRow("zero length stops") << QByteArray("8 a=one\n0 b=x\n") << "a=one";
    QTest::newRow("negative length stops") << QByteArray("-5 a=b\n") << "";
    QTest::newRow("length past the end") << QByteArray("8 a=one\n99 b=two\n") << "a=one";
    QTest::newRow("no newline") << QByteArray("7 a=one") << "";
    QTest::newRow("not a number") << QByteArray("x8 a=one\n") << "";
}

void TestPackages::paxRecords()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, expected);
    const QHash<QString, QString> values = _tar_parse_global(data);
    QStringList pairs;
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        pairs << it.key() + QLatin1Char('=') + it.value();
    pairs.sort();
    QCOMPARE(pairs.join(QLatin1Char(';')), expected);
}

void TestPackages::firmwarePackages()
{
    BoardSession s(QStringLiteral("stm32"), {}, {{"keep.py", "old contents\n"}});
    QVERIFY(s.open());
    PackageInstaller installer(s.files);
    wire(s, installer);

    const QString full =
        python(QStringLiteral("full.ufw"),
               QStringLiteral(
                   "with tarfile.open(out, 'w', format=tarfile.PAX_FORMAT, pax_headers={'board': 'pyboard', 'mod': "
                   "'v1.1', 'comment': 'sensor node'}) as t:\n"
                   " add(t, '/flash/lib/')\n add(t, '/flash/lib/a.py', b'import os\\n' * 300)\n"
                   " add(t, '/flash/lib/deep/b.py', bytes(range(256)) * 4)\n add(t, '/flash/main.py', b'print(1)\\n')\n"
                   " add(t, '/flash/empty.txt', b'')\n add(t, '/flash/link', kind=tarfile.SYMTYPE)\n"));
    Installed r = install(s, installer, full);
    QCOMPARE(r.result, PackageInstaller::Installed);
    QCOMPARE(r.paths, QStringList({"/flash/lib/a.py", "/flash/lib/deep/b.py", "/flash/main.py", "/flash/empty.txt"}));
    QCOMPARE(s.board.readFile(QStringLiteral("lib/a.py")), QByteArray("import os\n").repeated(300));
    QCOMPARE(s.board.readFile(QStringLiteral("lib/deep/b.py")).size(), 1024);
    QVERIFY(QFileInfo::exists(s.board.dump() + QStringLiteral("/empty.txt")));
    QVERIFY(s.logged(QStringLiteral("Loading ufw from ") + full));
    QCOMPARE(s.count(QStringLiteral("UFW firmware package is for pyboard/v1.1 (sensor node)")), 1);
    QVERIFY(s.logged(QStringLiteral("UFW firmware pack uploaded!")));
    QVERIFY(s.model.fileExists(QStringLiteral("main.py"))); // the pane was refreshed

    // No "mod": no description; a corrupt second header ends the archive
    // early, which is reported as installed (and told apart for the CLI).
    const QString corrupt = python(QStringLiteral("corrupt.ufw"),
                                   QStringLiteral("with tarfile.open(out, 'w', format=tarfile.PAX_FORMAT, "
                                                  "pax_headers={'board': 'pyboard'}) as t:\n"
                                                  " add(t, '/flash/one.py', b'1')\n add(t, '/flash/two.py', b'2')\n"
                                                  "d = bytearray(open(out, 'rb').read())\nd[2048 + 5] ^= 1\n"
                                                  "open(out, 'wb').write(d)\n"));
    s.log.clear();
    r = install(s, installer, corrupt);
    QCOMPARE(r.result, PackageInstaller::EndedEarly);
    QCOMPARE(r.paths, QStringList{"/flash/one.py"});
    QVERIFY(!s.logged(QStringLiteral("is for")));
    QVERIFY(s.logged(QStringLiteral("UFW firmware pack uploaded!")));

    // A truncated last file is never uploaded: the board keeps the old one.
    const QString truncated = python(QStringLiteral("truncated.ufw"),
                                     QStringLiteral("with tarfile.open(out, 'w', format=tarfile.USTAR_FORMAT) as t:\n"
                                                    " add(t, '/flash/keep.py', b'new contents ' * 100)\n"
                                                    "d = open(out, 'rb').read()\nopen(out, 'wb').write(d[:900])\n"));
    s.log.clear();
    r = install(s, installer, truncated);
    QCOMPARE(r.result, PackageInstaller::Failed);
    QVERIFY(s.logged(QStringLiteral("Cannot read /flash/keep.py whole")));
    QCOMPARE(s.board.readFile(QStringLiteral("keep.py")), QByteArray("old contents\n"));
    QVERIFY(!s.logged(QStringLiteral("uploaded!")));

    // An entry claiming 20 MiB is refused before anything is read.
    const QString huge = python(QStringLiteral("huge.ufw"),
                                QStringLiteral("i = tarfile.TarInfo('/flash/huge.bin')\ni.size = 20 * 1024 * 1024\n"
                                               "open(out, 'wb').write(i.tobuf(tarfile.USTAR_FORMAT) + bytes(512))\n"));
    s.log.clear();
    QCOMPARE(install(s, installer, huge).result, PackageInstaller::Failed);
    QVERIFY(s.logged(QStringLiteral("/flash/huge.bin is too large for a MicroPython board (20971520 bytes)")));

    // Refused at open with the numeric code; nothing else happens.
    const QString zeros = m_work.filePath(QStringLiteral("zeros.ufw"));
    writeFile(zeros, QByteArray(4096, '\0'));
    s.log.clear();
    QCOMPARE(install(s, installer, zeros).result, PackageInstaller::Failed);
    QCOMPARE(s.log, QStringList{QStringLiteral("Cannot read ufw package: -7")});
    QVERIFY(!installer.busy());
}

void TestPackages::zipPackages()
{
    BoardSession s(QStringLiteral("esp32"), {}, {{"lib/u.py", "old u\n"}});
    QVERIFY(s.open());
    PackageInstaller installer(s.files);
    wire(s, installer);

    const QString pack = python(QStringLiteral("PACK.UPACK"),
                                QStringLiteral("with zipfile.ZipFile(out, 'w', zipfile.ZIP_DEFLATED) as z:\n"
                                               " z.comment = b'for the weather station'\n"
                                               " z.writestr('a/b/x.py', 'x = 1\\n' * 500)\n"
                                               " z.writestr('a/b/y.py', 'y')\n z.writestr('top.py', '')\n"
                                               " z.writestr('/abs.py', bytes(range(256)))\n"));
    Installed r = install(s, installer, pack);
    QCOMPARE(r.result, PackageInstaller::Installed);
    QCOMPARE(r.paths, QStringList({"/a/b/x.py", "/a/b/y.py", "/top.py", "/abs.py"}));
    QCOMPARE(s.board.readFile(QStringLiteral("a/b/x.py")), QByteArray("x = 1\n").repeated(500));
    QCOMPARE(s.board.readFile(QStringLiteral("abs.py")).size(), 256);
    QVERIFY(s.logged(QStringLiteral("Loading upack for for the weather station")));
    QCOMPARE(s.count(QStringLiteral("Creating dir /a/b")), 1);
    QVERIFY(s.logged(QStringLiteral("Uploading a/b/x.py from upack")));
    QVERIFY(s.logged(QStringLiteral("UPack uploaded!")));
    QVERIFY(s.model.dirExists(QStringLiteral("a")));

    const QString notZip = m_work.filePath(QStringLiteral("bad.upack"));
    writeFile(notZip, "this is not a zip archive");
    s.log.clear();
    QCOMPARE(install(s, installer, notZip).result, PackageInstaller::Failed);
    QCOMPARE(s.log, QStringList{QStringLiteral("Invalid package %1 - maybe not an upack?").arg(notZip)});

    // A damaged entry (CRC mismatch) never reaches the board.
    const QString damaged = python(QStringLiteral("damaged.upack"),
                                   QStringLiteral("with zipfile.ZipFile(out, 'w', zipfile.ZIP_STORED) as z:\n"
                                                  " z.writestr('lib/u.py', 'new u ' * 50)\n"
                                                  "d = bytearray(open(out, 'rb').read())\nd[60] ^= 0xff\n"
                                                  "open(out, 'wb').write(d)\n"));
    s.log.clear();
    QCOMPARE(install(s, installer, damaged).result, PackageInstaller::Failed);
    QVERIFY(s.logged(QStringLiteral("UPack is broken (cannot read lib/u.py). Abort")));
    QCOMPARE(s.board.readFile(QStringLiteral("lib/u.py")), QByteArray("old u\n"));

    // An entry whose headers claim 3 GB is refused before it is read.
    const QString bomb = python(QStringLiteral("bomb.upack"),
                                QStringLiteral("with zipfile.ZipFile(out, 'w', zipfile.ZIP_STORED) as z:\n"
                                               " z.writestr('big.bin', 'abc')\n"
                                               "d = bytearray(open(out, 'rb').read())\nc = d.rfind(b'PK\\x01\\x02')\n"
                                               "d[22:26] = d[c + 24:c + 28] = struct.pack('<I', 3 << 30)\n"
                                               "open(out, 'wb').write(d)\n"));
    s.log.clear();
    QCOMPARE(install(s, installer, bomb).result, PackageInstaller::Failed);
    QVERIFY2(s.logged(QStringLiteral("big.bin is too large")), qPrintable(s.log.join('\n')));

    // Names go to the board as they stand, but the upload's check applies.
    const QString odd = python(QStringLiteral("odd.upack"),
                               QStringLiteral("with zipfile.ZipFile(out, 'w') as z:\n z.writestr('ok.py', 'ok')\n"
                                              " z.writestr('what?.py', 'q')\n"));
    s.log.clear();
    r = install(s, installer, odd);
    QCOMPARE(r.result, PackageInstaller::Failed);
    QCOMPARE(r.paths, QStringList{"/ok.py"});
    QVERIFY(s.logged(QStringLiteral("Cannot upload - forbidden character ? in /what?.py")));

}

void TestPackages::disconnected()
{
    BoardSession s(QStringLiteral("esp32"), {QStringLiteral("--baud"), QStringLiteral("115200")});
    QVERIFY(s.open());
    PackageInstaller installer(s.files);
    wire(s, installer);
    const QString pack = python(QStringLiteral("slow.ufw"),
                                QStringLiteral("with tarfile.open(out, 'w', format=tarfile.USTAR_FORMAT) as t:\n"
                                               " for n in range(3):\n"
                                               "  add(t, '/f%d.bin' % n, bytes([n]) * 3000)\n"));
    // (A second package while one installs: tested through the window.)
    // Pulling the board midway ends the install cleanly; the next one works.
    auto c = connect(&s.files, &BoardFiles::logLine, [&](const QString& line) {
        if (line.startsWith(QLatin1String("Finished uploading to /f0.bin")))
            QTimer::singleShot(100, [&] { s.link.connectionClosed(); });
    });
    s.log.clear();
    QCOMPARE(installer.install(pack), PackageInstaller::Failed);
    disconnect(c);
    QVERIFY(!installer.busy());
    QCOMPARE(s.count(QStringLiteral("Package installation stopped: the MC is disconnected")), 1);
    QVERIFY(!s.logged(QStringLiteral("uploaded!")));
    s.infoDone = false;
    QVERIFY(s.open());
    QCOMPARE(install(s, installer, pack).result, PackageInstaller::Installed);
}

QTEST_MAIN(TestPackages)
#include "tst_packages.moc"
