// Measures transfer speed, small-operation latency and memory against the
// virtual board, paced at 115200 baud and unpaced, and prints the figures.
//   pelkam-benchmark [--write FILE]   (FILE gets a Markdown report)
#include "boardsession.h"

#include <QCoreApplication>
#include <QDate>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTextStream>

namespace {
constexpr int kBaud = 115200;
constexpr double kCeiling = kBaud / 10.0 * 3.0 / 4.0; // file bytes per second through base64
constexpr int kBigFile = 200 * 1024;
constexpr int kSmallFile = 100;
constexpr int kHugeFile = 10 * 1024 * 1024;

long peakRssKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return -1;
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
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir settingsDir;
    isolateSettings(settingsDir);
    const QStringList args = app.arguments();
    const int write = args.indexOf(QStringLiteral("--write"));
    QTemporaryDir dir;
    QTextStream out(stdout);

    const Figures paced =
        measure(QStringLiteral("115200 baud"), {QStringLiteral("--baud"), QString::number(kBaud)}, dir, out);
    const Figures unpaced = measure(QStringLiteral("unpaced"), {}, dir, out);

    long before = 0;
    long after = 0;
    double hugeSeconds = 0;
    {
        BoardSession s(QStringLiteral("stm32"), {QStringLiteral("--heap"), QStringLiteral("1048576")});
        before = peakRssKb();
        if (s.open()) {
            const QString huge = writeFile(dir, QStringLiteral("huge.bin"), kHugeFile);
            QElapsedTimer t;
            t.start();
            s.files.upload(huge, QStringLiteral("/flash/huge.bin"));
            hugeSeconds = seconds(t);
            after = peakRssKb();
        }
    }
    const double expectedKb = kHugeFile * (1 + 4.0 / 3) / 1024;
    out << QStringLiteral(
               "10 MB upload (unpaced, %1 s): peak memory grew by %2 kB; the file raw and in base64 is %3 kB\n")
               .arg(hugeSeconds, 0, 'f', 1)
               .arg(after - before)
               .arg(expectedKb, 0, 'f', 0);
    out.flush();

    if (write >= 0 && write + 1 < args.size()) {
        QFile report(args.at(write + 1));
        if (!report.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 1;
        QTextStream md(&report);
        md << "# Performance\n\n"
           << "Measured on " << QDate::currentDate().toString(Qt::ISODate)
           << " on the development machine (2 cores), against the virtual board; rerun with\n\n"
           << "    build/tools/benchmark/pelkam-benchmark --write docs/PERFORMANCE.md\n\n"
           << "The ceiling at 115200 baud is the line rate through base64: 115200 / 10 x 3 / 4 = "
           << QString::number(kCeiling, 'f', 0) << " file bytes per second.\n\n"
           << "| figure | 115200 baud | unpaced |\n|---|---|---|\n";
        auto row = [&](const char* name, double a, double b, int precision, const char* unit) {
            md << "| " << name << " | " << QString::number(a, 'f', precision) << unit << " | "
               << QString::number(b, 'f', precision) << unit << " |\n";
        };
        row("upload of 200 kB", paced.upload, unpaced.upload, 0, " B/s");
        row("download of 200 kB", paced.download, unpaced.download, 0, " B/s");
        md << "| upload, share of the ceiling | " << QString::number(100 * paced.upload / kCeiling, 'f', 1)
           << "% | |\n| download, share of the ceiling | " << QString::number(100 * paced.download / kCeiling, 'f', 1)
           << "% | |\n";
        row("one 100-byte upload", paced.smallUpload, unpaced.smallUpload, 3, " s");
        row("one 100-byte download", paced.smallDownload, unpaced.smallDownload, 3, " s");
        row("one listing", paced.listing, unpaced.listing, 3, " s");
        row("own time per upload chunk", paced.perChunkMs, unpaced.perChunkMs, 2, " ms");
        md << "\nPeak memory (VmHWM) while writing and uploading a 10 MB file grew by " << (after - before)
           << " kB; the file held raw and as base64 is " << QString::number(expectedKb, 'f', 0) << " kB.\n\n"
           << "Small operations are dominated by the fixed waits of the protocol (the drain after every\n"
           << "script paste, 300 ms before the data and 400 ms before the checksum of an upload).\n";
    }
    return 0;
}
