#pragma once

#include "testsupport.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QMap>
#include <QProcess>

#include <csignal>

// pelkam-cli run to its end. A hang (two minutes) and a crash are results of
// their own, never taken for an exit status.
struct CliRun {
    static constexpr int kHung = -1000;
    static constexpr int kCrashed = -1001;
    int code;
    QByteArray out;
    QByteArray err;
};

inline CliRun runCli(const QStringList& args)
{
    QProcess p;
    p.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    p.start(QString::fromLocal8Bit(qgetenv("PELKAM_CLI")), args);
    // Qt reports exit code 0 for a process still running.
    if (!p.waitForFinished(120000)) {
        p.kill();
        p.waitForFinished(5000);
        return {CliRun::kHung, p.readAllStandardOutput(), p.readAllStandardError()};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : CliRun::kCrashed, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

// pelkam-cli left running while the test acts around it.
struct Background {
    QProcess p;
    QByteArray out, err;
    explicit Background(const QStringList& args)
    {
        QObject::connect(&p, &QProcess::readyReadStandardOutput, [this] { out += p.readAllStandardOutput(); });
        QObject::connect(&p, &QProcess::readyReadStandardError, [this] { err += p.readAllStandardError(); });
        p.start(QString::fromLocal8Bit(qgetenv("PELKAM_CLI")), args);
    }
    // Sends sig and returns how long the command took to end, in ms (-1: it did not).
    qint64 stop(int sig, int limitMs = 5000)
    {
        QElapsedTimer timer;
        timer.start();
        ::kill(static_cast<pid_t>(p.processId()), sig);
        if (!waitFor([this] { return p.state() == QProcess::NotRunning; }, limitMs))
            return -1;
        return timer.elapsed();
    }
};

// Every file under dir, relative path -> contents.
inline QMap<QString, QByteArray> files(const QString& dir)
{
    QMap<QString, QByteArray> found;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile f(it.next());
        if (f.open(QIODevice::ReadOnly))
            found.insert(QDir(dir).relativeFilePath(f.fileName()), f.readAll());
    }
    return found;
}
