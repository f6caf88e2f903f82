// Measures transfers, synchronisation and package installs against the
// virtual board and prints the figures, each also as "figure NAME VALUE UNIT".
//   pelkam-benchmark [--only transfer|sync|packages|editor] [--write FILE]
// FILE gets a Markdown report; a "## Fuzzing" section already in it is kept.
#include "boardsession.h"
#include "ser2net.h"
#include "codeeditor/qcodeeditor.h"
#include "codeeditordialog.h"
#include "packages/packageinstaller.h"
#include "pelkamwindow.h"
#include "plotterview.h"
#include "sync/synchronizer.h"
#include "workflows/boardbackup.h"

#include <QDir>

#include <QAction>
#include <QApplication>
#include <QDate>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QKeyEvent>
#include <QProcess>
#include <QRandomGenerator>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sys/resource.h>
#include <vector>

namespace {
constexpr int kBaud = 115200;
constexpr double kCeiling = kBaud / 10.0 * 3.0 / 4.0; // file bytes per second through base64
constexpr int kBigFile = 200 * 1024;
constexpr int kSmallFile = 100;
constexpr int kHugeFile = 10 * 1024 * 1024;

// A field of /proc/self/status in kB: VmHWM (peak) or VmRSS (now).
long statusKb(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray key = QByteArray(field) + ':';
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').value(0).toLong();
    return -1;
}

long peakRssKb()
{
    return statusKb("VmHWM");
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

QString writeFile(const QTemporaryDir& dir, const QString& name, int size)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator gen(size);
    for (char& c : data)
        c = static_cast<char>(gen.bounded(256));
    QFile file(dir.filePath(name));
    file.open(QIODevice::WriteOnly);
    file.write(data);
    return file.fileName();
}

struct Figures {
    double upload = 0;
    double download = 0;
    double smallUpload = 0;
    double smallDownload = 0;
    double listing = 0;
    double perChunkMs = 0;
};

double seconds(const QElapsedTimer& t)
{
    return t.nsecsElapsed() / 1e9;
}

struct Figure {
    QString group;
    QString name;
    double value;
    int precision;
    QString unit;
    QString meaning;
};
QList<Figure> g_figures;

void figure(QTextStream& out, const QString& group, const QString& name, double value, int precision,
            const QString& unit, const QString& meaning)
{
    g_figures.append({group, name, value, precision, unit, meaning});
    out << "figure " << name << ' ' << QString::number(value, 'f', precision) << ' ' << unit << '\n';
    out.flush();
}

// The fixed waits of one upload: 300 ms before the data, 400 ms before the checksum.
constexpr double kUploadFixedWaits = 0.3 + 0.4;
// Polite boards, so the figures stay comparable from run to run.
const QStringList kPaced{QStringLiteral("--polite"), QStringLiteral("--baud"), QString::number(kBaud)};

constexpr int kSyncFiles = 50;

// Python source that compresses as real modules do (about 3:1), not a line repeated.
void writeProject(const QString& root, int files, int changed)
{
    for (int i = 0; i < files; ++i) {
        const QString rel = QStringLiteral("pkg%1/module%2.py").arg(i % 5).arg(i, 2, 10, QLatin1Char('0'));
        QDir().mkpath(QFileInfo(root + QLatin1Char('/') + rel).path());
        QFile f(root + QLatin1Char('/') + rel);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        QByteArray text = QStringLiteral("VERSION = %1\n").arg(i < changed ? 2 : 1).toLatin1();
        QRandomGenerator gen(static_cast<quint32>(i + 1));
        const int size = 2000 + i * 1000 / files;
        for (int n = 0; text.size() < size; ++n)
            text += QStringLiteral("def on_%1_%2(event, limit=%3):\n    return event.%4 * %5 > limit\n\n")
                        .arg(QLatin1String(n % 3 ? "press" : "release"))
                        .arg(gen.bounded(100000))
                        .arg(gen.bounded(1000))
                        .arg(QLatin1String(n % 2 ? "value" : "count"))
                        .arg(gen.bounded(97))
                        .toLatin1();
        f.write(text.left(size));
    }
}

struct SyncTimes {
    double first = -1;
    double unchanged = -1;
    double changed = -1;
};

// A first copy of a fresh 50-file project, an unchanged sync, five files changed.
SyncTimes timeSyncs(const QString& root, bool fast, QTextStream& out, QStringList* files)
{
    constexpr int kChanged = 5;
    SyncTimes times;
    BoardSession s(QStringLiteral("stm32"), kPaced);
    if (!s.open()) {
        out << "sync: the board did not answer\n";
        return times;
    }
    s.files.setFastTransfers(fast);
    Synchronizer sync(s.files);
    QObject::connect(&sync, &Synchronizer::logLine, [&s](const QString& l) { s.log << l; });
    Synchronizer::Options options;
    options.createDirs = true;
    writeProject(root, kSyncFiles, 0);
    *files = Synchronizer::collectSyncFiles(root, QString(), true);
    QElapsedTimer t;
    t.start();
    const bool first = sync.synchronize(root, QStringLiteral("/flash/"), *files, options);
    times.first = seconds(t);
    t.restart();
    const bool unchanged = sync.synchronize(root, QStringLiteral("/flash/"), *files, options);
    times.unchanged = seconds(t);
    writeProject(root, kSyncFiles, kChanged);
    t.restart();
    const bool changed = sync.synchronize(root, QStringLiteral("/flash/"), *files, options);
    times.changed = seconds(t);
    if (!first || !unchanged || !changed || qEnvironmentVariableIsSet("PELKAM_BENCHMARK_LOG"))
        out << s.log.join(QLatin1Char('\n')) << '\n';
    return times;
}

void measureSync(const QTemporaryDir& dir, QTextStream& out)
{
    constexpr int kFiles = kSyncFiles;
    QStringList files;
    const QString root = dir.filePath(QStringLiteral("project"));
    const SyncTimes plain = timeSyncs(root, false, out, &files);
    const SyncTimes fast = timeSyncs(dir.filePath(QStringLiteral("project-fast")), true, out, &files);
    const QString group = QStringLiteral("sync");
    figure(out, group, QStringLiteral("sync_first_total"), plain.first, 2, QStringLiteral("s"),
           QStringLiteral(
               "first copy of a 50-file project of Python source (2-3 kB files) to an empty board, 115200 baud"));
    figure(out, group, QStringLiteral("sync_first_fast"), fast.first, 2, QStringLiteral("s"),
           QStringLiteral("the same with fast transfers (goal: at most half the default)"));
    figure(out, group, QStringLiteral("sync_unchanged_total"), plain.unchanged, 2, QStringLiteral("s"),
           QStringLiteral("sync of the project, nothing changed, 115200 baud"));
    figure(out, group, QStringLiteral("sync_unchanged_per_file"), plain.unchanged * 1000 / kFiles, 1,
           QStringLiteral("ms"), QStringLiteral("the same, per unchanged file (goal: at most 30 ms)"));
    figure(out, group, QStringLiteral("sync_unchanged_fast_per_file"), fast.unchanged * 1000 / kFiles, 1,
           QStringLiteral("ms"), QStringLiteral("the same with fast transfers (goal: at most 10 ms)"));
    figure(out, group, QStringLiteral("sync_5_changed_total"), plain.changed, 2, QStringLiteral("s"),
           QStringLiteral("sync of the same project with 5 files changed, 115200 baud"));
    figure(out, group, QStringLiteral("sync_5_changed_fast"), fast.changed, 2, QStringLiteral("s"),
           QStringLiteral("the same with fast transfers"));
    Synchronizer::Options options;
    options.createDirs = true;
    QElapsedTimer t;

    // The same unchanged project on a board as rude as real hardware (LF
    // taken as a second Enter, output fragmented), over and over.
    constexpr int kRuns = 20;
    BoardSession rude(QStringLiteral("stm32"),
                      {QStringLiteral("--polite"), QStringLiteral("--baud"), QString::number(kBaud),
                       QStringLiteral("--lf-enter"), QStringLiteral("--fragment"), QStringLiteral("20")});
    if (!rude.open()) {
        out << "sync: the rude board did not answer\n";
        return;
    }
    Synchronizer rudeSync(rude.files);
    rudeSync.synchronize(root, QStringLiteral("/flash/"), files, options);
    int good = 0;
    int uploads = 0;
    QObject::connect(&rudeSync, &Synchronizer::fileUploaded, [&uploads] { ++uploads; });
    t.restart();
    for (int run = 0; run < kRuns; ++run)
        good += rudeSync.synchronize(root, QStringLiteral("/flash/"), files, options) ? 1 : 0;
    const double rudeSeconds = seconds(t);
    figure(out, QStringLiteral("sync"), QStringLiteral("sync_rude_runs_ok"), uploads == 0 ? good : 0, 0,
           QStringLiteral("of 20"),
           QStringLiteral("unchanged syncs in a row that succeed with nothing uploaded, LF-as-Enter fragmented board"));
    figure(out, QStringLiteral("sync"), QStringLiteral("sync_unchanged_rude_per_file"),
           rudeSeconds * 1000 / kRuns / kFiles, 1, QStringLiteral("ms"),
           QStringLiteral("the same, per unchanged file"));

    // Backups of that board in a row, each compared byte for byte with the project.
    constexpr int kBackups = 5;
    int exact = 0;
    for (int run = 0; run < kBackups; ++run) {
        QTemporaryDir target;
        BoardBackup backup(rude.files);
        bool same = backup.run(QStringLiteral("/flash"), target.path());
        for (const QString& f : qAsConst(files))
            same = same && readFile(target.filePath(f)) == readFile(root + QLatin1Char('/') + f);
        exact += same ? 1 : 0;
    }
    figure(out, QStringLiteral("sync"), QStringLiteral("backup_rude_runs_ok"), exact, 0, QStringLiteral("of 5"),
           QStringLiteral("backups of that board in a row, every file byte-exact"));
}

// The same first sync through pelkam-cli onto one board, then onto three at
// once (one process per board).
// Seconds a pelkam-cli sync of a 10-file project takes onto that many paced
// boards at once (-1 when it failed); over ser2net's RFC 2217 ports when remote.
double timedManySync(const QString& root, int boards, bool remote)
{
    std::vector<std::unique_ptr<VirtualBoard>> running;
    QStringList devices;
    for (int i = 0; i < boards; ++i) {
        running.push_back(std::make_unique<VirtualBoard>(QStringLiteral("stm32"), kPaced));
        devices << running.back()->path();
    }
    std::unique_ptr<Ser2Net> daemon(remote ? new Ser2Net(devices) : nullptr);
    QStringList args;
    for (int i = 0; i < boards; ++i)
        args << QStringLiteral("--port") << (remote ? daemon->rfc2217(i) : devices.at(i));
    QProcess cli;
    QElapsedTimer t;
    t.start();
    cli.start(QStringLiteral(PELKAM_CLI_PATH), args + QStringList{QStringLiteral("sync"), root, QStringLiteral("/flash/app")});
    const bool ok = cli.waitForFinished(600000) && cli.exitCode() == 0;
    return ok ? seconds(t) : -1.0;
}

void measureManyBoards(const QTemporaryDir& dir, QTextStream& out)
{
    const QString root = dir.filePath(QStringLiteral("many"));
    writeProject(root, 10, 0);
    const double one = timedManySync(root, 1, false);
    const double three = timedManySync(root, 3, false);
    if (one <= 0 || three <= 0) {
        out << "sync: a pelkam-cli sync failed\n";
        return;
    }
    figure(
        out, QStringLiteral("sync"), QStringLiteral("sync_three_boards_ratio"), three / one, 2, QStringLiteral("x"),
        QStringLiteral("first sync of a 10-file project onto three boards at once, against one (goal: at most 1.3)"));
}

void measurePackages(const QTemporaryDir& dir, QTextStream& out)
{
    constexpr int kEntries = 20;
    const QString package = dir.filePath(QStringLiteral("bench.ufw"));
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QStringLiteral("-c"),
                  QStringLiteral("import tarfile, io, random, sys\nrandom.seed(7)\n"
                                 "with tarfile.open(sys.argv[1], 'w', format=tarfile.PAX_FORMAT, "
                                 "pax_headers={'board': 'pyboard', 'mod': 'bench'}) as t:\n"
                                 " for i in range(%1):\n"
                                 "  d = bytes(random.getrandbits(8) for _ in range(5000))\n"
                                 "  n = tarfile.TarInfo('/flash/app/lib%02d/f%d.bin' % (i % 4, i)); n.size = len(d)\n"
                                 "  t.addfile(n, io.BytesIO(d))\n")
                      .arg(kEntries),
                  package});
    python.waitForFinished(60000);
    BoardSession s(QStringLiteral("stm32"), kPaced);
    if (python.exitCode() != 0 || !s.open()) {
        out << "packages: no package or no board\n";
        return;
    }
    PackageInstaller installer(s.files);
    QObject::connect(&installer, &PackageInstaller::logLine, [&s](const QString& l) { s.log << l; });
    qint64 bytes = 0;
    QObject::connect(&installer, &PackageInstaller::fileInstalled, [&](const QString&) { bytes += 5000; });
    QElapsedTimer t;
    t.start();
    const bool ok = installer.install(package) == PackageInstaller::Installed;
    const double total = seconds(t);
    if (!ok) {
        out << "packages: the install failed\n" << s.log.join(QLatin1Char('\n')) << '\n';
        return;
    }
    figure(out, QStringLiteral("packages"), QStringLiteral("ufw_install_total"), total, 2, QStringLiteral("s"),
           QStringLiteral("install of a 20-file .ufw (100 kB of files), 115200 baud"));
    figure(out, QStringLiteral("packages"), QStringLiteral("ufw_install_rate"), bytes / total, 0, QStringLiteral("B/s"),
           QStringLiteral("file bytes per second of that install"));
    figure(out, QStringLiteral("packages"), QStringLiteral("ufw_install_fixed_wait_share"),
           100.0 * kEntries * kUploadFixedWaits / total, 1, QStringLiteral("%"),
           QStringLiteral("share of that time in the uploads' fixed waits (300 + 400 ms a file)"));
}

Figures measure(const QString& label, const QStringList& args, const QTemporaryDir& dir, QTextStream& out)
{
    Figures f;
    BoardSession s(QStringLiteral("stm32"), args);
    if (!s.open()) {
        out << label << ": the board did not answer\n";
        return f;
    }
    const QString big = writeFile(dir, QStringLiteral("big.bin"), kBigFile);
    const QString small = writeFile(dir, QStringLiteral("small.bin"), kSmallFile);
    QElapsedTimer t;

    t.start();
    const bool up = s.files.upload(big, QStringLiteral("/flash/big.bin"));
    const double upSeconds = seconds(t);
    f.upload = up ? kBigFile / upSeconds : 0;
    t.restart();
    const bool down = s.files.download(QStringLiteral("/flash/big.bin"), dir.filePath(QStringLiteral("back.bin"))) &&
                      s.files.lastDownloadOk();
    f.download = down ? kBigFile / seconds(t) : 0;

    // The program's own time per chunk: everything but the prescribed fixed
    // waits (paste drain, 300 ms before data, 400 ms before the checksum,
    // the raw REPL settle) and the bytes' time on the wire.
    const int chunks = (kBigFile * 4 / 3 + 511) / 512;
    const double fixed = 0.3 + 0.3 + 0.4 + 0.3;
    const double wire =
        args.contains(QStringLiteral("--baud")) ? (kBigFile * 4.0 / 3 + chunks * 3) / (kBaud / 10.0) : 0;
    f.perChunkMs = (upSeconds - fixed - wire) * 1000.0 / chunks;

    t.restart();
    s.files.upload(small, QStringLiteral("/flash/small.bin"));
    f.smallUpload = seconds(t);
    t.restart();
    s.files.download(QStringLiteral("/flash/small.bin"), dir.filePath(QStringLiteral("small-back.bin")));
    f.smallDownload = seconds(t);
    t.restart();
    s.files.updateMcDir(QStringLiteral("/flash"));
    f.listing = seconds(t);

    const bool paced = args.contains(QStringLiteral("--baud"));
    const QString key = paced ? QStringLiteral("paced") : QStringLiteral("unpaced");
    const QString where = paced ? QStringLiteral("115200 baud") : QStringLiteral("unpaced");
    const QString group = QStringLiteral("transfer");
    figure(out, group, QStringLiteral("upload_%1").arg(key), f.upload, 0, QStringLiteral("B/s"),
           QStringLiteral("upload of 200 kB, %1").arg(where));
    figure(out, group, QStringLiteral("download_%1").arg(key), f.download, 0, QStringLiteral("B/s"),
           QStringLiteral("download of 200 kB, %1").arg(where));
    if (paced) {
        figure(out, group, QStringLiteral("upload_share_of_ceiling"), 100 * f.upload / kCeiling, 1, QStringLiteral("%"),
               QStringLiteral("upload, share of the 8640 B/s line ceiling"));
        figure(out, group, QStringLiteral("download_share_of_ceiling"), 100 * f.download / kCeiling, 1,
               QStringLiteral("%"), QStringLiteral("download, share of the ceiling"));
    }
    figure(out, group, QStringLiteral("small_upload_%1").arg(key), f.smallUpload, 3, QStringLiteral("s"),
           QStringLiteral("one 100-byte upload, %1").arg(where));
    figure(out, group, QStringLiteral("small_download_%1").arg(key), f.smallDownload, 3, QStringLiteral("s"),
           QStringLiteral("one 100-byte download, %1").arg(where));
    figure(out, group, QStringLiteral("listing_%1").arg(key), f.listing, 3, QStringLiteral("s"),
           QStringLiteral("one listing, %1").arg(where));
    figure(out, group, QStringLiteral("own_time_per_chunk_%1").arg(key), f.perChunkMs, 2, QStringLiteral("ms"),
           QStringLiteral("the program's own time per upload chunk, %1").arg(where));
    out << QStringLiteral("%1: upload %2 B/s (%3% of the %4 B/s ceiling), download %5 B/s (%6%)\n")
               .arg(label)
               .arg(f.upload, 0, 'f', 0)
               .arg(100.0 * f.upload / kCeiling, 0, 'f', 1)
               .arg(kCeiling, 0, 'f', 0)
               .arg(f.download, 0, 'f', 0)
               .arg(100.0 * f.download / kCeiling, 0, 'f', 1);
    out << QStringLiteral("%1: 100-byte upload %2 s, download %3 s, listing %4 s; own time per upload chunk %5 ms\n")
               .arg(label)
               .arg(f.smallUpload, 0, 'f', 3)
               .arg(f.smallDownload, 0, 'f', 3)
               .arg(f.listing, 0, 'f', 3)
               .arg(f.perChunkMs, 0, 'f', 2);
    out.flush();
    return f;
}

// Fast transfers at 115200 baud: Python source (deflated) and random data (sent plain).
void measureFastUploads(const QTemporaryDir& dir, QTextStream& out)
{
    constexpr int kSize = 100 * 1024;
    BoardSession s(QStringLiteral("stm32"), kPaced);
    if (!s.open()) {
        out << "fast uploads: the board did not answer\n";
        return;
    }
    s.files.setFastTransfers(true);
    // Real Python source: modules of the standard library of the Python that runs the tests.
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QStringLiteral("-c"), QStringLiteral("import argparse, inspect, sys\n"
                                                       "sys.stdout.write(inspect.getsource(argparse) + "
                                                       "inspect.getsource(inspect))")});
    python.waitForFinished(30000);
    QByteArray source = python.readAllStandardOutput();
    if (source.size() < kSize) {
        out << "fast uploads: no Python source found\n";
        return;
    }
    source.truncate(kSize);
    const QString sourcePath = dir.filePath(QStringLiteral("module.py"));
    QFile f(sourcePath);
    f.open(QIODevice::WriteOnly | QIODevice::Truncate);
    f.write(source);
    f.close();
    const QString random = writeFile(dir, QStringLiteral("random.bin"), kSize);
    // The script is pasted by the first upload; time the ones after it.
    s.files.upload(random, QStringLiteral("/flash/warm.bin"));
    QElapsedTimer t;
    t.start();
    const bool sourceOk = s.files.upload(sourcePath, QStringLiteral("/flash/module.py"));
    const double sourceSeconds = seconds(t);
    t.restart();
    const bool randomOk = s.files.upload(random, QStringLiteral("/flash/random.bin"));
    const double randomSeconds = seconds(t);
    if (!sourceOk || !randomOk) {
        out << "fast uploads failed\n" << s.log.join(QLatin1Char('\n')) << '\n';
        return;
    }
    figure(out, QStringLiteral("transfer"), QStringLiteral("upload_source_fast_rate"), kSize / sourceSeconds, 0,
           QStringLiteral("B/s"),
           QStringLiteral("upload of a 100 kB Python source file with fast transfers, 115200 baud (goal: 13000)"));
    figure(out, QStringLiteral("transfer"), QStringLiteral("upload_random_fast_share"),
           100 * kSize / randomSeconds / kCeiling, 1, QStringLiteral("%"),
           QStringLiteral("upload of 100 kB of random data with fast transfers, share of the ceiling (goal: 95)"));
}

// Random data both ways with fast transfers on a UART board (a 260-byte
// input ring, 45 ms sector erases) at 115200 baud, as a share of the raw line
// (11,520 B/s): the time of 100 kB minus that of 30 kB, so a command's fixed
// cost does not count.
void measureRawLineShare(const QTemporaryDir& dir, QTextStream& out)
{
    constexpr double kLine = kBaud / 10.0;
    constexpr int kSmall = 30 * 1024;
    constexpr int kLarge = 100 * 1024;
    BoardSession s(QStringLiteral("esp32"),
                   kPaced + QStringList{QStringLiteral("--uart-ring"), QStringLiteral("260"),
                                        QStringLiteral("--erase-ms"), QStringLiteral("45")});
    if (!s.open()) {
        out << "raw line share: the board did not answer\n";
        return;
    }
    s.files.setFastTransfers(true);
    const QString small = writeFile(dir, QStringLiteral("line-small.bin"), kSmall);
    const QString large = writeFile(dir, QStringLiteral("line-large.bin"), kLarge);
    // The helper is pasted by the first upload; time the ones after it.
    bool ok = s.files.upload(small, QStringLiteral("/warm.bin"));
    const auto timed = [&](auto operation) {
        QElapsedTimer t;
        t.start();
        ok = operation() && ok;
        return seconds(t);
    };
    const double upSmall = timed([&] { return s.files.upload(small, QStringLiteral("/small.bin")); });
    const double upLarge = timed([&] { return s.files.upload(large, QStringLiteral("/large.bin")); });
    const QString back = dir.filePath(QStringLiteral("line-back.bin"));
    const double downSmall = timed([&] { return s.files.download(QStringLiteral("/small.bin"), back); });
    const double downLarge = timed([&] { return s.files.download(QStringLiteral("/large.bin"), back); });
    if (!ok || s.board.log().contains(QStringLiteral("bytes lost"))) {
        out << "raw line share: a transfer failed\n" << s.log.join(QLatin1Char('\n')) << '\n';
        return;
    }
    const double marginal = kLarge - kSmall;
    figure(out, QStringLiteral("transfer"), QStringLiteral("upload_random_fast_line_share"),
           100 * marginal / (upLarge - upSmall) / kLine, 1, QStringLiteral("%"),
           QStringLiteral("upload of random data with fast transfers, share of the 11,520 B/s line, marginal "
                          "(100 kB minus 30 kB), 260-byte ring, 45 ms erases (goal: 90)"));
    figure(out, QStringLiteral("transfer"), QStringLiteral("download_random_fast_line_share"),
           100 * marginal / (downLarge - downSmall) / kLine, 1, QStringLiteral("%"),
           QStringLiteral("the same for a download (goal: 90)"));
}

// What a script calling pelkam-cli in a loop pays for each command, from
// start to exit, at 115200 baud: the median of five runs.
void measureCliCommands(const QTemporaryDir& dir, QTextStream& out)
{
    VirtualBoard board(QStringLiteral("esp32"), kPaced, {{"main.py", "print('main')\n"}, {"lib/", {}}});
    const QString script = ::writeFile(dir.filePath(QStringLiteral("cli-exec.py")), "print(6*7)\n");
    const auto median = [&](const QStringList& command, bool fast) {
        QList<double> runs;
        for (int i = 0; i < 5; ++i) {
            QProcess cli;
            QElapsedTimer t;
            t.start();
            cli.start(QStringLiteral(PELKAM_CLI_PATH),
                      QStringList{QStringLiteral("--port"), board.path(),
                                  fast ? QStringLiteral("--fast") : QStringLiteral("--no-fast")} +
                          command);
            if (!cli.waitForFinished(60000) || cli.exitCode() != 0)
                return -1.0;
            runs << seconds(t);
        }
        std::sort(runs.begin(), runs.end());
        return runs.at(runs.size() / 2);
    };
    const QStringList ls{QStringLiteral("ls"), QStringLiteral("/")};
    const QStringList exec{QStringLiteral("exec"), script};
    const QString group = QStringLiteral("transfer");
    figure(out, group, QStringLiteral("cli_ls_fast_s"), median(ls, true), 3, QStringLiteral("s"),
           QStringLiteral("pelkam-cli ls at 115200 baud, start to exit, fast transfers (goal: at most 0.3)"));
    figure(out, group, QStringLiteral("cli_exec_fast_s"), median(exec, true), 3, QStringLiteral("s"),
           QStringLiteral("pelkam-cli exec of a one-line script, the same (goal: at most 0.3)"));
    figure(out, group, QStringLiteral("cli_ls_default_s"), median(ls, false), 3, QStringLiteral("s"),
           QStringLiteral("pelkam-cli ls with --no-fast, for comparison"));
}

void measureTransfers(const QTemporaryDir& dir, QTextStream& out)
{
    measureCliCommands(dir, out);
    measure(QStringLiteral("115200 baud"), kPaced, dir, out);
    measure(QStringLiteral("unpaced"), {QStringLiteral("--polite")}, dir, out);
    measureFastUploads(dir, out);
    measureRawLineShare(dir, out);

    long before = 0;
    long after = 0;
    {
        BoardSession s(QStringLiteral("stm32"),
                       {QStringLiteral("--polite"), QStringLiteral("--heap"), QStringLiteral("1048576")});
        before = peakRssKb();
        if (s.open()) {
            const QString huge = writeFile(dir, QStringLiteral("huge.bin"), kHugeFile);
            s.files.upload(huge, QStringLiteral("/flash/huge.bin"));
            after = peakRssKb();
        }
    }
    const double expectedKb = kHugeFile * (1 + 4.0 / 3) / 1024;
    figure(out, QStringLiteral("transfer"), QStringLiteral("huge_upload_peak_growth"), after - before, 0,
           QStringLiteral("kB"),
           QStringLiteral("peak memory growth uploading 10 MB (the file raw and as base64: %1 kB)")
               .arg(expectedKb, 0, 'f', 0));
}

// Opening a long Python file until it is shown and highlighted, then one
// typed character in its middle (highlighting and extra selections included).
void measureEditor(QTextStream& out)
{
    constexpr int kLines = 5000;
    QByteArray source;
    for (int i = 0; i < kLines / 5; ++i)
        source += QStringLiteral("def handler_%1(pin, value=0x1F):\n    \"\"\"Doc %1.\"\"\"\n"
                                 "    data = [machine.Pin(%1), {'k': (value + 1) * 2}]  # note\n"
                                 "    print('value', value, data)\n    return len(data)\n")
                      .arg(i)
                      .toUtf8();
    QElapsedTimer t;
    t.start();
    CodeEditor dialog;
    dialog.load(QStringLiteral("main.py"), source);
    dialog.show();
    QCoreApplication::processEvents();
    const double open = t.nsecsElapsed() / 1e6;
    QCodeEditor* editor = dialog.editor();
    QTextCursor cursor = editor->textCursor();
    cursor.setPosition(source.size() / 2);
    editor->setTextCursor(cursor);
    constexpr int kKeys = 50;
    t.restart();
    for (int i = 0; i < kKeys; ++i) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, QStringLiteral("a"));
        QCoreApplication::sendEvent(editor, &press);
        QCoreApplication::processEvents();
    }
    const double key = t.nsecsElapsed() / 1e6 / kKeys;
    figure(out, QStringLiteral("editor"), QStringLiteral("editor_open_5000_lines"), open, 1, QStringLiteral("ms"),
           QStringLiteral("open a 5,000-line Python file until shown and highlighted (goal: under 100 ms)"));
    figure(out, QStringLiteral("editor"), QStringLiteral("editor_key_5000_lines"), key, 2, QStringLiteral("ms"),
           QStringLiteral("one typed character in its middle (goal: under 5 ms)"));
}

// Sections of groups not measured in this run, and any other section (such as
// "## Fuzzing"), are kept from the existing report.
void writeReport(const QString& path, const QStringList& groups)
{
    QMap<QString, QString> oldSections;
    QStringList oldOrder;
    {
        QFile old(path);
        if (old.open(QIODevice::ReadOnly)) {
            const QStringList parts = QString::fromUtf8(old.readAll()).split(QStringLiteral("\n## "));
            for (int i = 1; i < parts.size(); ++i) {
                const QString heading = parts.at(i).section(QLatin1Char('\n'), 0, 0).trimmed();
                oldSections.insert(heading, QStringLiteral("\n## ") + parts.at(i).trimmed() + QLatin1Char('\n'));
                oldOrder << heading;
            }
        }
    }
    QMap<QString, QString> fresh;
    for (const Figure& f : qAsConst(g_figures)) {
        const QString heading = f.group.at(0).toUpper() + f.group.mid(1);
        QString& section = fresh[heading];
        if (section.isEmpty())
            section = QStringLiteral("\n## %1\n\n| figure | name | value |\n|---|---|---|\n").arg(heading);
        section += QStringLiteral("| %1 | `%2` | %3 %4 |\n")
                       .arg(f.meaning, f.name, QString::number(f.value, 'f', f.precision), f.unit);
    }
    QFile report(path);
    if (!report.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    QTextStream md(&report);
    md << "# Performance\n\n"
       << "Measured on the development machine (2 cores), against the virtual board, last on "
       << QDate::currentDate().toString(Qt::ISODate) << "; rerun with\n\n"
       << "    build/tools/benchmark/pelkam-benchmark [--only GROUP] --write docs/PERFORMANCE.md\n\n"
       << "The ceiling at 115200 baud is the line rate through base64: 115200 / 10 x 3 / 4 = "
       << QString::number(kCeiling, 'f', 0) << " file bytes per second. Small operations are dominated by\n"
       << "the fixed waits of the protocol (the drain after every script paste, 300 ms before the data and\n"
       << "400 ms before the checksum of an upload).\n\n"
       << "Figures ending in `_fast` are taken with fast transfers on (scripts pasted once, long calls in\n"
       << "MicroPython's raw-paste mode, no fixed waits, batched digests, deflated blocks); the ones beside\n"
       << "them without it are the default mode. The\n"
       << "official command-line tool, measured on an independent board at 115200 baud, took 43 s for the\n"
       << "first copy of a 50-file project, 10.7 s with five files changed and 6.6 s with none.\n";
    for (const QString& group : groups) {
        const QString heading = group.at(0).toUpper() + group.mid(1);
        md << (fresh.contains(heading) ? fresh.value(heading) : oldSections.value(heading));
        oldOrder.removeAll(heading);
    }
    for (const QString& heading : qAsConst(oldOrder))
        md << oldSections.value(heading);
}
} // namespace

// A board printing at the full 115200-baud line rate into the Terminal with
// a limit of 10,000 lines: the CPU it takes and whether memory stays flat.
void measureTerminal(QTextStream& out)
{
    constexpr int kLimit = 10000;
    constexpr int kLines = 100000;
    const QString text = QStringLiteral("sensor %1: t=23.45 C, h=41.2 %, p=1013.2 hPa, \x1b[32mok\x1b[0m");
    const double linesPerSecond = kBaud / 10.0 / (text.size() + 6); // the number and "\r\n"
    QSettings().setValue(QStringLiteral("UI/TerminalLines"), kLimit);
    PelkamWindow w;
    w.readSettings();
    w.show();
    const auto feed = [&](int count) {
        for (int i = 0; i < count; ++i) {
            w.terminalAppend(text.arg(i % 10000));
            // The views repaint as often as the serial port delivers lines.
            if (i % 20 == 0)
                QCoreApplication::processEvents();
        }
        QCoreApplication::processEvents();
    };
    feed(2 * kLimit);
    const long before = statusKb("VmRSS");
    const double cpu = cpuSeconds();
    feed(kLines);
    const double spent = cpuSeconds() - cpu;
    const long after = statusKb("VmRSS");
    QSettings().remove(QStringLiteral("UI/TerminalLines"));
    figure(out, QStringLiteral("terminal"), QStringLiteral("terminal_cpu_share_at_line_rate"),
           100 * spent / kLines * linesPerSecond, 1, QStringLiteral("%"),
           QStringLiteral("one core's share the Terminal takes at the 115200-baud line rate, 10,000 lines kept "
                          "(goal: under 20)"));
    figure(out, QStringLiteral("terminal"), QStringLiteral("terminal_rss_growth_100k_lines"), after - before, 0,
           QStringLiteral("kB"),
           QStringLiteral("memory growth over 100,000 more lines (%1 minutes at that rate), 10,000 kept (goal: flat)")
               .arg(kLines / linesPerSecond / 60, 0, 'f', 0));
}

// The Plotter showing two series at the 115200-baud line rate (about 1,000
// short lines a second) for ten seconds of real time: the share of a core it
// takes, then whether memory stays flat over ten minutes' worth of lines.
void measurePlot(QTextStream& out)
{
    constexpr int kLinesPerSecond = 1000;
    constexpr int kSeconds = 10;
    constexpr int kTickMs = 10;
    constexpr int kTenMinutes = kLinesPerSecond * 600;
    PelkamWindow w;
    w.show();
    w.action(QStringLiteral("actionPlotter"))->trigger();
    auto* plotter = w.findChild<PlotterView*>(QStringLiteral("plotterView"));
    int sent = 0;
    const auto line = [&sent] {
        ++sent;
        return QStringLiteral("temp: %1 hum: %2")
            .arg(21 + 2 * std::sin(sent / 400.0), 0, 'f', 2)
            .arg(45 + 6 * std::cos(sent / 550.0), 0, 'f', 1);
    };
    QElapsedTimer wall;
    wall.start();
    const double cpu = cpuSeconds();
    QTimer feed;
    // Lines arrive as the serial port delivers them: a few every tick, on time.
    QObject::connect(&feed, &QTimer::timeout, [&] {
        const qint64 due = wall.elapsed() * kLinesPerSecond / 1000;
        while (sent < due)
            plotter->addLine(line());
    });
    feed.start(kTickMs);
    QEventLoop loop;
    QTimer::singleShot(kSeconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    feed.stop();
    const double share = 100 * (cpuSeconds() - cpu) / seconds(wall);
    figure(out, QStringLiteral("terminal"), QStringLiteral("plot_cpu_share"), share, 1, QStringLiteral("%"),
           QStringLiteral("one core's share the Plotter takes drawing two series at about 1,000 lines a second, "
                          "2,000 points kept (goal: under 10)"));
    const long before = statusKb("VmRSS");
    for (int i = 0; i < kTenMinutes; ++i) {
        plotter->addLine(line());
        if (i % 5000 == 0) {
            plotter->refresh();
            QCoreApplication::processEvents();
        }
    }
    plotter->refresh();
    const long after = statusKb("VmRSS");
    figure(out, QStringLiteral("terminal"), QStringLiteral("plot_rss_growth_10_min"), after - before, 0,
           QStringLiteral("kB"),
           QStringLiteral("memory growth over ten more minutes of lines at that rate (goal: flat)"));
}

// The same board over WebREPL on this machine's loopback: what the transport
// and its flow control cost, beside the serial figures of the same run.
void measureWebRepl(const QTemporaryDir& dir, QTextStream& out)
{
    const QStringList served{QStringLiteral("--polite"), QStringLiteral("--webrepl"), QStringLiteral("0"),
                             QStringLiteral("--password"), QStringLiteral("bench-pw")};
    BoardSession s(QStringLiteral("esp32"), served);
    s.password = QStringLiteral("bench-pw");
    if (!s.open()) {
        out << "webrepl: the board did not answer\n";
        return;
    }
    const QString big = writeFile(dir, QStringLiteral("webrepl-big.bin"), kBigFile);
    QElapsedTimer t;
    t.start();
    const bool up = s.files.upload(big, QStringLiteral("/big.bin"));
    const double upload = up ? kBigFile / seconds(t) : 0;
    // Fast transfers: the data goes through WebREPL's own file protocol. The
    // first upload of a connection also pastes the helper; the next does not.
    s.files.setFastTransfers(true);
    t.restart();
    const bool upCold = s.files.upload(big, QStringLiteral("/big-cold.bin"));
    const double uploadCold = upCold ? kBigFile / seconds(t) : 0;
    t.restart();
    const bool upFast = s.files.upload(big, QStringLiteral("/big-fast.bin"));
    const double uploadFast = upFast ? kBigFile / seconds(t) : 0;
    s.files.setFastTransfers(false);
    t.restart();
    const bool down = s.files.download(QStringLiteral("/big.bin"), dir.filePath(QStringLiteral("webrepl-back.bin"))) &&
                      s.files.lastDownloadOk();
    const double download = down ? kBigFile / seconds(t) : 0;

    const QString root = dir.filePath(QStringLiteral("webrepl-project"));
    writeProject(root, kSyncFiles, 0);
    Synchronizer sync(s.files);
    Synchronizer::Options options;
    options.createDirs = true;
    t.restart();
    const bool synced =
        sync.synchronize(root, QStringLiteral("/app/"), Synchronizer::collectSyncFiles(root, QString(), true), options);
    const double first = synced ? seconds(t) : -1;
    const QString group = QStringLiteral("webrepl");
    figure(out, group, QStringLiteral("webrepl_upload_Bps"), uploadFast, 0, QStringLiteral("B/s"),
           QStringLiteral("upload of 200 kB over WebREPL on the loopback, fast transfers (WebREPL's file protocol), "
                          "the helper already pasted"));
    figure(out, group, QStringLiteral("webrepl_upload_first_Bps"), uploadCold, 0, QStringLiteral("B/s"),
           QStringLiteral("the same as the connection's first fast upload, which pastes the helper (3 kB)"));
    figure(out, group, QStringLiteral("webrepl_upload_default_Bps"), upload, 0, QStringLiteral("B/s"),
           QStringLiteral("the same upload in the default mode"));
    figure(out, group, QStringLiteral("webrepl_download_Bps"), download, 0, QStringLiteral("B/s"),
           QStringLiteral("download of 200 kB over WebREPL on the loopback"));
    figure(out, group, QStringLiteral("webrepl_sync_first_s"), first, 2, QStringLiteral("s"),
           QStringLiteral("first copy of the 50-file project over WebREPL, default mode"));
}

// Boards behind ser2net on this machine's loopback: what RFC 2217 costs
// against the board's own device, and many remote boards at once.
void measureRemote(const QTemporaryDir& dir, QTextStream& out)
{
    const QString big = writeFile(dir, QStringLiteral("remote-big.bin"), kBigFile);
    const auto timedUpload = [&big](bool remote, bool fast) {
        BoardSession s(QStringLiteral("esp32"), {QStringLiteral("--polite")});
        Ser2Net daemon({s.board.path()});
        if (remote)
            s.port = daemon.rfc2217();
        s.files.setFastTransfers(fast);
        if (!s.open())
            return -1.0;
        QElapsedTimer t;
        t.start();
        return s.files.upload(big, QStringLiteral("/big.bin")) ? kBigFile / seconds(t) : -1.0;
    };
    const QString group = QStringLiteral("remote");
    figure(out, group, QStringLiteral("rfc2217_upload_Bps"), timedUpload(true, false), 0, QStringLiteral("B/s"),
           QStringLiteral("upload of 200 kB through ser2net's RFC 2217 port on the loopback, unpaced, default mode"));
    figure(out, group, QStringLiteral("rfc2217_upload_fast_Bps"), timedUpload(true, true), 0, QStringLiteral("B/s"),
           QStringLiteral("the same with fast transfers"));
    figure(out, group, QStringLiteral("pty_upload_Bps"), timedUpload(false, false), 0, QStringLiteral("B/s"),
           QStringLiteral("the same upload on the board's own pty, default mode, for comparison"));
    const QString root = dir.filePath(QStringLiteral("remote-many"));
    writeProject(root, 10, 0);
    const double one = timedManySync(root, 1, true);
    const double three = timedManySync(root, 3, true);
    if (one <= 0 || three <= 0) {
        out << "remote: a pelkam-cli sync failed\n";
        return;
    }
    figure(out, group, QStringLiteral("remote_three_boards_ratio"), three / one, 2, QStringLiteral("x"),
           QStringLiteral("first sync of a 10-file project onto three boards behind ser2net at once, against one "
                          "(goal: at most 1.3)"));
}

int main(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir settingsDir;
    isolateSettings(settingsDir);
    const QStringList args = app.arguments();
    const int write = args.indexOf(QStringLiteral("--write"));
    const int only = args.indexOf(QStringLiteral("--only"));
    const QString group = only >= 0 ? args.value(only + 1) : QString();
    const QStringList groups{QStringLiteral("transfer"), QStringLiteral("sync"),   QStringLiteral("packages"),
                             QStringLiteral("webrepl"),  QStringLiteral("remote"), QStringLiteral("editor"),
                             QStringLiteral("terminal")};
    if (only >= 0 && !groups.contains(group)) {
        QTextStream(stderr) << "pelkam-benchmark: --only takes one of " << groups.join(QStringLiteral(", ")) << '\n';
        return 2;
    }
    QTemporaryDir dir;
    QTextStream out(stdout);
    const auto wanted = [&group](const char* name) { return group.isEmpty() || group == QLatin1String(name); };
    if (wanted("transfer"))
        measureTransfers(dir, out);
    if (wanted("sync")) {
        measureSync(dir, out);
        measureManyBoards(dir, out);
    }
    if (wanted("packages"))
        measurePackages(dir, out);
    if (wanted("webrepl"))
        measureWebRepl(dir, out);
    if (wanted("remote"))
        measureRemote(dir, out);
    if (wanted("editor"))
        measureEditor(out);
    if (wanted("terminal")) {
        measureTerminal(out);
        measurePlot(out);
    }
    if (write >= 0 && write + 1 < args.size())
        writeReport(args.at(write + 1), groups);
    return 0;
}
