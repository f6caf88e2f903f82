#include "everyport.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTextStream>
#include <QTimer>

#include <csignal>

namespace {
volatile std::sig_atomic_t g_stopRequested = 0;

void requestStop(int)
{
    g_stopRequested = 1;
}
} // namespace

void installStopHandlers()
{
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
}

bool stopRequested()
{
    return g_stopRequested != 0;
}

bool pump(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
    return g_stopRequested == 0;
}

// One child process per board, each with its own link and event loop.
int runOnEveryPort(const QStringList& ports)
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
        b.process->start(QCoreApplication::applicationFilePath(),
                         QStringList{QStringLiteral("--port"), b.port} + common);
    }
    const auto running = [&boards] {
        for (const Board& b : boards)
            if (b.process->state() != QProcess::NotRunning)
                return true;
        return false;
    };
    bool stopping = false;
    while (running()) {
        if (!pump(50) && !stopping) {
            stopping = true;
            for (Board& b : boards)
                b.process->terminate();
        }
    }
    int failed = 0;
    for (Board& b : boards) {
        pass(b, 0, true);
        pass(b, 1, true);
        const bool ok = b.process->error() != QProcess::FailedToStart &&
                        b.process->exitStatus() == QProcess::NormalExit && b.process->exitCode() == 0;
        failed += ok ? 0 : 1;
        err << b.port << ": " << (ok ? QStringLiteral("ok") : QStringLiteral("failed (exit %1)").arg(b.process->exitCode()))
            << '\n';
    }
    err << boards.size() - failed << " of " << boards.size() << " boards succeeded\n" << Qt::flush;
    return failed == 0 ? 0 : 1;
}
