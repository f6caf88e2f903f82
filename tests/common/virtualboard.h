#pragma once

#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// Starts tools/virtual-board for one test: a real MicroPython interpreter on
// a pseudo-terminal. Every test gets its own board, as rude as real hardware
// (LF taken as a second Enter, output fragmented at random) unless extraArgs
// holds "--polite".
class VirtualBoard {
public:
    // seedFiles: board files (relative path -> content; a trailing "/" makes a folder).
    explicit VirtualBoard(const QString& flavour = QStringLiteral("stm32"), const QStringList& extraArgs = {},
                          const QMap<QString, QByteArray>& seedFiles = {});
    ~VirtualBoard();

    bool isRunning() const { return !m_path.isEmpty(); }
    QString path() const { return m_path; }
    // Writes the board's whole file tree into the dump folder and returns it.
    QString dump();
    QByteArray readFile(const QString& relativePath);
    QString log();
    void stop();
    // The cable pulled and plugged back: the port is gone for the reset delay.
    void unplug();
    // A hard reset that the port survives (EN button, watchdog, brown-out).
    void hardReset();
    // The board's process stopped, then let go on: nothing is read meanwhile,
    // and what arrived lands at once (Wi-Fi power save holds packets so).
    void freeze(bool frozen);

    static QString sourceDir();
    static QStringList rudeArgs();

private:
    QString seedDir() const;

    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_path;
    QByteArray m_stderr;
};
