#include "virtualboard.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <csignal>

namespace {
constexpr int kStartTimeoutMs = 15000;
constexpr int kDumpTimeoutMs = 5000;
} // namespace

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
    args << extraArgs;
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
    const QString stamp = dir + QStringLiteral("/.stamp");
    QDir(dir).mkpath(QStringLiteral("."));
    QFile(stamp).open(QIODevice::WriteOnly);
    ::kill(static_cast<pid_t>(m_process.processId()), SIGUSR1);
    // The board rewrites the whole folder, so the stamp disappears when done.
    QElapsedTimer timer;
    timer.start();
    while ((QFile::exists(stamp) || !QFileInfo::exists(dir)) && timer.elapsed() < kDumpTimeoutMs) {
        QCoreApplication::processEvents();
        QThread::msleep(10);
    }
    return dir;
}

QByteArray VirtualBoard::readFile(const QString& relativePath)
{
    QFile file(m_dir.filePath(QStringLiteral("dump/")) + relativePath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString VirtualBoard::log() const
{
    return QString::fromUtf8(const_cast<QProcess&>(m_process).readAllStandardError());
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
