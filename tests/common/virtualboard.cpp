#include "virtualboard.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <csignal>

namespace {
constexpr int kStartTimeoutMs = 15000;
constexpr int kDumpTimeoutMs = 10000;
} // namespace

QStringList VirtualBoard::rudeArgs()
{
    // A failure on a fragmented board is replayed with the seed it printed.
    bool fixed = false;
    const int seed = qEnvironmentVariableIntValue("PELKAM_BOARD_SEED", &fixed);
    const int used = fixed ? seed : static_cast<int>(QRandomGenerator::global()->bounded(1 << 30));
    qInfo("virtual board: --lf-enter --fragment %d (PELKAM_BOARD_SEED=%d replays it)", used, used);
    return {QStringLiteral("--lf-enter"), QStringLiteral("--fragment"), QString::number(used)};
}

QString VirtualBoard::sourceDir()
{
    return QStringLiteral(PELKAM_SOURCE_DIR);
}

VirtualBoard::VirtualBoard(const QString& flavour, const QStringList& extraArgs,
                           const QMap<QString, QByteArray>& seedFiles)
{
    QDir seed(m_dir.path());
    seed.mkpath(QStringLiteral("seed"));
    seed.cd(QStringLiteral("seed"));
    for (auto it = seedFiles.cbegin(); it != seedFiles.cend(); ++it) {
        if (it.key().endsWith(QLatin1Char('/'))) {
            seed.mkpath(it.key());
            continue;
        }
        seed.mkpath(QFileInfo(it.key()).path());
        QFile file(seed.filePath(it.key()));
        if (file.open(QIODevice::WriteOnly))
            file.write(it.value());
    }
    QStringList args{QStringLiteral("--flavour"), flavour,
                     QStringLiteral("--link"),    m_dir.filePath(QStringLiteral("tty")),
                     QStringLiteral("--dump"),    m_dir.filePath(QStringLiteral("dump"))};
    if (!extraArgs.contains(QStringLiteral("--seed")))
        args << QStringLiteral("--seed") << seedDir();
    QStringList rest = extraArgs;
    if (!rest.removeAll(QStringLiteral("--polite")))
        args << rudeArgs();
    args << rest;
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.start(sourceDir() + QStringLiteral("/tools/virtual-board/virtual-board"), args);
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < kStartTimeoutMs && m_process.state() != QProcess::NotRunning) {
        if (m_process.canReadLine()) {
            m_path = QString::fromUtf8(m_process.readLine()).trimmed();
            break;
        }
        m_process.waitForReadyRead(100);
    }
}

VirtualBoard::~VirtualBoard()
{
    stop();
}

QString VirtualBoard::seedDir() const
{
    return m_dir.filePath(QStringLiteral("seed"));
}

QString VirtualBoard::dump()
{
    const QString dir = m_dir.filePath(QStringLiteral("dump"));
    // The board answers every request with one line on its standard error.
    m_stderr += m_process.readAllStandardError();
    const int answered = m_stderr.count("virtual-board: dumped") + m_stderr.count("dump not written");
    ::kill(static_cast<pid_t>(m_process.processId()), SIGUSR1);
    QElapsedTimer timer;
    timer.start();
    while (m_stderr.count("virtual-board: dumped") + m_stderr.count("dump not written") == answered &&
           timer.elapsed() < kDumpTimeoutMs && m_process.state() == QProcess::Running) {
        m_process.waitForReadyRead(50);
        m_stderr += m_process.readAllStandardError();
    }
    return dir;
}

QByteArray VirtualBoard::readFile(const QString& relativePath)
{
    QFile file(m_dir.filePath(QStringLiteral("dump/")) + relativePath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString VirtualBoard::log()
{
    m_stderr += m_process.readAllStandardError();
    return QString::fromUtf8(m_stderr);
}

void VirtualBoard::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished(1000);
    m_path.clear();
}

void VirtualBoard::unplug()
{
    ::kill(static_cast<pid_t>(m_process.processId()), SIGUSR2);
}

void VirtualBoard::hardReset()
{
    ::kill(static_cast<pid_t>(m_process.processId()), SIGWINCH);
}

void VirtualBoard::freeze(bool frozen)
{
    ::kill(static_cast<pid_t>(m_process.processId()), frozen ? SIGSTOP : SIGCONT);
}
