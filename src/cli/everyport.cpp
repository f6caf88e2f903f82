#include "everyport.h"

#include "link/transports.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QTextStream>
#include <QTimer>

#include <QDir>
#include <QFileInfo>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {
volatile std::sig_atomic_t g_stopRequested = 0;
volatile std::sig_atomic_t g_signal = 0;
int g_wake[2] = {-1, -1};

void requestStop(int signal)
{
    g_stopRequested = 1;
    g_signal = signal;
    if (g_wake[1] >= 0) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t n = ::write(g_wake[1], &byte, 1);
    }
}
// Options that take a value, so their values are not taken for arguments.
const QStringList kValueOptions{QStringLiteral("port"), QStringLiteral("type"), QStringLiteral("baud"),
                                QStringLiteral("password-file")};
} // namespace

void installStopHandlers()
{
    if (g_wake[0] < 0 && ::pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0)
        g_wake[0] = g_wake[1] = -1;
    StopSignals::instance();
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // Past a file-size limit a write fails with EFBIG, which we report,
    // instead of the process being killed with the old file half replaced.
    ::signal(SIGXFSZ, SIG_IGN);
}

bool stopRequested()
{
    return g_stopRequested != 0;
}

int stopSignal()
{
    return g_signal;
}

StopSignals& StopSignals::instance()
{
    static StopSignals stopSignals;
    return stopSignals;
}

StopSignals::StopSignals()
{
    if (g_wake[0] < 0)
        return;
    auto* notifier = new QSocketNotifier(g_wake[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        while (::read(g_wake[0], bytes, sizeof bytes) > 0) {
        }
        emit requested(g_signal);
    });
}

bool pump(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
    return g_stopRequested == 0;
}

QString portFolder(const QString& port, const QStringList& ports)
{
    // A network board is named by its host and port ("192.168.4.1_8266").
    const auto shortName = [](const QString& p) { return Transports::shortName(p); };
    const QString name = shortName(port);
    int sharing = 0;
    for (const QString& other : ports)
        sharing += shortName(other) == name ? 1 : 0;
    if (sharing <= 1 && !name.isEmpty())
        return name;
    QString whole = QDir::cleanPath(port);
    whole.replace(QLatin1Char('/'), QLatin1Char('_'));
    while (whole.startsWith(QLatin1Char('_')))
        whole.remove(0, 1);
    return whole;
}

// One child process per board, each with its own link and event loop.
int runOnEveryPort(const QStringList& ports, int localArg, bool localIsFolder)
{
    QStringList common = QCoreApplication::arguments().mid(1);
    for (int i = 0; i < common.size();) {
        if (common.at(i) == QLatin1String("--port") || common.at(i) == QLatin1String("-port"))
            common.erase(common.begin() + i, common.begin() + qMin(i + 2, common.size()));
        else if (common.at(i).startsWith(QLatin1String("--port=")))
            common.removeAt(i);
        else
            ++i;
    }
    // Where the positional words stand: the command, then its arguments.
    QList<int> positional;
    for (int i = 0; i < common.size(); ++i) {
        const QString word = common.at(i);
        if (word == QLatin1String("--")) {
            for (++i; i < common.size(); ++i)
                positional << i;
            break;
        }
        if (word.startsWith(QLatin1Char('-'))) {
            QString name = word.mid(word.startsWith(QLatin1String("--")) ? 2 : 1);
            if (!name.contains(QLatin1Char('=')) && kValueOptions.contains(name))
                ++i;
            continue;
        }
        positional << i;
    }
    const int localIndex = localArg >= 0 && localArg + 1 < positional.size() ? positional.at(localArg + 1) : -1;
    QTextStream out(stdout);
    QTextStream err(stderr);
    struct Board {
        QString port;
        QProcess* process;
        QByteArray pending[2];
    };
    QList<Board> boards;
    for (const QString& port : ports)
        boards.append({port, new QProcess(qApp), {}});
    const auto pass = [&](Board& b, int channel, bool all) {
        QByteArray& buffer = b.pending[channel];
        b.process->setReadChannel(channel == 0 ? QProcess::StandardOutput : QProcess::StandardError);
        buffer += b.process->readAll();
        QTextStream& to = channel == 0 ? out : err;
        int end;
        while ((end = buffer.indexOf('\n')) >= 0 || (all && !buffer.isEmpty())) {
            const QByteArray line = end >= 0 ? buffer.left(end) : buffer;
            buffer.remove(0, end >= 0 ? end + 1 : buffer.size());
            // Progress lines redraw themselves with "\r"; only their last state is passed on.
            to << b.port << '\t' << QString::fromLocal8Bit(line.mid(line.lastIndexOf('\r') + 1)) << '\n' << Qt::flush;
        }
    };
    for (Board& b : boards) {
        QObject::connect(b.process, &QProcess::readyReadStandardOutput, [&pass, &b] { pass(b, 0, false); });
        QObject::connect(b.process, &QProcess::readyReadStandardError, [&pass, &b] { pass(b, 1, false); });
        QStringList args = common;
        if (localIndex >= 0) {
            // Every board writes into its own subfolder: never one path from several boards.
            const QString given = args.at(localIndex);
            const QFileInfo local(given);
            const QString folder = portFolder(b.port, ports);
            // A get into a folder stays a get into a folder, one per board.
            const bool intoFolder = localIsFolder || given.endsWith(QLatin1Char('/')) || local.isDir();
            const QString mine = intoFolder
                                     ? QDir(local.filePath()).filePath(folder)
                                     : QDir(local.path()).filePath(folder + QLatin1Char('/') + local.fileName());
            QDir().mkpath(intoFolder ? mine : QFileInfo(mine).path());
            args[localIndex] = mine;
        }
        b.process->start(QCoreApplication::applicationFilePath(), QStringList{QStringLiteral("--port"), b.port} + args);
    }
    const auto running = [&boards] {
        for (const Board& b : boards)
            if (b.process->state() != QProcess::NotRunning)
                return true;
        return false;
    };
    // A stop is passed on as it came; a child that has not ended well after
    // its own limit is killed, so the parent never hangs on it.
    constexpr int kChildGraceMs = 5000;
    QElapsedTimer stopping;
    while (running()) {
        if (!pump(50) && !stopping.isValid()) {
            stopping.start();
            for (Board& b : boards)
                if (b.process->state() != QProcess::NotRunning)
                    ::kill(static_cast<pid_t>(b.process->processId()), stopSignal());
        }
        if (stopping.isValid() && stopping.elapsed() > kChildGraceMs)
            for (Board& b : boards)
                b.process->kill();
    }
    int failed = 0;
    for (Board& b : boards) {
        pass(b, 0, true);
        pass(b, 1, true);
        const bool ok = b.process->error() != QProcess::FailedToStart &&
                        b.process->exitStatus() == QProcess::NormalExit && b.process->exitCode() == 0;
        failed += ok ? 0 : 1;
        err << b.port << ": "
            << (ok ? QStringLiteral("ok") : QStringLiteral("failed (exit %1)").arg(b.process->exitCode())) << '\n';
    }
    err << boards.size() - failed << " of " << boards.size() << " boards succeeded\n" << Qt::flush;
    if (stopRequested())
        return 128 + stopSignal();
    return failed == 0 ? 0 : 1;
}
