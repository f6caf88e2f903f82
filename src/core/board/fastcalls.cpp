// BoardFiles: the fast-transfer mode (scripts pasted once, calls in the raw
// REPL, deflated uploads, batched digests).
#include "boardfiles.h"

#include "link/replbytes.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>

#include <zlib.h>

using namespace replbytes;

namespace {
constexpr int kFastCallTimeoutMs = 10000;
// What one file (a digest, a folder made on FAT) may add to a call's time.
constexpr int kPerFileMs = 2000;
const QByteArray kNameError = QByteArrayLiteral("NameError");
// What rawCall leaves as the error when the board restarted under a call.
const QByteArray kRestartedCall = QByteArrayLiteral("(restarted)");
// How long a failed upload waits for the rest of a reset's boot text.
constexpr int kRestartSettleMs = 600;
// The fast upload's status when inflating ran out of memory, and its note
// when there was no room for a second copy.
const QByteArray kInflateFailed = QByteArrayLiteral("#6");
const QByteArray kWrittenInPlace = QByteArrayLiteral("in place");
constexpr int kTracebackMs = 2000;
// Files are deflated in independent blocks so the board needs little memory
// to inflate them (a 4 kB window and one block).
constexpr int kDeflateBlock = 4096;
constexpr int kDeflateWindowBits = 12;
constexpr quint16 kStoredBlock = 0x8000;
// A file must shrink by a fifth to be sent deflated.
constexpr int kDeflateWorthNumerator = 4;
constexpr int kDeflateWorthDenominator = 5;
// How many path characters one batch of digests may carry.
constexpr int kHashBatchChars = 768;
} // namespace

void BoardFiles::forgetScripts()
{
    m_pasted.clear();
    m_boardInflates = -1;
    m_boardRaw = -1;
}

bool BoardFiles::fastScript()
{
    // One script for both board types: it wraps writes in pyb.FlashWriter() where the board has one.
    const QString path = scriptPath(QStringLiteral("Scripts/Fast"), QStringLiteral("fast"), false);
    m_callSince = m_restarts;
    if (m_pasted.contains(path) && m_boardInflates >= 0)
        return m_link.to_raw();
    if (!upload_script(path))
        return false;
    bool ok = false;
    const QByteArray answer = rawCall("_fcap()", kFastCallTimeoutMs, &ok).trimmed();
    if (!ok) {
        forgetScripts();
        return false;
    }
    // Whether it can inflate, then whether its console takes raw bytes.
    const QList<QByteArray> can = answer.split(' ');
    m_boardInflates = can.value(0) == "1" ? 1 : 0;
    m_boardRaw = can.value(1) == "1" ? 1 : 0;
    return true;
}

void BoardFiles::resync()
{
    // Whatever the board was doing (a late answer, a reset behind an open
    // port), it ends in a fresh raw REPL whose scripts we no longer trust.
    forgetScripts();
    stopQuietly();
    m_link.setState(MC_RAW);
    settleRaw();
}

QByteArray BoardFiles::rawCall(const QByteArray& call, int timeoutMs, bool* ok)
{
    *ok = false;
    m_lastCallError.clear();
    m_link.processQueue();
    const bool pasting = m_link.pasteCommands();
    m_link.setPasteCommands(true);
    const bool sent = m_link.write(call + kCtrlD);
    m_link.setPasteCommands(pasting);
    if (!sent)
        return {};
    // The raw REPL answers "OK", the output, Ctrl-D, any error text, Ctrl-D, ">".
    QByteArray all;
    QElapsedTimer timer;
    timer.start();
    while (all.count(kCtrlD) < 2) {
        if (!m_link.hasReply()) {
            if (m_restarts != m_callSince) {
                // Reset behind an open port (its button, a watchdog): no answer will come.
                log(tr("The board restarted during a call: starting it again"));
                m_lastCallError = kRestartedCall;
                resync();
                return {};
            }
            const int left = timeoutMs - static_cast<int>(timer.elapsed());
            if (left > 0 && m_link.isOpen()) {
                m_link.awaitEodOrRestart(left);
                continue;
            }
            if (m_link.isOpen()) {
                log(tr("No answer from the board in %1 s: interrupted").arg(timeoutMs / 1000));
                resync();
            }
            return {};
        }
        all += m_link.takeReply();
    }
    if (!all.startsWith(kRawAccepted)) {
        m_lastCallError = all;
        return {};
    }
    const int end = all.indexOf(kCtrlD);
    const QByteArray error = all.mid(end + 1, all.indexOf(kCtrlD, end + 1) - end - 1);
    if (!error.isEmpty()) {
        m_lastCallError = error;
        // A board that forgot our scripts is handled by the caller.
        if (!error.contains(kNameError))
            log(QStringLiteral("&gt;&gt;") + QString::fromUtf8(error));
        return {};
    }
    *ok = true;
    return all.mid(kRawAccepted.size(), end - kRawAccepted.size());
}

bool BoardFiles::forgotScripts(QByteArray reply)
{
    // A traceback is cut at every ">" ("<stdin>", "<module>"): read it to its end.
    QElapsedTimer timer;
    timer.start();
    while (reply.contains("Traceback") && reply.count(kCtrlD) < 2 && timer.elapsed() < kTracebackMs) {
        if (!m_link.hasReply() && !m_link.awaitEod(kTracebackMs))
            break;
        while (m_link.hasReply())
            reply += '>' + m_link.takeReply();
    }
    if (!reply.contains(kNameError))
        return false;
    // Reset behind a port that stayed open (EN button, watchdog, brown-out).
    log(tr("The board no longer knows Pelkam's scripts (was it reset?): pasting them again"));
    resync();
    return true;
}

QByteArray BoardFiles::fastCall(const QByteArray& call, int timeoutMs, bool* ok, const QString& script)
{
    for (int attempt = 0;; ++attempt) {
        *ok = false;
        m_lastCallError.clear();
        // A restart from here on (even during the paste) means no answer will come.
        m_callSince = m_restarts;
        QByteArray answer;
        if (script.isEmpty() ? fastScript() : upload_script(script))
            answer = rawCall(call, timeoutMs, ok);
        if (*ok)
            return answer;
        // Once more in a fresh raw REPL after a restart, or when the board forgot our scripts.
        if (attempt == 0 && (m_lastCallError == kRestartedCall || m_restarts != m_callSince)) {
            if (m_lastCallError != kRestartedCall) {
                log(tr("The board restarted during a call: starting it again"));
                resync();
            }
            continue;
        }
        if (attempt == 0 && forgotScripts(m_lastCallError))
            continue;
        if (m_lastCallError.contains(kNameError))
            log(QStringLiteral("&gt;&gt;") + QString::fromUtf8(m_lastCallError));
        return answer;
    }
}

QStringList BoardFiles::fastClean(const QString& dir)
{
    // Leftover temporaries go; a verified copy whose target is missing (a
    // reset between FAT's unlink and rename) is put in place.
    bool ok = false;
    const QByteArray restored =
        fastCall("print('\\n'.join(_fcln(" + pyString(dir).toLatin1() + ")))", kFastCallTimeoutMs, &ok).trimmed();
    QStringList paths;
    if (!ok)
        return paths;
    for (const QByteArray& line : restored.split('\n'))
        if (!line.trimmed().isEmpty())
            paths << QString::fromUtf8(line.trimmed());
    for (const QString& path : qAsConst(paths))
        log(tr("%1 restored from its verified copy").arg(path));
    return paths;
}

QByteArray BoardFiles::deflateBlocks(const QByteArray& data)
{
    QByteArray out;
    for (int offset = 0; offset < data.size(); offset += kDeflateBlock) {
        const QByteArray block = data.mid(offset, kDeflateBlock);
        z_stream z{};
        // Raw deflate (negative window bits): the board inflates with deflate.RAW.
        if (deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, -kDeflateWindowBits, 9, Z_DEFAULT_STRATEGY) != Z_OK)
            return {};
        QByteArray packed(static_cast<int>(deflateBound(&z, static_cast<uLong>(block.size()))), Qt::Uninitialized);
        z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(block.data()));
        z.avail_in = static_cast<uInt>(block.size());
        z.next_out = reinterpret_cast<Bytef*>(packed.data());
        z.avail_out = static_cast<uInt>(packed.size());
        const int result = deflate(&z, Z_FINISH);
        packed.resize(static_cast<int>(z.total_out));
        deflateEnd(&z);
        const bool stored = result != Z_STREAM_END || packed.size() >= block.size();
        const QByteArray& body = stored ? block : packed;
        const quint16 header = static_cast<quint16>(body.size()) | (stored ? kStoredBlock : 0);
        out += static_cast<char>(header >> 8);
        out += static_cast<char>(header & 0xFF);
        out += body;
    }
    return out;
}

QHash<QString, QByteArray> BoardFiles::mc_file_hashes(const QStringList& paths, const QString& hashScript)
{
    const BoardBusy scope(*this);
    QHash<QString, QByteArray> digests;
    for (int first = 0; first < paths.size();) {
        QStringList batch;
        int chars = 0;
        for (int i = first; i < paths.size() && (batch.isEmpty() || chars < kHashBatchChars); ++i) {
            batch << pyString(paths.at(i));
            chars += batch.last().size();
        }
        // The hash script's own _hash, many files to one raw-REPL call.
        const QByteArray call =
            "print(b' '.join(_hash(f) for f in [" + batch.join(QLatin1Char(',')).toLatin1() + "]).decode())";
        bool ok = false;
        // A slow flash takes its time per file.
        const int timeout = kFastCallTimeoutMs + kPerFileMs * batch.size();
        const QList<QByteArray> replies = fastCall(call, timeout, &ok, hashScript).trimmed().split(' ');
        if (!ok || replies.size() != batch.size()) {
            forgetScripts();
            return {};
        }
        for (int i = 0; i < batch.size(); ++i)
            digests.insert(paths.at(first + i), replies.at(i).trimmed());
        first += batch.size();
    }
    return digests;
}

QString BoardFiles::fastUploadCall(const QByteArray& raw, const QString& target, int chunk, QByteArray* text,
                                   bool* deflatedOut)
{
    // The checksum covers what is sent.
    bool deflated = false;
    *text = packForBoard(raw, &deflated).toBase64();
    *deflatedOut = deflated;
    return QStringLiteral("_fup(%1, %2, %3, %4, %5)")
        .arg(pyString(target))
        .arg(chunk)
        .arg(deflated ? 1 : 0)
        .arg(raw.size())
        .arg(byteSum(raw));
}

QByteArray BoardFiles::packForBoard(const QByteArray& raw, bool* deflated)
{
    *deflated = false;
    if (m_boardInflates != 1 || m_deflateFailed)
        return raw;
    const QByteArray packed = deflateBlocks(raw);
    *deflated = packed.size() <= raw.size() / kDeflateWorthDenominator * kDeflateWorthNumerator;
    return *deflated ? packed : raw;
}

bool BoardFiles::listQuickly(const QString& directory, QJsonArray* dirs, QJsonArray* files, bool* exists)
{
    const BoardBusy scope(*this);
    QString dir = directory;
    if (dir.size() >= 2 && dir.endsWith(QLatin1Char('/')))
        dir.chop(1);
    if (!m_link.to_raw())
        return false;
    const QString call =
        QStringLiteral("import os,json\ntry:\n r=[1,0,[],[]]\n for i in os.ilistdir(%1):\n  n=i[0]\n"
                       "  if n.endswith(%2) or n.endswith(%3):r[1]=1\n"
                       "  elif i[1]==0x4000:r[2].append({'n':n,'s':-1})\n"
                       "  elif i[1]==0x8000:r[3].append({'n':n,'s':i[3] if len(i)>3 else -1})\n"
                       "except OSError:r=[0,0,[],[]]\nprint(json.dumps(r))")
            .arg(pyString(dir), pyString(kTempSuffix), pyString(kVerifiedSuffix));
    bool ok = false;
    const QByteArray answer = rawCall(call.toLatin1(), kFastCallTimeoutMs, &ok);
    const QJsonArray listed = QJsonDocument::fromJson(answer.trimmed()).array();
    if (!ok || listed.size() != 4 || listed.at(1).toInt() != 0)
        return false;
    *exists = listed.at(0).toInt() == 1;
    *dirs = listed.at(2).toArray();
    *files = listed.at(3).toArray();
    return true;
}

int BoardFiles::fastPut(const QByteArray& raw, const QString& target)
{
    if (!m_link.canPutFiles() || m_noFileProtocol)
        return -1;
    // The fast script picks the temporary (or the file itself, when only
    // that fits) and creates it, so the board's file protocol never fails to open it.
    bool ok = false;
    const QString place = QStringLiteral("_fwa(%1, %2)").arg(pyString(target)).arg(raw.size());
    const QByteArray placed = fastCall(place.toLatin1(), kFastCallTimeoutMs + kPerFileMs, &ok);
    if (!ok || !placed.startsWith("#0"))
        return -1;
    const QByteArray path = placed.mid(2);
    if (path.size() > m_link.putPathLimit())
        return -1;
    QString error;
    emit progressStarted(raw.size());
    const bool sent = m_link.putFile(path, raw, &error);
    emit progressFinished();
    if (!sent) {
        if (!m_link.isOpen())
            return 0;
        log(tr("WebREPL's file protocol failed (%1): files go through the REPL until the next connection")
                .arg(error));
        m_noFileProtocol = true;
        resync();
        return -1;
    }
    emit fileProgress(raw.size(), raw.size());
    // The board answers "done" even when a write failed: its copy is read back.
    const QString check = QStringLiteral("_fwb(%1, %2)").arg(raw.size()).arg(byteSum(raw));
    m_lastReply = fastCall(check.toLatin1(), kFastCallTimeoutMs + raw.size() / kVerifyBytesPerMs, &ok);
    if (ok && m_lastReply.startsWith("#0"))
        return 1;
    if (!m_link.isOpen())
        return 0;
    return -1;
}

bool BoardFiles::fastMkdir(const QString& path)
{
    // One call for every missing folder of the path, in the raw REPL.
    log(tr("Creating dir %1").arg(path));
    bool ok = false;
    const int timeout = kFastCallTimeoutMs + kPerFileMs * path.count(QLatin1Char('/'));
    fastCall("_fmk(" + pyString(path).toLatin1() + ')', timeout, &ok);
    return ok;
}

bool BoardFiles::fastUploadAgain(const QString& target, bool deflated)
{
    // A board that restarted under the upload, that forgot our scripts, or
    // that cannot inflate after all, gets the file once more.
    if (!m_lastReply.startsWith('#') && m_restarts == m_callSince) {
        // A reset's first words (an ESP32 ROM's "ets ...") come before the
        // lines that tell it is one.
        QElapsedTimer settle;
        settle.start();
        for (int left = kRestartSettleMs; m_restarts == m_callSince && left > 0 && m_link.isOpen();
             left = kRestartSettleMs - static_cast<int>(settle.elapsed()))
            m_link.awaitEodOrRestart(left);
    }
    if (m_restarts != m_callSince) {
        log(tr("The board restarted during the upload of %1: sending it again").arg(target));
        resync();
        return true;
    }
    if (forgotScripts(m_lastReply))
        return true;
    if (!deflated || !m_lastReply.startsWith(kInflateFailed))
        return false;
    log(tr("The board has no memory left to inflate %1: sending it uncompressed, and nothing more "
           "compressed until it is connected again")
            .arg(target));
    m_deflateFailed = true;
    m_link.clearQueue();
    m_link.drain();
    return true;
}

void BoardFiles::reportInPlace(const QString& target)
{
    if (m_lastReply.startsWith("#0") && m_lastReply.contains(kWrittenInPlace))
        log(tr("No room on the board for a second copy of %1: it was written in place").arg(target));
}
