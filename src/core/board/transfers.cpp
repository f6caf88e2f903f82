// BoardFiles: the packet exchange of uploads and downloads, shared by both
// transfer modes.
#include "boardfiles.h"

#include "boarderrors.h"
#include "link/replbytes.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSaveFile>

using namespace replbytes;

namespace {
constexpr int kSizePacketTimeoutMs = 5000;
constexpr int kChunkTimeoutMs = 6000;
constexpr int kChecksumTimeoutMs = 5000;
constexpr int kBeforeDataMs = 300;
constexpr int kBeforeChecksumMs = 400;
constexpr int kAckTimeoutMs = 1000;
constexpr int kIdleStepMs = 200;
constexpr int kIdleLimit = 10;
} // namespace

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
    m_fileSize = raw.size();
    emit fileOpsEnableRequested(false);
    const int chunk = fast ? m_link.fastChunkSize() : m_link.chunkSize();
    int direct = fast ? fastPut(raw, target) : -1;
    if (direct == 0) {
        // The board went away with the data on its way.
        logUploadFailure(target, true, tr("Transmission error. Aborted"));
        return false;
    }
    if (direct < 0 && fast) {
        const int streamed = rawUpload(raw, target);
        if (streamed == RawCancelled)
            emit fileOpsEnableRequested(true);
        if (streamed == RawCancelled || streamed == RawFailed)
            return false;
        direct = streamed == RawDone ? 1 : -1;
    }
    for (int attempt = 0; direct < 0; ++attempt) {
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
        logUploadFailure(target, fast, failure);
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

QString BoardFiles::invalidReply(const QByteArray& reply)
{
    return tr("Invalid reply %1. Aborted").arg(QString::fromLatin1(reply.toHex().toUpper()));
}

void BoardFiles::logUploadFailure(const QString& target, bool fast, const QString& failure)
{
    // The board's own reason follows its status digit; the default mode
    // keeps its "Invalid reply" line and says the reason after it, the fast
    // mode says only the reason.
    // A refusal before the first "#9" arrives with the raw REPL's "OK".
    QByteArray reply = m_lastReply.startsWith(kRawAccepted) ? m_lastReply.mid(kRawAccepted.size()) : m_lastReply;
    reply.replace(kCtrlD, QByteArray());
    const QByteArray reason = reply.startsWith('#') ? reply.mid(2).trimmed() : QByteArray();
    const bool explained = reply.startsWith("#8") && !reason.isEmpty();
    const QString fault = BoardErrors::transferFault(reply);
    const bool invalid = !m_lastReply.isEmpty() && failure == invalidReply(m_lastReply);
    if (!fast || !invalid)
        log(failure);
    if (BoardErrors::noSpace(reason)) {
        log(tr("Not enough room on the board"));
    } else if (explained) {
        log(tr("The board cannot write %1: %2").arg(target, BoardErrors::explain(reason)));
    } else if (!fault.isEmpty()) {
        log(tr("Cannot upload %1: %2").arg(target, fault));
    } else if (fast && invalid) {
        // Something else answered (a traceback, a stray print): its last line says most.
        const QStringList lines = BoardErrors::explain(reply).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        log(tr("Cannot upload %1: the board answered \"%2\"").arg(target, lines.value(lines.size() - 1).trimmed()));
    }
}

QString BoardFiles::sendTransfer(const QByteArray& text, int chunk, bool fast, bool* cancelled, int verifyMs)
{
    const auto invalid = &BoardFiles::invalidReply;
    QByteArray reply;
    QString failure =
        request(sizePacket(text.size()), kSizePacketTimeoutMs, tr("Error while starting the transmission. Aborted"),
                tr("No reply for the transmitted data. Aborted"), &reply);
    if (failure.isEmpty() && !reply.endsWith("#9"))
        failure = invalid(reply);
    if (!failure.isEmpty())
        return failure;
    // The board may fail during the plain waits (opening a file in a missing
    // folder, the last write on a full flash): its answer is the failure, not
    // stray output before the next packet.
    const auto failedMeanwhile = [&] {
        if (!m_link.hasReply())
            return false;
        m_lastReply = m_link.takeReply();
        return true;
    };
    if (!fast) {
        m_link.qWait(kBeforeDataMs);
        if (failedMeanwhile())
            return invalid(m_lastReply);
    }
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
        emit fileProgress(qMin<qint64>(m_fileSize, m_fileSize * (offset + chunk) / qMax(1, text.size())), m_fileSize);
        if (m_cancel) {
            emit progressFinished();
            stopQuietly();
            cancelRequested();
            *cancelled = true;
            return QString();
        }
    }
    emit progressFinished();

    if (!fast) {
        m_link.qWait(kBeforeChecksumMs);
        if (failedMeanwhile())
            return invalid(m_lastReply);
    }
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

bool BoardFiles::downloadReplacing(const QString& source, const QString& localPath)
{
    // QSaveFile writes beside the target and renames only on commit, which
    // fails when any write, the flush or the sync failed: a full disk or a
    // size limit leaves the old file whole.
    QSaveFile file(localPath);
    if (!file.open(QIODevice::WriteOnly)) {
        log(tr("Cannot write to %1: %2").arg(localPath, file.errorString()));
        m_lastDownloadOk = false;
        m_localWriteFailed = true;
        return false;
    }
    download(source, &file);
    if (!m_lastDownloadOk || m_cancel) {
        file.cancelWriting();
        m_lastDownloadOk = false;
        return false;
    }
    if (!file.commit()) {
        log(tr("Cannot write to %1: %2").arg(localPath, file.errorString()));
        m_lastDownloadOk = false;
        m_localWriteFailed = true;
        return false;
    }
    return true;
}

bool BoardFiles::download(const QString& source, QFileDevice* target)
{
    const BoardBusy scope(*this);
    m_lastDownloadOk = false;
    m_localWriteFailed = false;
    emit fileOpsEnableRequested(false);
    if (fastTransfers()) {
        const int streamed = rawDownload(source, target);
        if (streamed != RawNotUsed) {
            emit fileOpsEnableRequested(true);
            return m_link.isOpen();
        }
    }
    if (!upload_script(scriptPath(QStringLiteral("Scripts/Download"), QStringLiteral("download"), false)))
        return false;
    const QString call = QStringLiteral("_download(%1)").arg(pyString(source));
    if (!m_link.write(call.toLatin1() + kCtrlD))
        return false;
    log(tr("Downloading %1").arg(source));

    quint64 sum = 0;
    bool ok = false;
    bool finished = false;
    bool writeFailed = false;
    qint64 received = 0;
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
            storeReceived(target, data, &writeFailed, &sum);
            received += data.size();
            emit fileProgress(received, -1);
            // Anything but "^^" makes the board end the transfer cleanly.
            const bool stop = m_cancel || writeFailed;
            if (!m_link.tranceive(stop ? QByteArrayLiteral("!!") : QByteArrayLiteral("^^"), kAckTimeoutMs)) {
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
            if (!(m_cancel && cancelRequested()) && !writeFailed)
                log(tr("Transmission error: %1").arg(BoardErrors::explain(reply)));
            break;
        } else {
            log(tr("Communication error - unexpected data"));
            break;
        }
    }
    concludeDownload(source, target, ok, writeFailed);
    if (!finished)
        recover();
    emit fileOpsEnableRequested(true);
    m_link.clearQueue();
    return settleRaw();
}

void BoardFiles::concludeDownload(const QString& source, QFileDevice* target, bool ok, bool writeFailed)
{
    if (!target->flush() && !writeFailed) {
        writeFailed = true;
        log(tr("Cannot write to %1: %2").arg(target->fileName(), target->errorString()));
    }
    ok = ok && !writeFailed;
    m_localWriteFailed = writeFailed;
    if (ok)
        log(tr("Download from %1 completed").arg(source));
    m_lastDownloadOk = ok;
}

void BoardFiles::storeReceived(QFileDevice* target, const QByteArray& data, bool* writeFailed, quint64* sum)
{
    if (!*writeFailed && target->write(data) != data.size()) {
        *writeFailed = true;
        log(tr("Cannot write to %1: %2").arg(target->fileName(), target->errorString()));
    }
    for (char c : data)
        *sum += static_cast<unsigned char>(c);
}
