#pragma once

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"
#include "link/boardlink.h"
#include "testsupport.h"
#include "virtualboard.h"

#include <QStringList>

// A virtual board with the link and the file operations connected to it, the
// way the window wires them, collecting the Syslog and Terminal lines.
struct BoardSession {
    VirtualBoard board;
    BoardLink link;
    BoardFiles files{link};
    MCDirModel model;
    QStringList log;
    QStringList terminal;

    explicit BoardSession(const QString& flavour = QStringLiteral("stm32"), const QStringList& args = {},
                          const QMap<QString, QByteArray>& seed = {})
        : board(flavour, args, seed)
    {
        files.setModel(&model);
        QObject::connect(&link, &BoardLink::logLine, [this](const QString& s) { log << s; });
        QObject::connect(&link, &BoardLink::ownCommandLine, [this](const QString& s) { log << s; });
        QObject::connect(&files, &BoardFiles::logLine, [this](const QString& s) { log << s; });
        QObject::connect(&link, &BoardLink::terminalLine, [this](const QString& s) { terminal << s; });
        QObject::connect(&link, &BoardLink::queryInfoRequested, &files, &BoardFiles::queryInfo);
        QObject::connect(&link, &BoardLink::connectionLost, [this] { model.clear(); });
        QObject::connect(&files, &BoardFiles::queryInfoFinished, [this] { infoDone = true; });
        type = flavour == QLatin1String("esp32") ? MC_ESP32 : MC_STM32;
    }

    // Where the board is reached, when not at its own device (a port server in front of it).
    QString port;

    BoardLink::PortSettings settings() const
    {
        BoardLink::PortSettings s;
        s.name = port.isEmpty() ? board.path() : port;
        s.type = type;
        s.password = password;
        return s;
    }

    // Connects, stops the board's program and waits for the first listing.
    bool open(bool autoReconnect = false)
    {
        if (!board.isRunning() || !link.connectToBoard(settings(), autoReconnect, true))
            return false;
        return waitFor([this] { return infoDone; }, 20000);
    }

    // Changes the board options as the window's settings or the CLI would.
    template <typename Change> void option(Change change)
    {
        BoardOptions options = files.options();
        change(options);
        files.setOptions(options);
    }

    // How long until the link closes by itself, in ms; -1 when it stays open limitMs.
    qint64 msUntilClosed(int limitMs)
    {
        QElapsedTimer timer;
        timer.start();
        return waitFor([this] { return !link.isOpen(); }, limitMs) ? timer.elapsed() : -1;
    }

    bool logged(const QString& part) const
    {
        for (const QString& line : log)
            if (line.contains(part))
                return true;
        return false;
    }
    int count(const QString& part) const
    {
        int n = 0;
        for (const QString& line : log)
            n += line.contains(part) ? 1 : 0;
        return n;
    }
    // The listing's row of a name, invalid when not listed.
    QModelIndex row(const QString& name) const
    {
        for (int r = 0; r < model.rowCount(); ++r)
            if (model.path(model.index(r, 0)) == name)
                return model.index(r, 0);
        return {};
    }
    QString root() const { return type == MC_ESP32 ? QStringLiteral("/") : QStringLiteral("/flash/"); }

    MC_TYPES type = MC_STM32;
    bool infoDone = false;
    QString password; // for a board served over WebREPL
};
