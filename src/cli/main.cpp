// pelkam-cli: the board operations of Pelkam without widgets, for scripts.
#include "board/boarderrors.h"
#include "board/boardfiles.h"
#include "link/boardlink.h"
#include "link/transports.h"
#include "packages/packageinstaller.h"
#include "sync/synchronizer.h"
#include "sync/watchsession.h"
#include "workflows/boardbackup.h"

#include "everyport.h"
#include "webreplpassword.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTextStream>
#include <QTimer>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <unistd.h>

namespace {
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
// The shell's convention for a command ended by a signal.
constexpr int kExitSignalBase = 128;
// After a stop signal: the running operation is cancelled at once, the board
// interrupted a moment later, and the port closed before the 2 s a user waits.
constexpr int kStopInterruptMs = 300;
constexpr int kStopCloseMs = 1500;

const char* const kCommands = R"(Commands:
  info                         print the board's uname record
  ls DIR                       list a board folder: "d NAME" or "f SIZE NAME" lines
  get BOARD_PATH LOCAL_PATH    download a board file (into LOCAL_PATH if a folder)
  put LOCAL_PATH BOARD_PATH    upload a file (into BOARD_PATH if a board folder)
  rm BOARD_PATH                remove a board file
  rmdir BOARD_PATH             remove an empty board folder
  mkdir BOARD_PATH             create a board folder, with its parents
  hash BOARD_PATH              print the board's digest of a file (MD5, or SHA1)
  exec LOCAL_SCRIPT            run a script on the board, its output on stdout as
                               printed, a traceback on stderr (exit 1); a board
                               that restarts meanwhile ends it (exit 1)
  install PACKAGE              install a .upack or .ufw package; prints each board
                               path uploaded. A .ufw whose tar headers turn corrupt
                               midway counts as failed here (the window reports it
                               as installed).
  sync LOCAL_DIR BOARD_DIR     upload the files of LOCAL_DIR whose board digest
                               differs or that the board lacks; prints each file
                               uploaded (--dry-run: would upload). Unlike the
                               window's Sync, it first creates the board folders
                               the uploads need. Options: --no-recursive,
                               --no-missing, --dry-run, --delete (then remove
                               board files and folders LOCAL_DIR lacks, printing
                               "deleted PATH"; with --dry-run "would delete PATH").
                               Files matching LOCAL_DIR/.pelkamignore (gitignore
                               syntax) are neither uploaded nor deleted.
  watch LOCAL_DIR BOARD_DIR    sync once, then upload every file saved under
                               LOCAL_DIR as it is saved, printing each; waits
                               for a board that drops off and syncs again when
                               it is back. A LOCAL_DIR that is missing, cannot
                               be read or is empty is waited for, never
                               mirrored; with --delete, deletions follow a fresh
                               full comparison. A failed upload is tried again;
                               files left unsynced make the exit status 1.
  backup BOARD_DIR LOCAL_DIR   copy a board folder tree to LOCAL_DIR, every file
                               checked; prints each file saved. LOCAL_DIR must be
                               empty or absent unless --force is given. Restore
                               with: sync LOCAL_DIR BOARD_DIR

--port may be given more than once: the command then runs on every board at
once, each output line prefixed with the port and a tab, a summary on standard
error. get and backup then write into a subfolder per board, named after its
port (LOCAL_DIR/ttyUSB0/..., or beside LOCAL_PATH: ttyUSB0/NAME).

Links under LOCAL_DIR: a link to a file inside LOCAL_DIR is taken as that
file; links to folders, links out of LOCAL_DIR and dangling links are skipped
with one line each and never cause a deletion.

SIGINT or SIGTERM end any command within 2 s: the board is interrupted and
left at its prompt, a partly downloaded file is removed.

Exit status: 0 success, 1 the operation failed (on any board), 2 usage error,
130 or 143 ended by SIGINT or SIGTERM.)";

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

// Where the log goes: standard error, or with --quiet held back and shown
// only when the command fails.
struct LogSink {
    static constexpr int kHeldLines = 400;
    LogSink(QTextStream& stream, bool holdBack) : err(stream), quiet(holdBack) {}
    QTextStream& err;
    bool quiet;
    int sources = 0;
    int lastSource = 0;
    QString lastLine;
    QStringList held;
    bool missingPyb = false; // a script for STM32 boards ran on another kind

    void line(int source, const QString& text)
    {
        // The window's terminal and log both hear of a failed connect; here
        // they share standard error, where once is enough.
        if (text == lastLine && source != lastSource)
            return;
        lastLine = text;
        lastSource = source;
        if (text.contains(QLatin1String("no module named 'pyb'")))
            missingPyb = true;
        if (!quiet) {
            err << text << '\n' << Qt::flush;
            return;
        }
        held << text;
        if (held.size() > kHeldLines)
            held.removeFirst();
    }
    void release()
    {
        for (const QString& text : qAsConst(held))
            err << text << '\n';
        err << Qt::flush;
        held.clear();
    }
};

// What every command works with.
struct Context {
    BoardLink& link;
    BoardFiles& files;
    const QCommandLineParser& parser;
    QStringList args; // the command's own arguments
    QTextStream& out;
    QTextStream& err;
    bool terminal; // standard error is a terminal: progress lines are shown
    LogSink& sink;
    bool progressLine = false; // a progress line waits for its end

    bool option(const char* name) const { return parser.isSet(QString::fromLatin1(name)); }
    template <typename Sender, typename Signal> void logTo(Sender* sender, Signal signal)
    {
        const int source = ++sink.sources;
        QObject::connect(sender, signal, [this, source](const QString& s) { sink.line(source, plain(s)); });
    }
};

// A local file the command reads: missing, a folder and unreadable are each said as such.
bool localFileThere(Context& c, const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        c.err << "No such local file: " << path << '\n';
    else if (info.isDir())
        c.err << "A folder, not a file: " << path << '\n';
    else if (!info.isReadable())
        c.err << "Cannot read " << path << '\n';
    else
        return true;
    return false;
}

// Boards with pyb take the STM32 scripts; every other kind (ESP32, ESP8266,
// RP2040) the ESP32 ones, which need no pyb.
void learnBoardType(Context& c)
{
    const QHash<QString, QString> info = c.files.mc_uname();
    const QString sysname = info.value(QStringLiteral("sysname")).toLower();
    const bool stm32 = sysname == QLatin1String("pyboard") || sysname.startsWith(QLatin1String("stm32")) ||
                       info.value(QStringLiteral("machine")).contains(QLatin1String("STM32"));
    if (!info.isEmpty())
        c.link.setBoardType(stm32 ? MC_STM32 : MC_ESP32);
}

void endProgressLine(Context& c)
{
    if (c.progressLine)
        c.err << '\n' << Qt::flush;
    c.progressLine = false;
}

// On a terminal: how many bytes of the file have gone (put) or come (get).
void showFileProgress(Context& c)
{
    if (!c.terminal)
        return;
    QObject::connect(&c.files, &BoardFiles::fileProgress, [&c](qint64 done, qint64 total) {
        c.progressLine = true;
        if (total > 0)
            c.err << QStringLiteral("\r%1% (%2 of %3 bytes)").arg(done * 100 / total).arg(done).arg(total);
        else
            c.err << QStringLiteral("\r%1 bytes").arg(done);
        c.err << Qt::flush;
    });
    QObject::connect(&c.files, &BoardFiles::progressFinished, [&c] { endProgressLine(c); });
}

int cmdInfo(Context& c)
{
    const QHash<QString, QString> info = c.files.mc_uname();
    for (const char* key : {"sysname", "nodename", "release", "version", "machine"})
        if (info.contains(QLatin1String(key)))
            c.out << key << ": " << info.value(QLatin1String(key)) << "\n";
    if (info.isEmpty()) {
        c.err << "System information request failed\n";
        return kExitFailed;
    }
    return kExitOk;
}

void printListing(Context& c, const QJsonArray& dirs, const QJsonArray& files)
{
    for (const QJsonValue& v : dirs)
        c.out << "d " << v.toObject().value(QStringLiteral("n")).toString() << '\n';
    for (const QJsonValue& v : files) {
        const QJsonObject o = v.toObject();
        c.out << "f " << o.value(QStringLiteral("s")).toInt(-1) << ' ' << o.value(QStringLiteral("n")).toString()
              << '\n';
    }
}

int cmdLs(Context& c)
{
    const QString dir = c.args.value(0);
    QJsonArray dirs;
    QJsonArray files;
    bool exists = false;
    if (c.files.fastTransfers() && c.files.listQuickly(dir, &dirs, &files, &exists)) {
        if (!exists) {
            c.err << "No such board folder: " << dir << '\n';
            return kExitFailed;
        }
        printListing(c, dirs, files);
        return kExitOk;
    }
    if (!c.files.mc_direxists(dir)) {
        c.err << "No such board folder: " << dir << '\n';
        return kExitFailed;
    }
    if (!c.files.listWhole(dir, &dirs, &files)) {
        c.err << "The board did not list " << dir << '\n';
        return kExitFailed;
    }
    printListing(c, dirs, files);
    return kExitOk;
}

int cmdGet(Context& c)
{
    // Written beside the target and put in place once checked: an interrupted
    // download or a full disk leaves no half file and the old one whole.
    const QString source = c.args.value(0);
    QString local = c.args.value(1);
    // Into a folder, as cp does: under the board file's own name.
    if (local.endsWith(QLatin1Char('/')) || QFileInfo(local).isDir())
        local = QDir(local).filePath(source.section(QLatin1Char('/'), -1));
    return c.files.downloadReplacing(source, local) && !stopRequested() ? kExitOk : kExitFailed;
}

int cmdPut(Context& c)
{
    const QString local = c.args.value(0);
    if (!localFileThere(c, local))
        return kExitFailed;
    QString target = c.args.value(1);
    // Into a board folder, as cp does: under the local file's own name.
    if (target.endsWith(QLatin1Char('/')) || c.files.mc_direxists(target))
        target = (target.endsWith(QLatin1Char('/')) ? target : target + QLatin1Char('/')) + QFileInfo(local).fileName();
    return c.files.upload(local, target) ? kExitOk : kExitFailed;
}

int cmdRemove(Context& c, bool isDir)
{
    const QString path = c.args.value(0);
    // A board's rmdir removes a file too (LittleFS and FAT alike).
    if (isDir && !c.files.mc_direxists(path)) {
        c.err << "Not a folder on the board: " << path << '\n';
        return kExitFailed;
    }
    return c.files.remove(path, isDir) ? kExitOk : kExitFailed;
}

int cmdMkdir(Context& c)
{
    const QString path = c.args.value(0);
    return c.files.mc_mkdir(path) && c.files.mc_direxists(path) ? kExitOk : kExitFailed;
}

int cmdHash(Context& c)
{
    const QString path = c.args.value(0);
    QByteArray digest;
    if (c.files.upload_script(c.files.scriptPath(QStringLiteral("Scripts/Hash"), QStringLiteral("hash"), false)) &&
        c.link.to_repl())
        digest = c.files.mc_file_hash(path);
    if (digest.isEmpty() || digest.startsWith("err(")) {
        c.err << "Cannot hash " << path << (digest.isEmpty() ? QString() : ": " + BoardErrors::explain(digest)) << '\n';
        return kExitFailed;
    }
    c.out << digest << '\n';
    return kExitOk;
}

int cmdExec(Context& c)
{
    const QString script = c.args.value(0);
    if (!localFileThere(c, script))
        return kExitFailed;
    // The script's output goes to standard output byte for byte, its
    // traceback to standard error; our log stays on standard error too.
    c.files.setWholeScriptOutput(true);
    QObject::connect(&c.files, &BoardFiles::scriptOutput, [&c](const QByteArray& bytes, bool error) {
        (error ? c.err : c.out).flush();
        FILE* stream = error ? stderr : stdout;
        fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
        fflush(stream);
    });
    // A board reset behind a port that stays open (its button, a watchdog)
    // never gives the raw prompt the run waits for: the script is gone, so
    // end the run as if the port had closed.
    bool restarted = false;
    QObject::connect(&c.link, &BoardLink::interpreterRestarted, &c.link, [&c, &restarted] {
        if (restarted)
            return;
        restarted = true;
        c.err << "The board restarted while the script ran\n" << Qt::flush;
        QMetaObject::invokeMethod(&c.link, [&c] { c.link.connectionClosed(); }, Qt::QueuedConnection);
    });
    const bool ran = c.files.execute_script(script) && c.link.isOpen() && !restarted;
    return ran && !c.files.scriptRaised() ? kExitOk : kExitFailed;
}

int cmdInstall(Context& c)
{
    const QString package = c.args.value(0);
    if (!localFileThere(c, package))
        return kExitFailed;
    PackageInstaller installer(c.files);
    c.logTo(&installer, &PackageInstaller::logLine);
    QObject::connect(&installer, &PackageInstaller::fileInstalled, [&c](const QString& path) {
        c.out << path << '\n' << Qt::flush;
    });
    switch (installer.install(package)) {
    case PackageInstaller::Installed:
        return kExitOk;
    case PackageInstaller::EndedEarly:
        c.err << "The package ended at a corrupt header: it may be incomplete\n";
        return kExitFailed;
    default:
        return kExitFailed;
    }
}

QString boardDirectory(QString dir)
{
    if (!dir.endsWith(QLatin1Char('/')))
        dir += QLatin1Char('/');
    return dir;
}

// The sync options every syncing command shares, with LOCAL_DIR's ignore rules.
Synchronizer::Options syncOptions(const Context& c, const QString& source)
{
    Synchronizer::Options options;
    options.missing = !c.option("no-missing");
    options.dryRun = c.option("dry-run");
    options.createDirs = true;
    options.deleteExtra = c.option("delete");
    options.recursive = !c.option("no-recursive");
    options.ignore = IgnoreRules::forFolder(source);
    for (const QString& problem : options.ignore.problems())
        c.err << problem << '\n' << Qt::flush;
    return options;
}

// The files a sync of source takes, with one line for each link left out.
QStringList syncFiles(Context& c, const QString& source, const Synchronizer::Options& options)
{
    QStringList skipped;
    const QStringList files =
        options.ignore.filtered(Synchronizer::collectSyncFiles(source, QString(), options.recursive, &skipped));
    for (const QString& line : qAsConst(skipped))
        c.err << plain(line) << '\n' << Qt::flush;
    return files;
}

void printSyncResults(Context& c, Synchronizer& sync, bool dryRun)
{
    c.logTo(&sync, &Synchronizer::logLine);
    QObject::connect(&sync, &Synchronizer::fileUploaded, [&c](const QString& path) {
        c.out << path << '\n' << Qt::flush;
    });
    QObject::connect(&sync, &Synchronizer::fileDeleted, [&c, dryRun](const QString& path) {
        c.out << (dryRun ? "would delete " : "deleted ") << path << '\n' << Qt::flush;
    });
}

bool namesRefused(Context& c, const QStringList& files, const QString& destination)
{
    const QStringList refusals = Synchronizer::refusedNames(files, destination);
    for (const QString& refusal : refusals)
        c.err << refusal << '\n';
    return !refusals.isEmpty();
}

int cmdSync(Context& c)
{
    const QString source = QDir(c.args.value(0)).absolutePath();
    const Synchronizer::Options options = syncOptions(c, source);
    Synchronizer sync(c.files);
    printSyncResults(c, sync, options.dryRun);
    const QStringList files = syncFiles(c, source, options);
    const QString destination = boardDirectory(c.args.value(1));
    if (namesRefused(c, files, destination))
        return kExitFailed;
    return sync.synchronize(source, destination, files, options) ? kExitOk : kExitFailed;
}

// Brings a board that dropped off back: true once it answers again.
bool reconnect(Context& c)
{
    if (!c.link.doConnect())
        return false;
    QCoreApplication::processEvents();
    if (c.link.mc_stop(true) != MC_STOPPED) {
        c.link.connectionClosed();
        return false;
    }
    return true;
}

int cmdWatch(Context& c)
{
    const QString source = QDir(c.args.value(0)).absolutePath();
    const QString destination = boardDirectory(c.args.value(1));
    WatchSession::Policy policy;
    policy.options = syncOptions(c, source);
    policy.options.recursive = true;
    Synchronizer sync(c.files);
    printSyncResults(c, sync, false);
    WatchSession session(c.files, sync, source, [destination] { return destination; }, policy);
    QObject::connect(&session, &WatchSession::note, [&c](const QString& text) {
        c.err << plain(text) << '\n' << Qt::flush;
    });
    bool reconnecting = false;
    session.setRunner([&reconnecting](const std::function<void()>& work) {
        if (reconnecting || stopRequested())
            return false;
        work();
        return true;
    });
    if (!session.start() && !stopRequested())
        return kExitFailed;
    c.err << "Watching " << source << " (Ctrl+C ends)\n" << Qt::flush;
    bool waiting = false;
    while (pump(100)) {
        if (c.link.isOpen())
            continue;
        if (!waiting)
            c.err << "The board dropped off; waiting for it\n" << Qt::flush;
        waiting = true;
        if (!pump(500))
            continue;
        reconnecting = true;
        const bool back = reconnect(c);
        reconnecting = false;
        if (!back) {
            if (!c.link.refusedForGood())
                continue;
            c.err << "The board refuses the connection for good: watch stops\n" << Qt::flush;
            return kExitFailed;
        }
        waiting = false;
        c.err << "The board is back\n" << Qt::flush;
    }
    const QStringList unsynced = session.unsynced();
    if (!unsynced.isEmpty())
        c.err << "Left unsynced: " << unsynced.join(QStringLiteral(", ")) << '\n' << Qt::flush;
    return unsynced.isEmpty() ? kExitOk : kExitFailed;
}

int cmdBackup(Context& c)
{
    const QString local = c.args.value(1);
    const QDir target(local);
    if (target.exists() && !target.isEmpty() && !c.option("force")) {
        c.err << local << " is not empty (use --force to replace its files)\n";
        return kExitFailed;
    }
    BoardBackup backup(c.files);
    c.logTo(&backup, &BoardBackup::logLine);
    QObject::connect(&backup, &BoardBackup::fileSaved, [&c](const QString& path) {
        c.out << path << '\n' << Qt::flush;
    });
    if (c.terminal)
        QObject::connect(&backup, &BoardBackup::progress, [&c](int done, int total, qint64 bytes) {
            c.err << QStringLiteral("\r%1 of %2 files, %3 bytes").arg(done).arg(total).arg(bytes)
                  << (done == total ? "\n" : "") << Qt::flush;
        });
    return backup.run(c.args.value(0), QDir(local).absolutePath()) ? kExitOk : kExitFailed;
}

struct Command {
    int arity;
    std::function<int(Context&)> run;
    int localArg = -1; // the argument that names a local path written to
    bool localIsFolder = false;
    // Needs no board type and, with fast transfers, goes straight into the
    // raw REPL: a command a script may call in a loop.
    bool quick = false;
};

const QHash<QString, Command>& commands()
{
    static const QHash<QString, Command> table{
        {QStringLiteral("info"), {0, cmdInfo}},
        {QStringLiteral("ls"), {1, cmdLs, -1, false, true}},
        {QStringLiteral("get"), {2, cmdGet, 1, false}},
        {QStringLiteral("put"), {2, cmdPut}},
        {QStringLiteral("rm"), {1, [](Context& c) { return cmdRemove(c, false); }}},
        {QStringLiteral("rmdir"), {1, [](Context& c) { return cmdRemove(c, true); }}},
        {QStringLiteral("mkdir"), {1, cmdMkdir}},
        {QStringLiteral("hash"), {1, cmdHash}},
        {QStringLiteral("exec"), {1, cmdExec, -1, false, true}},
        {QStringLiteral("install"), {1, cmdInstall}},
        {QStringLiteral("sync"), {2, cmdSync}},
        {QStringLiteral("watch"), {2, cmdWatch}},
        {QStringLiteral("backup"), {2, cmdBackup, 1, true}},
    };
    return table;
}

// Usage errors that need no board.
QString checkArguments(const QString& command, const QStringList& args)
{
    if (command == QLatin1String("mkdir") && !args.value(0).startsWith(QLatin1Char('/')))
        return QStringLiteral("mkdir takes an absolute board path");
    if (command == QLatin1String("install") && !PackageInstaller::isPackageName(args.value(0)))
        return QStringLiteral("install takes a .upack or .ufw package");
    const bool syncing = command == QLatin1String("sync") || command == QLatin1String("watch");
    if (syncing && !QFileInfo(args.value(0)).isDir())
        return QStringLiteral("%1: %2 is not a folder").arg(command, args.value(0));
    if ((syncing || command == QLatin1String("backup")) && !args.value(syncing ? 1 : 0).startsWith(QLatin1Char('/')))
        return QStringLiteral("%1 takes an absolute board folder").arg(command);
    return QString();
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
    parser.addOption({QStringLiteral("port"),
                      QStringLiteral("Serial port, device path, ws://HOST[:PORT] (WebREPL), or a serial port on "
                                     "another machine: rfc2217://HOST:PORT (RFC 2217) or socket://HOST:PORT (raw TCP); "
                                     "given more than once, the command runs on every board at once."),
                      QStringLiteral("PATH")});
    parser.addOption({QStringLiteral("type"),
                      QStringLiteral("Board type: stm32 (boards with the pyb module) or esp32 (any other: ESP32, "
                                     "ESP8266, RP2040...). Learnt from the board's os.uname() when not given."),
                      QStringLiteral("TYPE")});
    parser.addOption({QStringLiteral("baud"), QStringLiteral("Baud rate (default 115200)."), QStringLiteral("N"),
                      QStringLiteral("115200")});
    parser.addOption({QStringLiteral("no-recursive"), QStringLiteral("sync: only the folder's own files.")});
    parser.addOption({QStringLiteral("no-missing"), QStringLiteral("sync: skip files the board does not have.")});
    parser.addOption({QStringLiteral("dry-run"), QStringLiteral("sync: compare only, upload nothing.")});
    parser.addOption({QStringLiteral("fast"),
                      QStringLiteral("Fast transfers (the default): board scripts pasted once, no idle waits, file bytes "
                                     "raw over serial lines, deflated files, uploads written beside the target and renamed over it once checked, so "
                                     "a cut upload or a full board leaves the old file whole.")});
    parser.addOption({QStringLiteral("no-fast"),
                      QStringLiteral("The window's default transfers: for a board whose firmware cannot run the fast "
                                     "script (no room for a second copy is handled by both). A cut upload leaves the "
                                     "board file cut.")});
    parser.addOption({QStringLiteral("delete"),
                      QStringLiteral("sync, watch: remove board files and folders the local folder lacks.")});
    parser.addOption({QStringLiteral("force"), QStringLiteral("backup: replace files in a non-empty folder.")});
    parser.addOption({{QStringLiteral("q"), QStringLiteral("quiet")},
                      QStringLiteral("Results only: the log goes to stderr only when the command fails.")});
    parser.addOption({QStringLiteral("password-file"),
                      QStringLiteral("WebREPL: read the password from the first line of FILE (else from "
                                     "PELKAM_WEBREPL_PASSWORD, else asked on the terminal)."),
                      QStringLiteral("FILE")});
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

    QStringList args = parser.positionalArguments();
    if (args.isEmpty())
        return usage(QStringLiteral("no command given"));
    const QString command = args.takeFirst();
    if (!commands().contains(command))
        return usage(QStringLiteral("unknown command '%1'").arg(command));
    const Command& entry = commands()[command];
    if (args.size() != entry.arity)
        return usage(QStringLiteral("'%1' takes %2 argument(s)").arg(command).arg(entry.arity));
    if (!parser.isSet(QStringLiteral("port")))
        return usage(QStringLiteral("--port is required"));
    const QString type = parser.value(QStringLiteral("type")).toLower();
    if (parser.isSet(QStringLiteral("type")) && type != QLatin1String("stm32") && type != QLatin1String("esp32"))
        return usage(QStringLiteral("--type is stm32 or esp32"));
    if (parser.isSet(QStringLiteral("fast")) && parser.isSet(QStringLiteral("no-fast")))
        return usage(QStringLiteral("--fast and --no-fast exclude each other"));
    bool baudOk = false;
    const int baud = parser.value(QStringLiteral("baud")).toInt(&baudOk);
    if (!baudOk || baud <= 0)
        return usage(QStringLiteral("--baud takes a positive number"));
    const QString problem = checkArguments(command, args);
    if (!problem.isEmpty())
        return usage(problem);

    const QStringList ports = parser.values(QStringLiteral("port"));
    QString password;
    for (const QString& port : ports) {
        const QString wrong = Transports::addressProblem(port);
        if (!wrong.isEmpty())
            return usage(wrong);
        if (!Transports::needsPassword(port))
            continue;
        if (password.isEmpty()) {
            const WebReplPassword found = findWebReplPassword(parser.value(QStringLiteral("password-file")), port);
            if (!found.problem.isEmpty())
                return usage(found.problem);
            password = found.password;
            // Asked once; the boards' own processes find it where they look first.
            if (ports.size() > 1 && !parser.isSet(QStringLiteral("password-file")))
                qputenv("PELKAM_WEBREPL_PASSWORD", password.toUtf8());
        }
    }

    installStopHandlers();
    if (ports.size() > 1)
        return runOnEveryPort(ports, entry.localArg, entry.localIsFolder);

    QTextStream out(stdout);
    QTextStream err(stderr);
    BoardLink link;
    BoardFiles files(link);
    files.setFastTransfers(!parser.isSet(QStringLiteral("no-fast")));
    LogSink sink(err, parser.isSet(QStringLiteral("quiet")));
    const bool terminal = isatty(STDERR_FILENO) != 0 && !sink.quiet;
    Context context{link, files, parser, args, out, err, terminal, sink};
    context.logTo(&link, &BoardLink::logLine);
    context.logTo(&link, &BoardLink::ownCommandLine);
    context.logTo(&files, &BoardFiles::logLine);
    context.logTo(&link, &BoardLink::terminalLine);
    showFileProgress(context);

    BoardLink::PortSettings settings;
    settings.name = parser.value(QStringLiteral("port"));
    settings.baud = baud;
    settings.type = type == QLatin1String("esp32") ? MC_ESP32 : MC_STM32;
    settings.password = password;
    link.setPortSettings(settings);
    // A stop cancels what runs, then interrupts the board (a script printing
    // forever), then gives up on it: the command always ends.
    QObject::connect(&StopSignals::instance(), &StopSignals::requested, &files, [&] {
        files.cancel();
        QTimer::singleShot(kStopInterruptMs, &link, [&link] {
            if (link.isOpen())
                link.write(QByteArray(1, '\x03'));
        });
        QTimer::singleShot(kStopCloseMs, &link, [&link] { link.connectionClosed(); });
    });
    const auto stopped = [] { return kExitSignalBase + stopSignal(); };
    // The board is stopped below, once: not again from inside that stop's waits.
    link.setStopOnConnect(false);
    if (!link.doConnect()) {
        sink.release();
        return stopRequested() ? stopped() : kExitFailed;
    }
    QCoreApplication::processEvents();
    // Stop the board's program as the window does on connect; a quick
    // command in fast mode interrupts it on the way into the raw REPL.
    const bool quick = entry.quick && files.fastTransfers();
    if (!(quick && link.enterRawQuickly()) && link.mc_stop(true) != MC_STOPPED) {
        sink.release();
        // A closed connection has already said why.
        if (link.isOpen())
            err << "MC is not responding\n";
        return stopRequested() ? stopped() : kExitFailed;
    }
    QCoreApplication::processEvents();
    if (!parser.isSet(QStringLiteral("type")) && !entry.quick && !stopRequested())
        learnBoardType(context);

    int status = stopRequested() ? kExitFailed : entry.run(context);
    endProgressLine(context);
    if (status == kExitFailed && sink.missingPyb)
        err << "This board has no pyb module: pass --type esp32\n";
    out.flush();
    if (status != kExitOk || stopRequested())
        sink.release();
    if (stopRequested()) {
        err << "Stopped\n" << Qt::flush;
        status = status == kExitOk || status == kExitFailed ? stopped() : status;
    }
    // Back to the friendly REPL, not waited for: a terminal opened next finds its prompt.
    if (quick && link.isOpen() && link.state() == MC_RAW)
        link.write(QByteArray(1, '\x02'));
    link.connectionClosed();
    return status;
}
