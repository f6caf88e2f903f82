#include "boardfiles.h"

#include "boarderrors.h"

#include "link/replbytes.h"
#include "mcdirmodel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegExp>

using namespace replbytes;

namespace {

constexpr int kScriptTimeoutMs = 5000;
constexpr int kRemoveTimeoutMs = 5000;
constexpr int kReplyGraceMs = 1000;
constexpr int kMkdirTimeoutMs = 5000;
constexpr int kDirExistsTimeoutMs = 1000;
constexpr int kHashTimeoutMs = 10000;
constexpr int kRenameTimeoutMs = 5000;
constexpr int kListTimeoutMs = 5000;
constexpr int kChdirTimeoutMs = 5000;
constexpr int kUnameTimeoutMs = 5000;
constexpr int kExecuteStepMs = 50;
constexpr int kDebugStepTimeoutMs = 1000;
constexpr int kDebugSteps = 90;

} // namespace

BoardBusy::BoardBusy(BoardFiles& files) : m_files(files)
{
    ++m_files.m_depth;
}

BoardBusy::~BoardBusy()
{
    if (--m_files.m_depth == 0)
        m_files.m_cancel = m_files.m_cancelLogged = false;
}

const QString BoardFiles::kTempSuffix = QStringLiteral(".pelkam-tmp");
const QString BoardFiles::kVerifiedSuffix = QStringLiteral(".pelkam-new");
const QString BoardFiles::kForbiddenCharacters = QStringLiteral("\\?%*:|\"<>");

static void initBoardScripts()
{
    // The scripts live in this static library: register them explicitly.
    Q_INIT_RESOURCE(pelkam);
}

BoardFiles::BoardFiles(BoardLink& link, QObject* parent) : QObject(parent), m_link(link)
{
    initBoardScripts();
    connect(&m_link, &BoardLink::connectionOpened, this, [this] {
        m_deflateFailed = false;
        m_noFileProtocol = false;
        m_rawFallbackLogged = false;
        forgetScripts();
    });
    connect(&m_link, &BoardLink::connectionLost, this, &BoardFiles::forgetScripts);
    connect(&m_link, &BoardLink::interpreterRestarted, this, [this] {
        ++m_restarts;
        forgetScripts();
    });
}

void BoardFiles::setOptions(const BoardOptions& options)
{
    m_options = options;
    m_link.setTransferSize(options.transferSize);
}

QString BoardFiles::scriptPath(const QString& key, const QString& base, bool hasEspVariant) const
{
    const QString custom = m_options.text(key);
    if (!custom.isEmpty())
        return custom;
    const bool esp = hasEspVariant && m_link.boardType() == MC_ESP32;
    return QStringLiteral(":/data/") + base + (esp ? QStringLiteral("_e.py") : QStringLiteral(".py"));
}

QString BoardFiles::pyString(const QString& text)
{
    QString out = QStringLiteral("'");
    const QVector<uint> codes = text.toUcs4();
    for (uint c : codes) {
        if (c == '\\' || c == '\'')
            out += QLatin1Char('\\') + QChar(c);
        else if (c >= 0x20 && c < 0x7F)
            out += QChar(c);
        else if (c < 0x100)
            out += QStringLiteral("\\x%1").arg(c, 2, 16, QLatin1Char('0'));
        else if (c < 0x10000)
            out += QStringLiteral("\\u%1").arg(c, 4, 16, QLatin1Char('0'));
        else
            out += QStringLiteral("\\U%1").arg(c, 8, 16, QLatin1Char('0'));
    }
    return out + QLatin1Char('\'');
}

QString BoardFiles::substituteDir(QString command, const QString& dir) const
{
    return command.replace(QStringLiteral("$dir"), pyString(dir));
}

void BoardFiles::cancel()
{
    if (busy())
        m_cancel = true;
}

bool BoardFiles::cancelRequested()
{
    if (m_cancel && !m_cancelLogged) {
        m_cancelLogged = true;
        log(tr("Cancelled"));
    }
    return m_cancel;
}

void BoardFiles::stopQuietly()
{
    if (!m_link.isOpen())
        return;
    m_link.clearQueue();
    m_link.write(QByteArray(1, kCtrlC));
    // The raw REPL answers the interrupt with its traceback, then ">".
    QElapsedTimer timer;
    timer.start();
    bool interrupted = false;
    while (!interrupted && timer.elapsed() < kRawSettleMs && m_link.awaitEod(kRawSettleMs)) {
        while (m_link.hasReply())
            interrupted = m_link.takeReply().contains("KeyboardInterrupt") || interrupted;
    }
    m_link.clearQueue();
    m_link.clearBuffer();
}

void BoardFiles::recover()
{
    // A failed exchange may have left anything behind on the board.
    forgetScripts();
    if (!m_link.isOpen())
        return;
    m_link.write(QByteArray(1, kCtrlC));
    m_link.drain();
}

bool BoardFiles::readScript(const QString& path, QByteArray* text)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        log(tr("Cannot open %1: %2").arg(path, file.errorString()));
        return false;
    }
    *text = file.readAll();
    return true;
}

// ---- Board scripts and remote calls ----

bool BoardFiles::upload_script(const QString& path)
{
    const BoardBusy scope(*this);
    QByteArray script;
    if (!readScript(path, &script))
        return false;
    if (!m_link.to_raw())
        return false;
    const bool fast = fastTransfers();
    if (fast && m_pasted.contains(path))
        return true;
    // Fast transfers paste their scripts with the board's flow control.
    const bool pasting = m_link.pasteCommands();
    m_link.setPasteCommands(fast);
    const bool sent = m_link.tranceive(script + kCtrlD, kScriptTimeoutMs, false, kRawAccepted);
    m_link.setPasteCommands(pasting);
    if (!sent) {
        log(tr("Cannot upload script %1").arg(path));
        return false;
    }
    if (!m_link.hasReply())
        return false;
    bool accepted = false;
    while (m_link.hasReply()) {
        const QByteArray reply = m_link.takeReply();
        if (reply.contains("OK")) {
            accepted = true;
            break;
        }
        log(QStringLiteral("&gt;&gt;") + QString::fromUtf8(reply));
    }
    if (!accepted)
        return false;
    m_link.drain();
    if (fast)
        m_pasted.insert(path);
    return true;
}

bool BoardFiles::execute_script(const QString& path)
{
    const BoardBusy scope(*this);
    QByteArray script;
    if (!readScript(path, &script))
        return false;
    if (!m_link.to_raw())
        return false;
    m_link.processQueue();
    m_link.setState(MC_REPL);
    if (!m_link.writeScript(script + kCtrlD)) {
        m_link.setState(MC_RAW);
        log(tr("Cannot upload script %1").arg(path));
        return false;
    }
    if (m_wholeOutput)
        followScript();
    else
        logScriptLines();
    log(tr("Script %1 executed").arg(path));
    m_link.setState(MC_RAW);
    return true;
}

void BoardFiles::logScriptLines()
{
    bool prompt = false;
    bool ended = false; // after the run's first 0x04 comes its error text
    while (m_link.isOpen() && !prompt) {
        m_link.qDelay(kExecuteStepMs);
        QByteArray last;
        while (m_link.hasReply()) {
            QByteArray line = m_link.takeReply();
            if (line.startsWith("OK"))
                line.remove(0, 2);
            log(QStringLiteral("&gt;&gt;") + QString::fromLatin1(line));
            for (QByteArray piece : line.split('\n')) {
                if (ended)
                    break;
                const int end = piece.indexOf(kCtrlD);
                if (end >= 0) {
                    piece.truncate(end);
                    ended = true;
                }
                piece = piece.trimmed();
                if (!piece.isEmpty())
                    emit scriptLine(QString::fromUtf8(piece));
            }
            last = line;
        }
        prompt = last.endsWith('>') || m_link.pendingBuffer().endsWith('>');
    }
    if (prompt)
        m_link.clearBuffer();
}

// The raw REPL frames a run as "OK", the output, 0x04, the error text, 0x04
// and ">"; a ">" anywhere else is the script's own.
void BoardFiles::followScript()
{
    m_scriptRaised = false;
    int ends = 0; // the 0x04 bytes seen
    bool started = false;
    const auto pass = [&](QByteArray bytes) {
        if (!started && !bytes.isEmpty()) {
            started = true;
            if (bytes.startsWith("OK"))
                bytes.remove(0, 2);
        }
        for (int from = 0; ends < 2;) {
            const int at = bytes.indexOf(kCtrlD, from);
            const QByteArray piece = bytes.mid(from, at < 0 ? -1 : at - from);
            if (!piece.isEmpty()) {
                m_scriptRaised = m_scriptRaised || ends == 1;
                emit scriptOutput(piece, ends == 1);
            }
            if (at < 0)
                break;
            ++ends;
            from = at + 1;
        }
    };
    while (m_link.isOpen()) {
        m_link.qDelay(kExecuteStepMs);
        while (m_link.hasReply())
            pass(m_link.takeReply() + '\n'); // the link cut its "\r\n"
        QByteArray rest = m_link.pendingBuffer();
        if (ends + rest.count(kCtrlD) >= 2 && rest.endsWith('>')) {
            m_link.clearBuffer();
            rest.chop(1);
            pass(rest);
            return;
        }
        // A line still growing (a script printing dots) goes out as it is,
        // unless it may end inside a line end or inside the "OK".
        if (!rest.isEmpty() && !rest.endsWith('\r') && (started || rest.size() >= 2)) {
            m_link.clearBuffer();
            pass(rest.replace("\r\n", "\n"));
        }
    }
}

bool BoardFiles::debug()
{
    const BoardBusy scope(*this);
    if (!upload_script(QStringLiteral(":/data/debug.py")))
        return false;
    if (!m_link.write(QByteArrayLiteral("_debug()") + kCtrlD))
        return false;
    QByteArray pattern = QByteArrayLiteral(" 123456789:;<=$?@ABCDEFGHIJKLMNO");
    bool ok = true;
    for (int step = 1; step <= kDebugSteps && ok; ++step) {
        // 0x3E would be ">", which ends a reply: a blank stands in for it.
        const char marker = static_cast<char>(step + 0x20);
        pattern[0] = marker == '>' ? ' ' : marker;
        if (!m_link.tranceive(pattern, kDebugStepTimeoutMs)) {
            ok = false;
            break;
        }
        if (!m_link.hasReply()) {
            log(tr("No reply at %1 step").arg(step));
            ok = false;
            break;
        }
        QByteArray reply = m_link.takeReply();
        if (reply.startsWith("OK"))
            reply.remove(0, 2);
        ok = reply.startsWith("RX: ") && reply.mid(4) == pattern;
    }
    // The board echoes until interrupted.
    recover();
    return ok;
}

// ---- Remove, directories, hash ----

bool BoardFiles::remove(const QString& path, bool isDir)
{
    const BoardBusy scope(*this);
    // Our leftovers never keep a folder from going.
    if (isDir && fastTransfers())
        fastClean(path);
    const QString script = isDir ? scriptPath(QStringLiteral("Scripts/Rmdir"), QStringLiteral("rmdir"), true)
                                 : scriptPath(QStringLiteral("Scripts/Remove"), QStringLiteral("remove"), true);
    if (!upload_script(script))
        return false;
    const QString call =
        QStringLiteral("%1(%2)").arg(isDir ? QStringLiteral("_rmd") : QStringLiteral("_rm"), pyString(path));
    if (!m_link.tranceive(call.toLatin1() + kCtrlD, kRemoveTimeoutMs, true, kRawAccepted))
        return false;
    QByteArray reply;
    QElapsedTimer grace;
    grace.start();
    // The status may trail the raw REPL's "OK" chunk by a moment.
    while (!reply.startsWith('#')) {
        if (m_link.hasReply()) {
            reply = m_link.takeReply();
            continue;
        }
        if (grace.elapsed() > kReplyGraceMs || !m_link.awaitEod(kReplyGraceMs))
            break;
    }
    if (reply.startsWith("#0")) {
        log(tr("%1 removed").arg(path));
        return true;
    }
    QByteArray text = reply.mid(2);
    while (text.endsWith(kCtrlD))
        text.chop(1);
    log(tr("Removal error: %1. Aborted").arg(BoardErrors::explain(text)));
    return false;
}

bool BoardFiles::mc_mkdir(QString path)
{
    const BoardBusy scope(*this);
    if (path.isEmpty() || path == QLatin1String("/"))
        return true;
    if (fastTransfers())
        return fastMkdir(path);
    if (!m_link.to_repl())
        return false;
    const QString scriptFile = scriptPath(QStringLiteral("PY/mkdir"), QStringLiteral("mkdir"), true);
    QFile file(scriptFile);
    if (!file.open(QIODevice::ReadOnly)) {
        log(tr("Directory creator %1 is missing").arg(scriptFile));
        return false;
    }
    const QString paste = QChar(kCtrlE) + QString::fromLatin1(file.readAll()) + QChar(kCtrlD);
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    // Deliberately starts at 2: the path is taken as absolute.
    for (int pos = path.indexOf(QLatin1Char('/'), 2); pos >= 0; pos = path.indexOf(QLatin1Char('/'), pos + 1)) {
        const QString prefix = path.left(pos);
        log(tr("Creating dir %1").arg(prefix));
        if (!m_link.tranceive(substituteDir(paste, prefix).toLatin1() + "\r\n", kMkdirTimeoutMs, true, kPasteBanner))
            return false;
    }
    m_link.drain();
    return m_link.isOpen();
}

bool BoardFiles::mc_direxists(const QString& path)
{
    const BoardBusy scope(*this);
    QString script = m_options.text(QStringLiteral("Scripts/Direxists"), QStringLiteral(":/data/direxists.py"));
    if (script.isEmpty())
        script = QStringLiteral(":/data/direxists.py");
    if (!upload_script(script) || !m_link.to_repl())
        return false;
    const QString call = QStringLiteral("print(_direxists(%1))").arg(pyString(path));
    if (!m_link.replCommand(call.toLatin1(), kDirExistsTimeoutMs))
        return false;
    while (m_link.hasReply()) {
        const QByteArray line = m_link.takeReply().trimmed();
        if (line == "True")
            return true;
        if (line == "False")
            return false;
    }
    return false;
}

QByteArray BoardFiles::mc_file_hash(const QString& path)
{
    const BoardBusy scope(*this);
    const QString call = QStringLiteral("_hash(%1)").arg(pyString(path));
    if (!m_link.replCommand(call.toLatin1(), kHashTimeoutMs) || !m_link.hasReply())
        return {};
    while (m_link.hasReply()) {
        const QByteArray line = m_link.takeReply().trimmed();
        if (line.startsWith("b'"))
            return line.mid(2, line.size() - 3);
    }
    return {};
}

bool BoardFiles::mc_rename(const QString& from, const QString& to)
{
    const BoardBusy scope(*this);
    if (!m_link.to_repl())
        return false;
    const QString call = QStringLiteral("import os; os.rename(%1, %2)").arg(pyString(from), pyString(to));
    if (!m_link.replCommand(call.toLatin1(), kRenameTimeoutMs))
        return false;
    // Nothing is printed on success; a failure ends with the exception's line.
    QString failure;
    while (m_link.hasReply()) {
        const QByteArray line = m_link.takeReply().trimmed();
        if (line.contains("Error"))
            failure = BoardErrors::explain(line);
    }
    if (!failure.isEmpty()) {
        log(tr("Cannot rename %1: %2").arg(from, failure));
        return false;
    }
    log(tr("%1 renamed to %2").arg(from, to));
    return true;
}

QStringList BoardFiles::mc_mounts(bool* ok)
{
    const BoardBusy scope(*this);
    if (ok)
        *ok = false;
    if (!m_link.to_repl())
        return {};
    // vfs.mount() lists the mounts on MicroPython 1.23 and later. Before that,
    // a root that is not a file system itself (statvfs all zeros) holds only
    // mounts, and a root that is one has a mount wherever a top folder's
    // statvfs differs from the root's. "mounts?" says the board could not tell.
    const QByteArray command =
        "exec(\"import os\\ntry:\\n import vfs;m=[p for _,p in vfs.mount()]\\nexcept Exception:\\n "
        "try:\\n  r=os.statvfs('/');m=['/'+x for x in os.listdir('/') if not r[2] or "
        "(os.stat('/'+x)[0]&0x4000 and os.statvfs('/'+x)!=r)]\\n except Exception:m=None\\n"
        "print('mounts',m) if m is not None else print('mounts?')\")";
    QStringList mounts;
    bool answered = false;
    if (m_link.replCommand(command, kListTimeoutMs)) {
        while (m_link.hasReply()) {
            const QString line = QString::fromUtf8(m_link.takeReply().trimmed());
            if (!line.startsWith(QLatin1String("mounts ")))
                continue;
            answered = true;
            for (const QString& path : upy_parselist(line))
                mounts << QDir::cleanPath(path);
        }
    }
    m_link.processQueue();
    if (ok)
        *ok = answered && m_link.isOpen();
    return mounts;
}

// ---- Listing ----

QJsonArray BoardFiles::mc_lsdir(const QString& directory, MC_LIST_FLAGS flags)
{
    const BoardBusy scope(*this);
    m_listingOk = false;
    QString dir = directory;
    if (dir.size() >= 2 && dir.endsWith(QLatin1Char('/')))
        dir.chop(1);
    const bool fast = fastTransfers();
    if (fast && (flags & MC_LIST_FILES))
        fastClean(dir);
    if (!m_link.to_repl())
        return {};
    QString command;
    if (flags == MC_LIST_ALL)
        command = m_options.text(QStringLiteral("PY/lsdir"), QStringLiteral("import os;print(os.listdir($dir))"));
    else if (flags & MC_LIST_FILES)
        command = m_options.text(QStringLiteral("PY/lsfiles"),
                            QStringLiteral("import os,json;print(json.dumps([{'n': item[0], 's': item[3] if "
                                           "(len(item)>3) else -1} for item in os.ilistdir($dir) if "
                                           "item[1]==0x8000]))"));
    else if (flags & MC_LIST_DIRS)
        command = m_options.text(QStringLiteral("PY/lsdirs"),
                            QStringLiteral("import os,json;print(json.dumps([{'n': item[0], 's': -1} for item in "
                                           "os.ilistdir($dir) if item[1]==0x4000]))"));
    else
        return {};
    if (!m_link.replCommand(substituteDir(command, dir).toLatin1(), kListTimeoutMs))
        return {};
    QByteArray line;
    bool found = false;
    while (m_link.hasReply()) {
        line = m_link.takeReply();
        if (line.startsWith('[')) {
            found = true;
            break;
        }
    }
    if (!found) {
        log(tr("Cannot list files - invalid reply"));
        return {};
    }
    m_link.processQueue();
    QJsonParseError parsed;
    const QJsonDocument document = QJsonDocument::fromJson(line, &parsed);
    m_listingOk = parsed.error == QJsonParseError::NoError && document.isArray();
    const QJsonArray all = document.array();
    if (!fast)
        return all;
    // A fast upload's temporaries are ours alone: not shown, synced or backed up.
    QJsonArray shown;
    for (const QJsonValue& entry : all) {
        const QString name = entry.toObject().value(QStringLiteral("n")).toString();
        if (!name.endsWith(kTempSuffix) && !name.endsWith(kVerifiedSuffix))
            shown.append(entry);
    }
    return shown;
}

bool BoardFiles::listWhole(const QString& dir, QJsonArray* dirs, QJsonArray* files)
{
    for (const auto& [flags, listing] : {std::make_pair(MC_LIST_DIRS, dirs), std::make_pair(MC_LIST_FILES, files)}) {
        *listing = mc_lsdir(dir, flags);
        if (!m_listingOk && m_link.isOpen() && !m_cancel)
            *listing = mc_lsdir(dir, flags);
        if (!m_listingOk)
            return false;
    }
    return true;
}

void BoardFiles::updateMcDir(QString path)
{
    const BoardBusy scope(*this);
    if (path.isEmpty())
        path = QStringLiteral("/");
    else if (path != QLatin1String("/") && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    if (m_model) {
        m_model->clear();
        if (path != QLatin1String("/"))
            m_model->append({QStringLiteral("..")}, true);
        m_model->setDirPath(path);
    }
    const QJsonArray dirs = mc_lsdir(path, MC_LIST_DIRS);
    if (m_model)
        m_model->appendExt(dirs, true, QStringLiteral("n"), QStringLiteral("s"));
    const QJsonArray files = mc_lsdir(path, MC_LIST_FILES);
    if (m_model)
        m_model->appendExt(files, false, QStringLiteral("n"), QStringLiteral("s"));
    const QString chdir = QStringLiteral("import os; os.chdir(%1)").arg(pyString(path));
    if (!m_link.replCommand(chdir.toLatin1(), kChdirTimeoutMs))
        log(tr("Cannot change directory to %1").arg(path));
    m_link.drain();
    if (m_reportSpace)
        reportSpace(path);
}

void BoardFiles::reportSpace(const QString& path)
{
    const QString command = QStringLiteral("import os;s=os.statvfs(%1) if hasattr(os,'statvfs') else 0;"
                                           "print('space',s[0]*s[3],s[0]*s[2]) if s else 0")
                                .arg(pyString(path));
    qint64 freeBytes = -1;
    qint64 totalBytes = -1;
    if (m_link.replCommand(command.toLatin1(), kListTimeoutMs)) {
        while (m_link.hasReply()) {
            const QList<QByteArray> words = m_link.takeReply().trimmed().split(' ');
            if (words.size() == 3 && words.at(0) == "space") {
                freeBytes = words.at(1).toLongLong();
                totalBytes = words.at(2).toLongLong();
            }
        }
    }
    m_link.processQueue();
    emit spaceReported(freeBytes, totalBytes);
}

QStringList BoardFiles::upy_parselist(const QString& text) const
{
    QStringList names;
    QRegExp rx(QStringLiteral("\\'([^\\']+)\\'[\\,\\]]"));
    for (int pos = rx.indexIn(text, 0); pos != -1; pos = rx.indexIn(text, pos + rx.matchedLength()))
        names.append(rx.cap(1));
    return names;
}

// ---- Board information ----

QHash<QString, QString> BoardFiles::mc_uname()
{
    const BoardBusy scope(*this);
    QHash<QString, QString> info;
    const QString command = m_options.text(QStringLiteral("PY/uname"), QStringLiteral("import os;print(os.uname())"));
    if (!m_link.replCommand(command.toLatin1(), kUnameTimeoutMs) || !m_link.hasReply())
        return info;
    while (m_link.hasReply()) {
        const QString line = QString::fromUtf8(m_link.takeReply());
        if (!line.startsWith(QLatin1Char('(')))
            continue;
        QRegExp rx(QStringLiteral("(\\w+)\\=\\'([^\\']+)\\'"));
        for (int pos = rx.indexIn(line, 0); pos != -1; pos = rx.indexIn(line, pos + rx.matchedLength()))
            info.insert(rx.cap(1), rx.cap(2));
        break;
    }
    return info;
}

void BoardFiles::displayMcInfo()
{
    const QHash<QString, QString> h = mc_uname();
    if (h.isEmpty()) {
        log(tr("System information request failed"));
        return;
    }
    log(tr("Connected to micropython board %1 (mod %2), release %3. Core %4 version %5")
            .arg(h.value(QStringLiteral("nodename"), QStringLiteral("invalid")),
                 h.value(QStringLiteral("mod"), tr("unknown")),
                 h.value(QStringLiteral("release"), QStringLiteral("na")),
                 h.value(QStringLiteral("machine"), QStringLiteral("na")),
                 h.value(QStringLiteral("version"), QStringLiteral("na"))));
}

void BoardFiles::queryInfo()
{
    if (!m_link.isOpen())
        return;
    if (busy()) {
        // Another operation owns the line: ask again once it is done.
        m_link.infoTimer().start();
        return;
    }
    const BoardBusy scope(*this);
    m_link.drain();
    displayMcInfo();
    emit fileOpsEnableRequested(true);
    const bool esp = m_link.boardType() == MC_ESP32;
    QString dir =
        m_options.text(esp ? QStringLiteral("MC/ESPDir") : QStringLiteral("MC/STMDir"));
    if (dir.isEmpty() || !mc_direxists(dir))
        dir = esp ? QStringLiteral("/") : QStringLiteral("/flash");
    updateMcDir(dir);
    emit queryInfoFinished();
}
