#include "webreplpassword.h"

#include <QFile>

#include <csignal>
#include <cstdio>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace {
constexpr char kPasswordVariable[] = "PELKAM_WEBREPL_PASSWORD";
constexpr qint64 kMaxPasswordFile = 4096;

QString firstLine(const QByteArray& bytes)
{
    QByteArray line = bytes;
    const int end = line.indexOf('\n');
    if (end >= 0)
        line.truncate(end);
    if (line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

termios g_echoing{};

// Ctrl+C (or a hang-up) at the prompt: the terminal gets its echo back before
// the signal ends the program as it would have.
void restoreEchoAndEnd(int signal)
{
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &g_echoing);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

QString askTerminal(const QString& address)
{
    std::fprintf(stderr, "WebREPL password for %s: ", address.toLocal8Bit().constData());
    std::fflush(stderr);
    const bool quiet = tcgetattr(STDIN_FILENO, &g_echoing) == 0;
    const int caught[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    struct sigaction before[4] {};
    if (quiet) {
        struct sigaction restore {};
        restore.sa_handler = restoreEchoAndEnd;
        sigemptyset(&restore.sa_mask);
        for (int i = 0; i < 4; ++i)
            sigaction(caught[i], &restore, &before[i]);
        termios silent = g_echoing;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    std::string line;
    for (int c = std::fgetc(stdin); c != EOF && c != '\n'; c = std::fgetc(stdin))
        line.push_back(static_cast<char>(c));
    if (quiet) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &g_echoing);
        for (int i = 0; i < 4; ++i)
            sigaction(caught[i], &before[i], nullptr);
    }
    std::fputc('\n', stderr);
    return firstLine(QByteArray::fromStdString(line));
}
} // namespace

WebReplPassword findWebReplPassword(const QString& passwordFile, const QString& address)
{
    WebReplPassword result;
    if (!passwordFile.isEmpty()) {
        QFile file(passwordFile);
        if (!file.open(QIODevice::ReadOnly)) {
            result.problem = QStringLiteral("cannot read %1: %2").arg(passwordFile, file.errorString());
            return result;
        }
        result.password = firstLine(file.read(kMaxPasswordFile));
        if (result.password.isEmpty())
            result.problem = QStringLiteral("%1 holds no password").arg(passwordFile);
        return result;
    }
    result.password = qEnvironmentVariable(kPasswordVariable);
    if (!result.password.isEmpty())
        return result;
    if (isatty(STDIN_FILENO))
        result.password = askTerminal(address);
    if (result.password.isEmpty())
        result.problem = QStringLiteral("%1 needs a WebREPL password: set %2 or give --password-file FILE")
                             .arg(address, QLatin1String(kPasswordVariable));
    return result;
}
