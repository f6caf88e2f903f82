// pelkam-cli: the board operations of Pelkam without widgets, for scripts.
#include "board/boardfiles.h"
#include "link/boardlink.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

namespace {
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

const char* const kCommands = R"(Commands:
  info                         print the board's uname record
  ls DIR                       list a board folder: "d NAME" or "f SIZE NAME" lines
  get BOARD_PATH LOCAL_PATH    download a board file
  put LOCAL_PATH BOARD_PATH    upload a file to the board
  rm BOARD_PATH                remove a board file
  rmdir BOARD_PATH             remove an empty board folder
  mkdir BOARD_PATH             create a board folder, with its parents
  hash BOARD_PATH              print the board's digest of a file (MD5, or SHA1)
  exec LOCAL_SCRIPT            run a script on the board, its output on stdout

Exit status: 0 success, 1 the operation failed, 2 usage error.)";

QString plain(QString html)
{
    html.remove(QRegularExpression(QStringLiteral("<[^>]*>")));
    return html.replace(QStringLiteral("&gt;"), QStringLiteral(">"))
        .replace(QStringLiteral("&lt;"), QStringLiteral("<"))
        .replace(QStringLiteral("&amp;"), QStringLiteral("&"));
}

int usage(const QString& message)
{
    QTextStream(stderr) << "pelkam-cli: " << message << "\nTry 'pelkam-cli --help'.\n";
    return kExitUsage;
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Tarvel"));
    QCoreApplication::setApplicationName(QStringLiteral("Pelkam"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PELKAM_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Manage the files of a MicroPython board.\n\n") +
                                     QString::fromLatin1(kCommands));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({QStringLiteral("port"), QStringLiteral("Serial port or device path."), QStringLiteral("PATH")});
    parser.addOption({QStringLiteral("type"), QStringLiteral("Board type: stm32 (default) or esp32."),
                      QStringLiteral("TYPE"), QStringLiteral("stm32")});
    parser.addOption({QStringLiteral("baud"), QStringLiteral("Baud rate (default 115200)."), QStringLiteral("N"),
                      QStringLiteral("115200")});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("What to do (see above)."));
    if (!parser.parse(QCoreApplication::arguments()))
        return usage(parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        QTextStream(stdout) << parser.helpText();
        return kExitOk;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        QTextStream(stdout) << "pelkam-cli " << QCoreApplication::applicationVersion() << '\n';
        return kExitOk;
    }

    const QStringList args = parser.positionalArguments();
    static const QHash<QString, int> arity{{"info", 0},  {"ls", 1},    {"get", 2},  {"put", 2}, {"rm", 1},
                                           {"rmdir", 1}, {"mkdir", 1}, {"hash", 1}, {"exec", 1}};
    if (args.isEmpty())
        return usage(QStringLiteral("no command given"));
    const QString command = args.first();
    if (!arity.contains(command))
        return usage(QStringLiteral("unknown command '%1'").arg(command));
    if (args.size() - 1 != arity.value(command))
        return usage(QStringLiteral("'%1' takes %2 argument(s)").arg(command).arg(arity.value(command)));
    if (!parser.isSet(QStringLiteral("port")))
        return usage(QStringLiteral("--port is required"));
    const QString type = parser.value(QStringLiteral("type")).toLower();
    if (type != QLatin1String("stm32") && type != QLatin1String("esp32"))
        return usage(QStringLiteral("--type is stm32 or esp32"));
    bool baudOk = false;
    const int baud = parser.value(QStringLiteral("baud")).toInt(&baudOk);
    if (!baudOk || baud <= 0)
        return usage(QStringLiteral("--baud takes a positive number"));

    QTextStream out(stdout);
    QTextStream err(stderr);
    BoardLink link;
    BoardFiles files(link);
    const bool progressShown = isatty(STDERR_FILENO);
    QObject::connect(&link, &BoardLink::logLine, [&](const QString& s) { err << plain(s) << '\n' << Qt::flush; });
    QObject::connect(&files, &BoardFiles::logLine, [&](const QString& s) { err << plain(s) << '\n' << Qt::flush; });
    QObject::connect(&link, &BoardLink::terminalLine, [&](const QString& s) { err << plain(s) << '\n' << Qt::flush; });
    int total = 0;
    QObject::connect(&files, &BoardFiles::progressStarted, [&](int maximum) { total = maximum; });
    QObject::connect(&files, &BoardFiles::progressChanged, [&](int value) {
        if (progressShown && total > 0)
            err << QStringLiteral("\r%1% (%2 of %3 bytes)")
                       .arg(qMin(100, value * 100 / total))
                       .arg(qMin(value, total))
                       .arg(total)
                << Qt::flush;
    });
    QObject::connect(&files, &BoardFiles::progressFinished, [&] {
        if (progressShown && total > 0)
            err << '\n' << Qt::flush;
    });

    BoardLink::PortSettings settings;
    settings.name = parser.value(QStringLiteral("port"));
    settings.baud = baud;
    settings.type = type == QLatin1String("esp32") ? MC_ESP32 : MC_STM32;
    link.setPortSettings(settings);
    if (!link.doConnect())
        return kExitFailed;
    // Stop the board's program as the window does on connect.
    if (link.mc_stop(true) != MC_STOPPED) {
        err << "MC is not responding\n";
        return kExitFailed;
    }
    QCoreApplication::processEvents();

    bool ok = false;
    const QString a1 = args.value(1);
    const QString a2 = args.value(2);
    if (command == QLatin1String("info")) {
        const QHash<QString, QString> info = files.mc_uname();
        for (const char* key : {"sysname", "nodename", "release", "version", "machine"})
            if (info.contains(QLatin1String(key)))
                out << key << ": " << info.value(QLatin1String(key)) << "\n";
        ok = !info.isEmpty();
        if (!ok)
            err << "System information request failed\n";
    } else if (command == QLatin1String("ls")) {
        if (!files.mc_direxists(a1)) {
            err << "No such board folder: " << a1 << '\n';
        } else {
            for (const QJsonValue& v : files.mc_lsdir(a1, MC_LIST_DIRS))
                out << "d " << v.toObject().value(QStringLiteral("n")).toString() << '\n';
            for (const QJsonValue& v : files.mc_lsdir(a1, MC_LIST_FILES)) {
                const QJsonObject o = v.toObject();
                out << "f " << o.value(QStringLiteral("s")).toInt(-1) << ' ' << o.value(QStringLiteral("n")).toString()
                    << '\n';
            }
            ok = true;
        }
    } else if (command == QLatin1String("get")) {
        ok = files.download(a1, a2) && files.lastDownloadOk();
    } else if (command == QLatin1String("put")) {
        ok = files.upload(a1, a2);
    } else if (command == QLatin1String("rm") || command == QLatin1String("rmdir")) {
        ok = files.remove(a1, command == QLatin1String("rmdir"));
    } else if (command == QLatin1String("mkdir")) {
        QString path = a1;
        if (!path.startsWith(QLatin1Char('/')))
            return usage(QStringLiteral("mkdir takes an absolute board path"));
        ok = files.mc_mkdir(path) && files.mc_direxists(path);
    } else if (command == QLatin1String("hash")) {
        QByteArray digest;
        if (files.upload_script(files.scriptPath(QStringLiteral("Scripts/Hash"), QStringLiteral("hash"), false)) &&
            link.to_repl())
            digest = files.mc_file_hash(a1);
        ok = !digest.isEmpty() && !digest.startsWith("err(");
        if (ok)
            out << digest << '\n';
        else
            err << "Cannot hash " << a1 << (digest.isEmpty() ? QByteArray() : ": " + digest) << '\n';
    } else if (command == QLatin1String("exec")) {
        QObject::disconnect(&files, &BoardFiles::logLine, nullptr, nullptr);
        QObject::connect(&files, &BoardFiles::logLine, [&](const QString& s) {
            if (s.startsWith(QLatin1String("&gt;&gt;")))
                out << plain(s).mid(2) << '\n' << Qt::flush;
            else
                err << plain(s) << '\n' << Qt::flush;
        });
        ok = QFile::exists(a1) && files.execute_script(a1) && link.isOpen();
        if (!QFile::exists(a1))
            err << "Cannot open " << a1 << '\n';
    }
    out.flush();
    link.connectionClosed();
    return ok ? kExitOk : kExitFailed;
}
