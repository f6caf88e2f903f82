#include "boardlink.h"

#include "replbytes.h"
#include "boardtransport.h"
#include "transports.h"

#include <QElapsedTimer>
#include <QEventLoop>

using namespace replbytes;

namespace {
const QByteArray kPrompt = QByteArrayLiteral(">>> ");
const QByteArray kContinuation = QByteArrayLiteral("... ");
// Typed lines remembered until their echo comes back.
constexpr int kTypedKept = 16;
// Lines of our own commands and pastes remembered to know their echo.
constexpr int kSentKept = 256;
const QByteArray kPasteEcho = QByteArrayLiteral("=== ");
const QByteArray kRawBannerLine = QByteArrayLiteral("raw REPL; CTRL-B to exit");

// A board line without the prompts before it (">>> ", "... ", "=== "), trimmed.
QByteArray withoutPrompts(QByteArray line)
{
    for (bool cut = true; cut;) {
        line = line.trimmed();
        cut = false;
        for (const QByteArray& prompt : {kPrompt, kContinuation, kPasteEcho})
            if (line.startsWith(prompt.trimmed())) {
                line.remove(0, prompt.trimmed().size());
                cut = true;
            }
    }
    return line;
}
const QByteArray kLineEnd = QByteArrayLiteral("\r\n");
// What MicroPython prints when Ctrl-D in the friendly REPL restarts it.
const QByteArray kSoftReboot = QByteArrayLiteral("soft reboot");
// An ESP32's ROM after a hard reset, and MicroPython's banner after any
// boot (also after every Ctrl-B, which is why those are counted).
const QByteArray kResetCause = QByteArrayLiteral("rst:0x");
const QByteArray kBanner = QByteArrayLiteral("MicroPython v");
constexpr int kBannerAfterCtrlBMs = 3000;
constexpr int kBootTextMs = 3000;

const QByteArray kLaunchCommand = QByteArrayLiteral("import machine; machine.reset()\r\n");
const QByteArray kResetCommand = QByteArrayLiteral("import machine; machine.reset(1)\r\n");
const QByteArray kDfuCommand = QByteArrayLiteral("import machine; machine.dfu()\r\n");

constexpr int kReplTimeoutMs = 5000;
constexpr int kAbortTimeoutMs = 1000;
constexpr int kDrainStartMs = 100;
constexpr int kDrainStepMs = 200;
constexpr int kDrainLimitMs = 3000;
constexpr int kResetSettleMs = 100;
constexpr int kInitWaitEspMs = 1500;
constexpr int kInitWaitStmMs = 500;
constexpr int kReconnectFirstMs = 400;
constexpr int kReconnectStepMs = 100;
constexpr int kInfoDelayMs = 200;
constexpr int kMinTransferSize = 32;
constexpr int kDefaultTransferSize = 512;
constexpr int kMaxTransferSize = 1024;
// WriteError, ReadError, ResourceError, TimeoutError and NotOpenError.
constexpr unsigned kFatalErrorMask = 0x3380;

} // namespace

BoardLink::BoardLink(QObject* parent) : QObject(parent)
{
    m_reconnectTimer.setSingleShot(true);
    m_reconnectTimer.setInterval(kReconnectFirstMs);
    m_infoTimer.setSingleShot(true);
    m_infoTimer.setInterval(kInfoDelayMs);
    connect(&m_reconnectTimer, &QTimer::timeout, this, &BoardLink::tryReconnect);
    connect(&m_infoTimer, &QTimer::timeout, this, &BoardLink::queryInfoRequested);
    useTransport(Transports::create(QString()));
}

BoardLink::~BoardLink()
{
    m_transport->blockSignals(true);
    m_transport->close();
}

void BoardLink::useTransport(std::unique_ptr<BoardTransport> transport)
{
    if (m_transport) {
        m_transport->blockSignals(true);
        m_transport->close();
    }
    m_transport = std::move(transport);
    m_rawPaste = -1; // not known until the first paste
    connect(m_transport.get(), &BoardTransport::readyRead, this, &BoardLink::io_ready);
    connect(m_transport.get(), &BoardTransport::closing, this, &BoardLink::io_disconnected);
    connect(m_transport.get(), &BoardTransport::serialError, this, &BoardLink::io_error);
    connect(m_transport.get(), &BoardTransport::dropped, this, [this](const QString& why) {
        emit logLine(why);
        io_disconnected();
    });
}

bool BoardLink::refusedForGood() const
{
    return m_transport && m_transport->refusedForGood();
}

bool BoardLink::canPutFiles() const
{
    return m_transport->canPutFiles();
}

int BoardLink::putPathLimit() const
{
    return m_transport->putPathLimit();
}

bool BoardLink::putFile(const QByteArray& path, const QByteArray& data, QString* error)
{
    return m_transport->putFile(path, data, error);
}

bool BoardLink::carriesRawBytes() const
{
    return m_transport->carriesRawBytes();
}

void BoardLink::setRawStream(bool on)
{
    m_rawStream = on;
    if (on)
        return;
    noteRecent(m_buffer);
    splitByState();
}

bool BoardLink::sendBytes(const QByteArray& data)
{
    return isOpen() && m_transport->send(data);
}

bool BoardLink::isOpen() const
{
    return m_transport->isOpen();
}

int BoardLink::chunkSize() const
{
    const int window = m_transport->inputWindow();
    const int size = transferSize();
    return window > 0 ? qMin(size, safeTransferSize(window)) : size;
}

int BoardLink::fastChunkSize() const
{
    // The fast script's buffer takes any multiple of four: as much of the
    // input ring as base64 fills whole.
    const int window = m_transport->inputWindow();
    const int size = transferSize();
    return window > 0 ? qMin(size, window / 4 * 4) : size;
}

void BoardLink::setState(MC_STATE s)
{
    if (s == m_state)
        return;
    if (m_state == MC_RUNNING)
        emit terminalLine(QStringLiteral("<font color=red>") + tr("Execution aborted") + QStringLiteral("</font>"));
    m_state = s;
    emit stateChanged(s);
}

int BoardLink::safeTransferSize(int size)
{
    if (size < kMinTransferSize)
        return kDefaultTransferSize;
    // The upload script buffers 1024 base64 bytes before it decodes them, so
    // only sizes that add up to exactly 1024 work: powers of two up to it.
    int safe = kMinTransferSize;
    while (safe * 2 <= qMin(size, kMaxTransferSize))
        safe *= 2;
    return safe;
}

int BoardLink::waitLoop(int ms, bool endOnData, bool endOnEod, bool endOnRestart)
{
    if (!isOpen())
        return Closed;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, &loop, [&loop] { loop.exit(Timeout); });
    connect(this, &BoardLink::portClosing, &loop, [&loop] { loop.exit(Closed); });
    if (endOnData)
        connect(m_transport.get(), &BoardTransport::readyRead, &loop, [&loop] { loop.exit(0); });
    if (endOnEod)
        connect(this, &BoardLink::eod, &loop, [&loop] { loop.exit(0); });
    if (endOnRestart)
        connect(this, &BoardLink::interpreterRestarted, &loop, [&loop] { loop.exit(0); });
    timer.start(ms);
    return loop.exec();
}

bool BoardLink::qDelay(int ms)
{
    return waitLoop(ms, true, false) != Closed;
}

bool BoardLink::qWait(int ms)
{
    return waitLoop(ms, false, false) != Closed;
}

bool BoardLink::tranceive(const QByteArray& data, int timeoutMs, bool chunked, const QByteArray& expect)
{
    processQueue();
    m_expect = expect;
    const quint64 eodsBefore = m_eods;
    bool sent = false;
    if (chunked)
        sent = write(data);
    else
        sent = isOpen() && send(data);
    // A chunked write waits between chunks, so the whole expected reply may
    // be in before the wait below starts.
    const bool answered = !expect.isEmpty() && m_expect.isEmpty() && m_eods != eodsBefore;
    const bool ok = sent && (answered || waitLoop(timeoutMs, false, true) == 0);
    m_expect.clear();
    return ok;
}

bool BoardLink::replCommand(const QByteArray& line, int timeoutMs)
{
    return tranceive(line + kLineEnd, timeoutMs, true, line);
}

bool BoardLink::awaitEod(int timeoutMs)
{
    return waitLoop(timeoutMs, false, true) == 0;
}

bool BoardLink::awaitEodOrRestart(int timeoutMs)
{
    return waitLoop(timeoutMs, false, true, true) == 0;
}

void BoardLink::io_ready()
{
    if (isOpen()) {
        const QByteArray data = m_transport->readAll();
        m_bytesReceived += static_cast<quint64>(data.size());
        m_buffer.append(data);
        if (!data.isEmpty() && !m_rawStream)
            noteRecent(data);
    }
    if (!m_pasting && !m_rawStream)
        splitByState();
}

void BoardLink::splitByState()
{
    if (m_rawStream)
        return;
    switch (m_state) {
    case MC_UNKNOWN:
    case MC_RUNNING:
        bufferSplitBy(kLineEnd);
        processQueue();
        break;
    case MC_REPL:
        bufferSplitBy(kLineEnd);
        break;
    case MC_RAW:
        bufferSplitBy(kRawEnd);
        break;
    }
}

void BoardLink::noteRecent(const QByteArray& data)
{
    m_recent += data;
    findRestart();
    // Enough of the end for a marker cut between two reads.
    m_recent = m_recent.right(kSoftReboot.size() + 64);
}

void BoardLink::findRestart()
{
    const bool booting = m_restartClock.isValid() && m_restartClock.elapsed() < kBootTextMs;
    bool soft = false;
    bool hard = false;
    for (const QByteArray& marker : {kSoftReboot, kResetCause, kBanner}) {
        const int at = m_recent.indexOf(marker);
        if (at < 0)
            continue;
        m_recent.remove(0, at + marker.size());
        if (marker == kBanner) {
            if (m_bannerClock.isValid() && m_bannerClock.elapsed() < kBannerAfterCtrlBMs) {
                m_bannerClock.invalidate(); // the banner our own Ctrl-B asked for
                continue;
            }
            if (booting)
                continue; // the rest of a boot already seen
        }
        (marker == kSoftReboot ? soft : hard) = true;
    }
    if (!soft && !hard)
        return;
    // A board reset behind a port that stayed open boots into the friendly
    // REPL (a soft reboot in the raw REPL stays there).
    if (hard && !soft && !booting && m_state == MC_RAW)
        setState(MC_REPL);
    m_restartClock.start();
    emit interpreterRestarted();
}

void BoardLink::signalEod()
{
    ++m_eods;
    emit eod();
}

bool BoardLink::takePiece(const QByteArray& piece)
{
    if (!m_expect.isEmpty()) {
        const bool expected = m_state == MC_RAW ? piece.contains(m_expect) : piece.endsWith(m_expect);
        if (!expected) {
            // A prompt, line end or status left over from an earlier exchange
            // (a board that takes LF as a second Enter answers twice).
            QByteArray text = piece;
            for (const char c : {'\r', '\n', '\x04', '>', ' '})
                text.replace(c, QByteArray());
            if (!text.isEmpty())
                appendLine(piece);
            return false;
        }
        m_expect.clear();
    }
    m_queue.append(piece);
    return true;
}

void BoardLink::bufferSplitBy(const QByteArray& sep)
{
    int from = 0;
    bool cut = false;
    for (int at = m_buffer.indexOf(sep, from); at >= 0; at = m_buffer.indexOf(sep, from)) {
        const QByteArray piece = m_buffer.mid(from, at - from);
        cut = true;
        from = at + sep.size();
        if (takePiece(piece) && (m_state == MC_RAW || (m_state == MC_REPL && piece == kPrompt)))
            signalEod();
    }
    if (cut)
        m_buffer = m_buffer.mid(from);
    if (m_state == MC_REPL && m_buffer == kPrompt) {
        // The prompt arrives without a line end.
        m_buffer.clear();
        if (takePiece(kPrompt))
            signalEod();
    }
}

void BoardLink::appendLine(const QByteArray& line)
{
    // A zero byte ends the text shown.
    const int zero = line.indexOf('\0');
    const QByteArray shown = zero >= 0 ? line.left(zero) : line;
    const QString text = QString::fromUtf8(shown);
    if (m_state > MC_RUNNING) {
        if (isOwnEcho(shown))
            emit ownCommandLine(text);
        else
            emit logLine(text);
    } else {
        emit terminalLine(text);
        if (!isEcho(shown))
            emit boardOutput(text);
    }
}

void BoardLink::noteSent(const QByteArray& data)
{
    if (m_state != MC_REPL)
        return;
    for (const QByteArray& line : data.split('\n')) {
        QByteArray text = line;
        text.replace(kCtrlE, QByteArray()).replace(kCtrlD, QByteArray()).replace(kCtrlC, QByteArray());
        text = text.trimmed();
        if (!text.isEmpty())
            m_sent << text;
    }
    while (m_sent.size() > kSentKept)
        m_sent.removeFirst();
}

bool BoardLink::isOwnEcho(QByteArray line) const
{
    // The friendly REPL's answers to our paste and raw-mode requests, and the
    // echo of our commands after a prompt (">>> ", "=== " while pasting).
    line = line.trimmed();
    if (line.startsWith(kPasteBanner) || line == kRawBannerLine)
        return true;
    line = withoutPrompts(line);
    return !line.isEmpty() && m_sent.contains(line);
}

bool BoardLink::type(const QByteArray& data)
{
    for (const QByteArray& line : data.split('\r')) {
        const QByteArray typed = line.trimmed();
        if (!typed.isEmpty())
            m_typed << typed;
    }
    while (m_typed.size() > kTypedKept)
        m_typed.removeFirst();
    return write(data);
}

bool BoardLink::isEcho(QByteArray line)
{
    // The board echoes a typed line after its prompt, or alone when the
    // prompt came before Pelkam was listening.
    line = withoutPrompts(line);
    const int at = m_typed.indexOf(line);
    if (at < 0 || line.isEmpty())
        return false;
    m_typed.removeAt(at);
    return true;
}

void BoardLink::processQueue()
{
    while (!m_queue.isEmpty()) {
        const QByteArray line = m_queue.takeFirst();
        if (m_state > MC_RUNNING && line == kPrompt)
            continue;
        if (!line.isNull())
            appendLine(line);
    }
}

void BoardLink::drain()
{
    if (qDelay(kDrainStartMs))
        drainQueue();
}

void BoardLink::drainQueue()
{
    // A board that never falls silent (a program printing in a loop) would
    // keep this going forever: stop after a while, the rest comes later.
    QElapsedTimer timer;
    timer.start();
    // Ends only after a whole step without data: a half line left in the
    // buffer means the board is still talking.
    quint64 before = 0;
    do {
        processQueue();
        before = m_bytesReceived;
        if (!qDelay(kDrainStepMs))
            return;
        io_ready();
    } while ((m_bytesReceived != before || !m_queue.isEmpty()) && isOpen() && timer.elapsed() < kDrainLimitMs);
}

void BoardLink::flushQueue(bool init)
{
    if (init) {
        emit logLine(tr("MC initialization..."));
        if (!qWait(m_type == MC_ESP32 ? kInitWaitEspMs : kInitWaitStmMs))
            return;
        if (!qDelay(kDrainStartMs))
            return;
    }
    drainQueue();
}

bool BoardLink::to_repl()
{
    const MC_STATE old = m_state;
    if (old == MC_REPL)
        return true;
    if (old > MC_RAW) {
        emit logLine(tr("REPL init failed"));
        return false;
    }
    setState(MC_REPL);
    QByteArray command(1, kCtrlB);
    if (old != MC_RAW)
        command += kCtrlC;
    if (tranceive(command, kReplTimeoutMs)) {
        if (old != MC_RAW)
            drain();
        emit logLine(tr("REPL initialized"));
        return true;
    }
    drain();
    setState(old);
    return false;
}

bool BoardLink::to_raw()
{
    MC_STATE s = m_state;
    if (s < MC_REPL) {
        if (!to_repl())
            return false;
        s = MC_REPL;
    }
    if (s == MC_RAW)
        return true;
    setState(MC_RAW);
    if (tranceive(QByteArray(1, kCtrlA), kReplTimeoutMs, true, kRawBanner)) {
        emit logLine(QStringLiteral("RAW REPL initialized")); // deliberately untranslated
        return true;
    }
    drain();
    setState(s);
    return false;
}

bool BoardLink::enterRawQuickly()
{
    // Enter first (a half-typed line), Ctrl-C twice (a program, a paste), then Ctrl-A.
    setState(MC_RAW);
    if (tranceive(QByteArrayLiteral("\r\x03\x03\x01"), kReplTimeoutMs, true, kRawBanner)) {
        emit logLine(QStringLiteral("RAW REPL initialized")); // deliberately untranslated
        return true;
    }
    setState(MC_UNKNOWN);
    return false;
}

MC_RES BoardLink::mc_stop(bool noReset)
{
    if (m_state == MC_RUNNING && !to_repl())
        return MC_FAILED;
    if (m_state == MC_UNKNOWN && !to_repl()) {
        // The board may sit in the raw REPL, which ignores Ctrl-C: try Ctrl-B alone.
        setState(MC_RAW);
        if (!to_repl()) {
            setState(MC_UNKNOWN);
            return MC_FAILED;
        }
    }
    if (!noReset && m_resetMcOption) {
        m_resetMcOption = false;
        emit resetMcConsumed();
        m_autoReconnect = true;
        m_stopOnConnect = true;
        if (!write(kResetCommand))
            return MC_FAILED;
        qWait(kResetSettleMs);
        if (!isOpen())
            return MC_DEFERRED;
        flushQueue(true);
        return MC_STOPPED;
    }
    drain();
    return MC_STOPPED;
}

bool BoardLink::abort()
{
    bool stopped = false;
    switch (m_state) {
    case MC_UNKNOWN:
    case MC_RUNNING:
        stopped = mc_stop(true) == MC_STOPPED;
        break;
    case MC_REPL:
    case MC_RAW:
        stopped = tranceive(QByteArray(1, kCtrlC), kAbortTimeoutMs);
        break;
    }
    emit logLine(stopped ? tr("Stopped") : tr("Abort failed"));
    if (stopped)
        emit queryInfoRequested();
    return stopped;
}

void BoardLink::launch()
{
    if (!to_repl())
        return;
    emit interpreterRestarted();
    m_autoReconnect = true;
    m_stopOnConnect = false;
    if (!write(kLaunchCommand))
        emit logLine(tr("Launch failed"));
    // Falls through after a failed write on purpose.
    emit logLine(tr("Launching..."));
    processQueue();
    setState(MC_RUNNING);
}

void BoardLink::reset()
{
    if (!to_repl())
        return;
    emit interpreterRestarted();
    m_autoReconnect = true;
    m_stopOnConnect = true;
    m_infoTimer.start(kInfoDelayMs);
    if (!write(kResetCommand)) {
        m_infoTimer.stop();
        emit logLine(tr("Restart failed"));
    }
    // Falls through after a failed write on purpose.
    emit fileOpsEnableRequested(false);
    emit logLine(tr("Resetting..."));
    processQueue();
}

void BoardLink::dfu()
{
    const QString refusal = m_transport->dfuRefusal();
    if (!refusal.isEmpty()) {
        emit logLine(refusal);
        return;
    }
    if (!to_repl())
        return;
    emit interpreterRestarted();
    m_autoReconnect = false;
    if (!write(kDfuCommand))
        emit logLine(tr("DFU failed or not supported"));
    // What closing the port leads to, without closing it from inside its own
    // aboutToClose notification.
    io_disconnected();
}

void BoardLink::setPortSettings(const PortSettings& settings)
{
    m_settings = settings;
    m_type = settings.type;
    useTransport(Transports::create(settings.name));
    m_transport->setBaudRate(settings.baud);
    m_transport->setPassword(settings.password);
    m_transport->setName(settings.name);
}

bool BoardLink::connectToBoard(const PortSettings& settings, bool autoReconnect, bool stopOnConnect)
{
    setPortSettings(settings);
    m_attempts = 0;
    m_reconnectTimer.stop();
    m_reconnectTimer.setInterval(kReconnectFirstMs);
    m_autoReconnectOption = autoReconnect;
    m_autoReconnect = autoReconnect;
    m_stopOnConnect = stopOnConnect;
    return doConnect();
}

void BoardLink::setAutomaticReconnectOption(bool on)
{
    m_autoReconnectOption = on;
    if (isOpen())
        m_autoReconnect = on;
}

bool BoardLink::doConnect()
{
    if (m_transport->open()) {
        m_buffer.clear();
        m_queue.clear();
        setState(MC_UNKNOWN);
        m_lastPortName = m_transport->name();
        emit connectionOpened(m_lastPortName);
        emit logLine(tr("Connected to %1").arg(m_lastPortName));
        QMetaObject::invokeMethod(this, &BoardLink::postConnect, Qt::QueuedConnection);
        return true;
    }
    const QString message = tr("Cannot connect to %1: %2").arg(m_transport->name(), m_transport->errorString());
    emit terminalLine(message);
    emit logLine(message);
    return false;
}

void BoardLink::postConnect()
{
    if (!isOpen())
        return;
    if (m_stopOnConnect) {
        switch (mc_stop(false)) {
        case MC_DEFERRED:
            emit logLine(tr("Connection deferred..."));
            break;
        case MC_STOPPED:
            m_infoTimer.start(kInfoDelayMs);
            break;
        case MC_FAILED:
            emit logLine(tr("Connection failed - MC is not responding"));
            break;
        }
    } else {
        setState(MC_UNKNOWN);
        emit terminalLine(tr("Opened connection to %1").arg(m_transport->name()));
    }
}

void BoardLink::connectionClosed()
{
    m_infoTimer.stop();
    const bool wasOpen = isOpen();
    m_transport->close();
    if (wasOpen)
        emit portClosing();
    emit connectionLost();
    setState(MC_UNKNOWN);
}

void BoardLink::io_disconnected()
{
    emit logLine(tr("Connection closed"));
    connectionClosed();
    if (m_autoReconnect && !m_transport->refusedForGood()) {
        emit logLine(tr("Reconnecting.... Please wait."));
        m_autoReconnect = m_autoReconnectOption;
        m_reconnectTimer.start();
    }
}

void BoardLink::io_error(QSerialPort::SerialPortError error)
{
    const unsigned code = static_cast<unsigned>(error);
    if (code > 13 || !((kFatalErrorMask >> code) & 1u))
        return;
    if (!m_autoReconnect)
        emit logLine(tr("Fatal communication error"));
    io_disconnected();
}

bool BoardLink::reconnectNow()
{
    const QString found = findSameBoard();
    if (found.isEmpty())
        return false;
    m_transport->setName(found);
    return doConnect();
}

QString BoardLink::findSameBoard() const
{
    return m_transport->findAgain(m_lastPortName, m_settings.serialNumber);
}

void BoardLink::tryReconnect()
{
    const QString found = findSameBoard();
    emit logLine(tr("Reconnect attempt %1 of 10").arg(m_attempts + 1));
    if (!found.isEmpty()) {
        emit logLine(tr("Reconnecting to %1").arg(found));
        m_transport->setName(found);
        if (doConnect()) {
            m_attempts = 0;
            m_reconnectTimer.setInterval(kReconnectFirstMs);
            return;
        }
        m_reconnectTimer.setInterval(m_reconnectTimer.interval() + m_attempts * kReconnectStepMs);
        if (m_transport->refusedForGood()) {
            // A wrong password or another client: trying again changes nothing.
            m_attempts = 0;
            return;
        }
    }
    if (m_attempts++ >= kMaxReconnectAttempts - 1) {
        emit logLine(tr("Reconnection attempts exhausted"));
        m_attempts = 0;
        emit reconnectExhausted();
        return;
    }
    m_reconnectTimer.start();
}
