#include "boardfiles.h"

#include "link/replbytes.h"
#include "mcdirmodel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegExp>
#include <QSettings>

using namespace replbytes;

namespace {

constexpr int kScriptTimeoutMs = 5000;
constexpr int kSizePacketTimeoutMs = 5000;
constexpr int kChunkTimeoutMs = 6000;
constexpr int kChecksumTimeoutMs = 5000;
constexpr int kBeforeDataMs = 300;
constexpr int kBeforeChecksumMs = 400;
constexpr int kAckTimeoutMs = 1000;
constexpr int kIdleStepMs = 200;
constexpr int kIdleLimit = 10;
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
constexpr int kRawSettleMs = 2000;
// How fast a slow board reads its fresh copy back to check it.
constexpr int kVerifyBytesPerMs = 20;

QString hexUpper(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex().toUpper());
}

QString settingOr(const QString& key, const QString& fallback)
{
    return QSettings().value(key, fallback).toString();
}
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
        forgetScripts();
    });
    connect(&m_link, &BoardLink::connectionLost, this, &BoardFiles::forgetScripts);
    connect(&m_link, &BoardLink::interpreterRestarted, this, [this] {
        ++m_restarts;
        forgetScripts();
    });
}

QString BoardFiles::scriptPath(const QString& key, const QString& base, bool hasEspVariant) const
{
    const QString custom = QSettings().value(key, QString()).toString();
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

QByteArray BoardFiles::sizePacket(int length)
{
    return QByteArrayLiteral("!") + QByteArray::number(length).rightJustified(10, '0');
}

QByteArray BoardFiles::checksumPacket(quint32 sum)
{
    return QByteArrayLiteral("@") + QByteArray::number(sum).rightJustified(10, '0');
}

quint32 BoardFiles::byteSum(const QByteArray& data)
{
    quint32 sum = 0;
    for (char c : data)
        sum += static_cast<unsigned char>(c);
    return sum;
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
    if (!m_link.write(script + kCtrlD)) {
        m_link.setState(MC_RAW);
        log(tr("Cannot upload script %1").arg(path));
        return false;
    }
    bool prompt = false;
    while (m_link.isOpen() && !prompt) {
        m_link.qDelay(kExecuteStepMs);
        QByteArray last;
        while (m_link.hasReply()) {
            QByteArray line = m_link.takeReply();
            if (line.startsWith("OK"))
                line.remove(0, 2);
            log(QStringLiteral("&gt;&gt;") + QString::fromLatin1(line));
            last = line;
        }
        prompt = last.endsWith('>') || m_link.pendingBuffer().endsWith('>');
    }
    if (prompt)
        m_link.clearBuffer();
    log(tr("Script %1 executed").arg(path));
    m_link.setState(MC_RAW);
    return true;
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

// ---- Upload ----

QString BoardFiles::forbiddenIn(const QString& target)
{
    for (const QChar c : target)
        if (kForbiddenCharacters.contains(c))
            return tr("Cannot upload - forbidden character %1 in %2").arg(c).arg(target);
    return QString();
}

bool BoardFiles::checkTarget(const QString& target)
{
    const QString refusal = forbiddenIn(target);
    if (!refusal.isEmpty())
        log(refusal);
    return refusal.isEmpty();
}

bool BoardFiles::upload(const QString& source, const QString& target)
{
    if (!checkTarget(target))
        return false;
    log(tr("Start uploading \"%1\" -> \"%2\"").arg(source, target));
    QFile file(source);
    if (!file.open(QIODevice::ReadOnly)) {
        log(tr("Cannot read from %1: %2").arg(source, file.errorString()));
        return false;
    }
    return upload(&file, target);
}

bool BoardFiles::upload(QIODevice* source, const QString& target)
{
    const BoardBusy scope(*this);
    const bool fast = fastTransfers();
    const QByteArray raw = source->readAll();
    emit fileOpsEnableRequested(false);
    const int chunk = m_link.chunkSize();
    for (int attempt = 0;; ++attempt) {
        QByteArray text;
        QString call;
        bool deflated = false;
        if (fast) {
            if (!fastScript())
                return false;
            call = fastUploadCall(raw, target, chunk, &text, &deflated);
        } else {
            text = raw.toBase64();
            if (!upload_script(scriptPath(QStringLiteral("Scripts/Upload"), QStringLiteral("upload"), true)))
                return false;
            call = QStringLiteral("_upload(%1, %2)").arg(pyString(target)).arg(chunk);
        }
        if (!m_link.write(call.toLatin1() + kCtrlD))
            return false;

        bool cancelled = false;
        // The fast script reads its copy back before it answers.
        const int verifyMs = fast ? raw.size() / kVerifyBytesPerMs : 0;
        const QString failure = sendTransfer(text, chunk, fast, &cancelled, verifyMs);
        if (cancelled) {
            emit fileOpsEnableRequested(true);
            return false;
        }
        if (failure.isEmpty())
            break;
        if (fast && attempt == 0 && fastUploadAgain(target, deflated))
            continue;
        log(m_lastReply.contains("ENOSPC") || m_lastReply.contains("Errno 28") ? tr("Not enough room on the board")
                                                                               : failure);
        recover();
        return false;
    }
    if (fast)
        reportInPlace(target);
    log(tr("Finished uploading to %1").arg(target));
    emit fileOpsEnableRequested(true);
    // The fast script's status arrives with the raw prompt that follows it.
    return fast ? m_link.isOpen() : settleRaw();
}

QString BoardFiles::sendTransfer(const QByteArray& text, int chunk, bool fast, bool* cancelled, int verifyMs)
{
    const auto invalid = [](const QByteArray& reply) { return tr("Invalid reply %1. Aborted").arg(hexUpper(reply)); };
    QByteArray reply;
    QString failure =
        request(sizePacket(text.size()), kSizePacketTimeoutMs, tr("Error while starting the transmission. Aborted"),
                tr("No reply for the transmitted data. Aborted"), &reply);
    if (failure.isEmpty() && !reply.endsWith("#9"))
        failure = invalid(reply);
    if (!failure.isEmpty())
        return failure;
    if (!fast)
        m_link.qWait(kBeforeDataMs);
    emit progressStarted(text.size());

    for (int offset = 0; offset < text.size(); offset += chunk) {
        failure = request(text.mid(offset, chunk), kChunkTimeoutMs, tr("Transmission error. Aborted"),
                          tr("No reply. Aborted"), &reply);
        if (failure.isEmpty() && !reply.endsWith("#9"))
            failure = invalid(reply);
        if (!failure.isEmpty()) {
            emit progressFinished();
            return failure;
        }
        emit progressChanged(offset + chunk);
        if (m_cancel) {
            emit progressFinished();
            stopQuietly();
            cancelRequested();
            *cancelled = true;
            return QString();
        }
    }
    emit progressFinished();

    if (!fast)
        m_link.qWait(kBeforeChecksumMs);
    failure = request(checksumPacket(byteSum(text)), kChecksumTimeoutMs + verifyMs,
                      tr("Finalization error (during transmission phase). Aborted"),
                      tr("Finalization error (during reception phase). Aborted"), &reply);
    if (failure.isEmpty() && !reply.startsWith("#0"))
        failure = invalid(reply);
    return failure;
}

QString BoardFiles::request(const QByteArray& packet, int timeoutMs, const QString& onTimeout, const QString& onSilence,
                            QByteArray* reply)
{
    m_lastReply.clear();
    if (!m_link.tranceive(packet, timeoutMs))
        return onTimeout;
    if (!m_link.hasReply())
        return onSilence;
    *reply = m_link.takeReply();
    m_lastReply = *reply;
    return QString();
}

bool BoardFiles::settleRaw()
{
    if (!m_link.write(QByteArray(1, kCtrlA)))
        return false;
    // Consume the raw REPL's answer so its ">" cannot end the next exchange.
    QByteArray seen;
    QElapsedTimer timer;
    timer.start();
    while (!seen.contains(kRawBanner) && timer.elapsed() < kRawSettleMs && m_link.isOpen()) {
        m_link.awaitEod(kRawSettleMs - static_cast<int>(timer.elapsed()));
        while (m_link.hasReply())
            seen += m_link.takeReply();
    }
    m_link.clearQueue();
    return m_link.isOpen();
}

// ---- Download ----

bool BoardFiles::download(const QString& source, const QString& localPath)
{
    QFile file(localPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        log(tr("Cannot write to %1: %2").arg(localPath, file.errorString()));
        return false;
    }
    return download(source, &file);
}

bool BoardFiles::download(const QString& source, QFile* target)
{
    const BoardBusy scope(*this);
    m_lastDownloadOk = false;
    emit fileOpsEnableRequested(false);
    if (!upload_script(scriptPath(QStringLiteral("Scripts/Download"), QStringLiteral("download"), false)))
        return false;
    const QString call = QStringLiteral("_download(%1)").arg(pyString(source));
    if (!m_link.write(call.toLatin1() + kCtrlD))
        return false;
    log(tr("Downloading %1").arg(source));

    quint64 sum = 0;
    bool ok = false;
    bool finished = false;
    int idle = 1;
    for (;;) {
        if (!m_link.hasReply()) {
            const quint64 before = m_link.bytesReceived();
            if (!m_link.qDelay(kIdleStepMs))
                break;
            m_link.io_ready();
            // Only waits that brought nothing count: at a low baud rate one
            // block arrives in many small reads.
            if (m_link.bytesReceived() != before)
                idle = 0;
            else if (!(idle++ < kIdleLimit))
                break;
            continue;
        }
        QByteArray reply = m_link.takeReply();
        idle = 0;
        if (reply.isEmpty() || reply == "OK")
            continue;
        if (reply.endsWith("#8")) {
            reply.chop(2);
            const QByteArray data = QByteArray::fromBase64(reply);
            target->write(data);
            for (char c : data)
                sum += static_cast<unsigned char>(c);
            // Anything but "^^" makes the board end the transfer cleanly.
            if (!m_link.tranceive(m_cancel ? QByteArrayLiteral("!!") : QByteArrayLiteral("^^"), kAckTimeoutMs)) {
                log(tr("Communication timed out"));
                break;
            }
        } else if (reply.endsWith("#7")) {
            reply.chop(2);
            const quint64 board = reply.trimmed().toULongLong();
            ok = board == (sum & 0xFFFFFFFFu);
            finished = true;
            if (!ok) // the missing closing parenthesis is the message's own
                log(tr("File downloaded with errors!! (checksum mismatch %1 vs %2").arg(board).arg(sum));
            break;
        } else if (reply.endsWith("#6")) {
            reply.chop(2);
            finished = true;
            if (!(m_cancel && cancelRequested()))
                log(tr("Transmission error: %1").arg(QString::fromLatin1(reply)));
            break;
        } else {
            log(tr("Communication error - unexpected data"));
            break;
        }
    }
    target->flush();
    if (ok)
        log(tr("Download from %1 completed").arg(source));
    m_lastDownloadOk = ok;
    if (!finished)
        recover();
    emit fileOpsEnableRequested(true);
    m_link.clearQueue();
    return settleRaw();
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
    log(tr("Removal error: %1. Aborted").arg(QString::fromLatin1(text)));
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
    QString script =
        QSettings().value(QStringLiteral("Scripts/Direxists"), QStringLiteral(":/data/direxists.py")).toString();
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
            failure = QString::fromLatin1(line);
    }
    if (!failure.isEmpty()) {
        log(tr("Cannot rename %1: %2").arg(from, failure));
        return false;
    }
    log(tr("%1 renamed to %2").arg(from, to));
    return true;
}

QStringList BoardFiles::mc_mounts()
{
    const BoardBusy scope(*this);
    if (!m_link.to_repl())
        return {};
    // vfs.mount() lists the mounts on MicroPython 1.23 and later; before that a
    // root that is not a file system itself (statvfs all zeros) holds only mounts.
    const QByteArray command =
        "exec(\"import os\\ntry:\\n import vfs;m=[p for _,p in vfs.mount()]\\nexcept Exception:\\n try:m=['/'+x "
        "for x in os.listdir('/')] if not os.statvfs('/')[2] else []\\n except Exception:m=[]\\nprint('mounts',m)\")";
    QStringList mounts;
    if (m_link.replCommand(command, kListTimeoutMs)) {
        while (m_link.hasReply()) {
            const QString line = QString::fromUtf8(m_link.takeReply().trimmed());
            if (line.startsWith(QLatin1String("mounts ")))
                for (const QString& path : upy_parselist(line))
                    mounts << QDir::cleanPath(path);
        }
    }
    m_link.processQueue();
    return mounts;
}

// ---- Listing ----

QJsonArray BoardFiles::mc_lsdir(const QString& directory, MC_LIST_FLAGS flags)
{
    const BoardBusy scope(*this);
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
        command = settingOr(QStringLiteral("PY/lsdir"), QStringLiteral("import os;print(os.listdir($dir))"));
    else if (flags & MC_LIST_FILES)
        command = settingOr(QStringLiteral("PY/lsfiles"),
                            QStringLiteral("import os,json;print(json.dumps([{'n': item[0], 's': item[3] if "
                                           "(len(item)>3) else -1} for item in os.ilistdir($dir) if "
                                           "item[1]==0x8000]))"));
    else if (flags & MC_LIST_DIRS)
        command = settingOr(QStringLiteral("PY/lsdirs"),
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
    const QJsonArray all = QJsonDocument::fromJson(line).array();
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
    const QString command = settingOr(QStringLiteral("PY/uname"), QStringLiteral("import os;print(os.uname())"));
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
                 h.value(QStringLiteral("mod"), QStringLiteral("unknown")),
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
        QSettings().value(esp ? QStringLiteral("MC/ESPDir") : QStringLiteral("MC/STMDir"), QString()).toString();
    if (dir.isEmpty() || !mc_direxists(dir))
        dir = esp ? QStringLiteral("/") : QStringLiteral("/flash");
    updateMcDir(dir);
    emit queryInfoFinished();
}
