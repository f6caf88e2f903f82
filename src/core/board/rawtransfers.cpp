// BoardFiles: fast transfers whose file bytes travel raw over a serial line.
// The board turns Ctrl-C off while data flows and paces both directions:
// uploads go in windows the board grants with one credit byte each (it
// copies a window out of its small console ring before it grants the next,
// and writes to flash from RAM, so a slow erase pauses the line but never
// overflows the ring); downloads come in windows the PC acknowledges. A
// digest of the whole file and the fast upload's temporary-and-rename
// stay as they are.
#include "boardfiles.h"

#include "boarderrors.h"
#include "link/replbytes.h"

#include <QElapsedTimer>
#include <QFileDevice>

using namespace replbytes;

namespace {
// Upload: each window goes after a mark; the board answers each with a
// credit, or with a refusal once it cannot write any more.
constexpr char kWindowMark = '=';
constexpr char kStopMark = 'X';
constexpr char kCredit = 0x01;
constexpr char kRefusal = 0x15;
// The board lost its place in the stream (a byte lost on the line): it
// takes in what is still under way, then answers.
constexpr char kLostPlace = 0x18;
// Download: each window comes after a mark, or the board says it could not
// read on; the PC answers each window with an acknowledgement or a stop.
constexpr char kReadFailed = '!';
constexpr char kAck = 0x06;
// How long the board may take to answer one window.
constexpr int kWindowTimeoutMs = 6000;
constexpr int kStartTimeoutMs = 12000;
constexpr int kEndTimeoutMs = 5000;
// The largest window a board may ask for; anything else is not our helper talking.
constexpr qint64 kMaxWindow = 4096;

// The link keeps bytes as they come for as long as one lives.
struct RawStreamScope {
    explicit RawStreamScope(BoardLink& link) : m_link(link) { m_link.setRawStream(true); }
    ~RawStreamScope() { m_link.setRawStream(false); }
    RawStreamScope(const RawStreamScope&) = delete;
    RawStreamScope& operator=(const RawStreamScope&) = delete;
    BoardLink& m_link;
};
} // namespace

bool BoardFiles::rawTransfersHere()
{
    if (!m_link.carriesRawBytes() || !fastScript())
        return false;
    if (m_boardRaw == 1)
        return true;
    if (!m_rawFallbackLogged)
        log(tr("This board cannot take raw bytes (no micropython.kbd_intr or sys.stdin.buffer): files travel "
               "in base64"));
    m_rawFallbackLogged = true;
    return false;
}

bool BoardFiles::takeCallEnd(int from)
{
    // Output, Ctrl-D, error text, Ctrl-D, ">": the raw REPL's end of a call.
    const QByteArray& bytes = m_link.buffered();
    const int first = bytes.indexOf(kCtrlD, from);
    const int last = first < 0 ? -1 : bytes.indexOf(QByteArray(1, kCtrlD) + kRawEnd, first + 1);
    if (last < 0)
        return false;
    m_lastReply = bytes.mid(from, first - from);
    m_lastCallError = bytes.mid(first + 1, last - first - 1);
    m_link.consumeBuffered(last + 1 + kRawEnd.size());
    return true;
}

int BoardFiles::rawStart(const QByteArray& call, char kind, QList<qint64>* fields)
{
    m_lastReply.clear();
    m_lastCallError.clear();
    if (!m_link.write(call + kCtrlD))
        return RawLost;
    const QByteArray header = QByteArrayLiteral("#9") + kind;
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        const QByteArray& bytes = m_link.buffered();
        if (bytes.size() >= kRawAccepted.size() && !bytes.startsWith(kRawAccepted)) {
            m_lastReply = bytes;
            return RawLost;
        }
        const int line = bytes.indexOf('\n');
        if (bytes.startsWith(kRawAccepted + header) && line > 0) {
            const int from = kRawAccepted.size() + header.size();
            for (const QByteArray& field : bytes.mid(from, line - from).trimmed().split(','))
                fields->append(field.toLongLong());
            m_link.consumeBuffered(line + 1);
            return RawStarted;
        }
        if (bytes.startsWith(kRawAccepted) && takeCallEnd(kRawAccepted.size())) {
            // A traceback says more than the output before it.
            if (!m_lastCallError.isEmpty())
                m_lastReply = m_lastCallError;
            return RawEnded;
        }
        const int left = kStartTimeoutMs - static_cast<int>(timer.elapsed());
        if (left <= 0 || !m_link.awaitBytes(left))
            return RawLost;
    }
}

bool BoardFiles::rawEnd(int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!takeCallEnd(0)) {
        const int left = timeoutMs - static_cast<int>(timer.elapsed());
        if (left <= 0 || !m_link.awaitBytes(left))
            return false;
    }
    return true;
}

// ---- Upload ----

int BoardFiles::rawUpload(const QByteArray& raw, const QString& target)
{
    for (int attempt = 0;; ++attempt) {
        // Again after a restart too: the board that answers may be another.
        if (!rawTransfersHere())
            return RawNotUsed;
        bool deflated = false;
        const QByteArray wire = packForBoard(raw, &deflated);
        QString failure;
        const int result = rawUploadOnce(raw, wire, deflated, target, &failure);
        if (result != RawFailed)
            return result;
        if (attempt == 0 && fastUploadAgain(target, deflated))
            continue;
        logUploadFailure(target, true, failure);
        recover();
        return RawFailed;
    }
}

int BoardFiles::rawUploadOnce(const QByteArray& raw, const QByteArray& wire, bool deflated, const QString& target,
                              QString* failure)
{
    const auto invalid = &BoardFiles::invalidReply;
    m_callSince = m_restarts;
    const RawStreamScope scope(m_link);
    const QString call = QStringLiteral("_fru(%1, %2, %3, %4, %5)")
                             .arg(pyString(target))
                             .arg(deflated ? 1 : 0)
                             .arg(wire.size())
                             .arg(raw.size())
                             .arg(byteSum(raw));
    QList<qint64> fields;
    const int started = rawStart(call.toLatin1(), 'R', &fields);
    if (started != RawStarted) {
        *failure = started == RawEnded ? invalid(m_lastReply) : tr("Error while starting the transmission. Aborted");
        return RawFailed;
    }
    const qint64 window = fields.value(0);
    const qint64 credits = fields.value(1);
    if (window <= 0 || window > kMaxWindow || credits <= 0) {
        *failure = invalid("#9R" + QByteArray::number(window));
        return RawFailed;
    }

    emit progressStarted(wire.size());
    int sent = 0;
    int outstanding = 0; // windows sent that the board has not answered yet
    bool refused = false;
    bool stopped = false;
    bool cancelled = false;
    for (;;) {
        // The board's answers so far.
        const QByteArray& bytes = m_link.buffered();
        int taken = 0;
        while (taken < bytes.size() && outstanding > 0 &&
               (bytes.at(taken) == kCredit || bytes.at(taken) == kRefusal)) {
            refused = refused || bytes.at(taken) == kRefusal;
            ++taken;
            --outstanding;
        }
        if (taken < bytes.size() && outstanding > 0 && bytes.at(taken) == kLostPlace) {
            ++taken;
            outstanding = 0;
            stopped = true;
        }
        m_link.consumeBuffered(taken);
        if ((sent >= wire.size() || stopped) && outstanding == 0)
            break; // what follows is the board's status
        if (!m_link.buffered().isEmpty()) {
            // Not our helper's answer: it ended (or the board restarted) under us.
            m_lastReply = m_link.buffered();
            *failure = invalid(m_lastReply);
            emit progressFinished();
            return RawFailed;
        }
        if (sent < wire.size() && !stopped && (refused || m_cancel)) {
            cancelled = !refused;
            stopped = true;
            m_link.sendBytes(QByteArray(1, kStopMark));
        }
        if (sent < wire.size() && !stopped && outstanding < credits) {
            const int n = static_cast<int>(qMin<qint64>(window, wire.size() - sent));
            if (!m_link.sendBytes(kWindowMark + wire.mid(sent, n))) {
                *failure = tr("Transmission error. Aborted");
                emit progressFinished();
                return RawFailed;
            }
            sent += n;
            ++outstanding;
            emit progressChanged(sent);
            emit fileProgress(qMin<qint64>(raw.size(), qint64(raw.size()) * sent / qMax(1, wire.size())), raw.size());
            continue;
        }
        if (!m_link.awaitBytes(kWindowTimeoutMs)) {
            emit progressFinished();
            if (!m_link.isOpen()) {
                *failure = tr("Transmission error. Aborted");
                return RawFailed;
            }
            // A byte lost on the line leaves the board inside a window:
            // enough stop marks fill it and end the transfer.
            m_link.sendBytes(QByteArray(static_cast<int>(window) + 1, kStopMark));
            *failure = tr("No reply. Aborted");
            return RawFailed;
        }
    }
    emit progressFinished();
    // The board reads its copy back before it answers.
    if (!rawEnd(kEndTimeoutMs + raw.size() / kVerifyBytesPerMs)) {
        *failure = tr("Finalization error (during reception phase). Aborted");
        return RawFailed;
    }
    if (cancelled) {
        cancelRequested();
        return RawCancelled;
    }
    if (!m_lastCallError.isEmpty())
        m_lastReply = m_lastCallError;
    if (!m_lastReply.startsWith("#0")) {
        *failure = invalid(m_lastReply);
        return RawFailed;
    }
    return RawDone;
}

// ---- Download ----

int BoardFiles::rawDownload(const QString& source, QFileDevice* target)
{
    if (!rawTransfersHere())
        return RawNotUsed;
    QList<qint64> fields;
    int started = RawLost;
    for (int attempt = 0; attempt < 2; ++attempt) {
        m_callSince = m_restarts;
        fields.clear();
        {
            const RawStreamScope scope(m_link);
            started = rawStart("_frd(" + pyString(source).toLatin1() + ')', 'D', &fields);
            if (started == RawStarted)
                return rawReceive(source, target, fields);
        }
        // A board that forgot our scripts gets them once more.
        if (!(attempt == 0 && started == RawEnded && forgotScripts(m_lastReply) && fastScript()))
            break;
    }
    if (started == RawEnded && m_lastReply.startsWith("#6"))
        log(tr("Transmission error: %1").arg(BoardErrors::explain(m_lastReply.mid(2).trimmed())));
    else
        log(tr("Communication error - unexpected data"));
    recover();
    return RawFailed;
}

int BoardFiles::rawReceive(const QString& source, QFileDevice* target, const QList<qint64>& fields)
{
    // The link's raw stream is on; the header has been read.
    const qint64 size = fields.value(0);
    const qint64 window = fields.value(1);
    log(tr("Downloading %1").arg(source));
    if (size < 0 || window <= 0 || window > kMaxWindow) {
        log(tr("Communication error - unexpected data"));
        recover();
        return RawFailed;
    }
    quint64 sum = 0;
    qint64 received = 0;
    bool writeFailed = false;
    bool stopping = false;
    while (received < size) {
        const QByteArray& bytes = m_link.buffered();
        const qint64 expected = qMin(window, size - received);
        // After a stop the board sends what was under way, then its status.
        if (!bytes.isEmpty() && (bytes.at(0) == kReadFailed || (stopping && bytes.at(0) != kWindowMark))) {
            if (bytes.at(0) == kReadFailed)
                m_link.consumeBuffered(1);
            break; // its reason follows
        }
        if (!bytes.isEmpty() && bytes.at(0) != kWindowMark) {
            log(tr("Communication error - unexpected data"));
            m_link.sendBytes(QByteArray(2, kStopMark));
            recover();
            return RawFailed;
        }
        if (bytes.size() > expected) {
            const QByteArray data = bytes.mid(1, static_cast<int>(expected));
            m_link.consumeBuffered(static_cast<int>(expected) + 1);
            storeReceived(target, data, &writeFailed, &sum);
            received += data.size();
            emit fileProgress(received, size);
            stopping = stopping || m_cancel || writeFailed;
            m_link.sendBytes(QByteArray(1, stopping ? kStopMark : kAck));
            continue;
        }
        if (!m_link.awaitBytes(kWindowTimeoutMs)) {
            log(tr("Communication timed out"));
            m_link.sendBytes(QByteArray(2, kStopMark));
            recover();
            return RawFailed;
        }
    }
    if (!rawEnd(kEndTimeoutMs)) {
        log(tr("Communication timed out"));
        recover();
        return RawFailed;
    }
    bool ok = false;
    if (m_lastReply.startsWith("#7") && m_lastCallError.isEmpty()) {
        const quint64 board = m_lastReply.mid(2).trimmed().toULongLong();
        ok = board == (sum & 0xFFFFFFFFu);
        if (!ok)
            log(tr("File downloaded with errors!! (checksum mismatch %1 vs %2").arg(board).arg(sum));
    } else if (!(m_cancel && cancelRequested()) && !writeFailed) {
        const QByteArray reason = m_lastCallError.isEmpty() ? m_lastReply.mid(2) : m_lastCallError;
        log(tr("Transmission error: %1").arg(BoardErrors::explain(reason.trimmed())));
    }
    concludeDownload(source, target, ok, writeFailed);
    return ok ? RawDone : RawFailed;
}
