#pragma once

#include "prompter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QElapsedTimer>
#include <QList>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

#include <functional>

// Points QSettings at a private folder so tests never touch the user's store.
inline void isolateSettings(const QTemporaryDir& dir)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Tarvel"));
    QCoreApplication::setApplicationName(QStringLiteral("Pelkam"));
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir.path());
    QSettings().clear();
}

// Writes data to path, creating its folders; returns the path.
inline QString writeFile(const QString& path, const QByteArray& data = {})
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(data);
    return path;
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// 127.0.0.2 routed into a blackhole while this lives: a peer there goes
// silent without closing anything, as a board that lost power or Wi-Fi.
// Needs CAP_NET_ADMIN; on() says whether the route is in place.
struct Blackhole {
    bool in = QProcess::execute(QStringLiteral("ip"), {"route", "add", "blackhole", "127.0.0.2/32", "table", "local"}) == 0;
    ~Blackhole() { lift(); }
    bool on() const { return in; }
    void lift()
    {
        if (in)
            QProcess::execute(QStringLiteral("ip"), {"route", "del", "blackhole", "127.0.0.2/32", "table", "local"});
        in = false;
    }
};

// Runs the event loop until cond holds or ms pass.
// Every byte value, runs of the bytes a console, Telnet or our framing
// treats specially, then seeded noise: size bytes.
inline QByteArray awkwardBytes(int size, quint32 seed = 1)
{
    QByteArray data;
    for (int i = 0; i < 256; ++i)
        data += static_cast<char>(i);
    for (const char c : {'\x03', '\x04', '\r', '\n', '\xff', '\x01', '\x15', '\x18', '=', 'X'})
        data += QByteArray(40, c);
    data += QByteArray("\xff\x03\r\n\x04\xff\xfa\xf0\r\n>>> \x04>OK#0", 20).repeated(20);
    QRandomGenerator gen(seed);
    while (data.size() < size)
        data += static_cast<char>(gen.bounded(256));
    return data.left(size);
}

inline bool waitFor(const std::function<bool()>& cond, int ms = 10000)
{
    QElapsedTimer timer;
    timer.start();
    while (!cond()) {
        if (timer.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(2);
    }
    return true;
}

// Answers the program's questions from a script and records them.
class ScriptedPrompter : public Prompter {
public:
    QList<Answer> answers;
    QStringList questions;
    QString fileName;
    QString directory;
    QStringList texts;

    using Prompter::question;
    Answer question(const QString& title, const QString& text, Buttons, Answer) override
    {
        questions << title + QStringLiteral(": ") + text;
        return answers.isEmpty() ? Cancel : answers.takeFirst();
    }
    Answer details(const QString& title, const QString& text, const QString& informative,
                   const QString& detailed) override
    {
        questions << title + QStringLiteral(": ") + text + QLatin1Char('|') + informative + QLatin1Char('|') + detailed;
        return answers.isEmpty() ? Cancel : answers.takeFirst();
    }
    QString saveFileName(const QString& title, const QString& suggested, const QString&) override
    {
        questions << title + QStringLiteral(": ") + suggested;
        return fileName;
    }
    QString existingDirectory(const QString& title, const QString&) override
    {
        questions << title;
        return directory;
    }
    QString openFileName(const QString& title, const QString&, const QString& filter) override
    {
        questions << title + QStringLiteral(": ") + filter;
        return fileName;
    }
    QString text(const QString& title, const QString& label) override
    {
        questions << title + QStringLiteral(": ") + label;
        return texts.isEmpty() ? QString() : texts.takeFirst();
    }
    void warning(const QString& title, const QString& text) override
    {
        questions << title + QStringLiteral(": ") + text;
    }
};
