#pragma once

#include "mctypes.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QSerialPort>
#include <QTimer>

#include <memory>

class BoardTransport;

// The link to one board: link state, receive buffer and reply queue, the
// blocking request primitive, REPL control and (re)connection. The bytes go
// through a transport: a serial port, or WebREPL for a ws:// address.
// Waits run nested event loops; closing the port ends every wait at once.
class BoardLink : public QObject {
    Q_OBJECT
public:
    struct PortSettings {
        QString name;         // port name or device path
        QString serialNumber; // USB serial number, may be empty
        qint32 baud = 115200;
        MC_TYPES type = MC_STM32;
        // WebREPL only; kept in memory, never written anywhere.
        QString password;
    };

    explicit BoardLink(QObject* parent = nullptr);
    ~BoardLink() override;

    // Link core
    MC_STATE state() const { return m_state; }
    void setState(MC_STATE s);
    MC_TYPES boardType() const { return m_type; }
    void setBoardType(MC_TYPES type) { m_type = type; }
    bool isOpen() const;
    // The last connect was refused in a way a retry cannot mend (a wrong password).
    bool refusedForGood() const;
    // The chunk size for data sent to a running board script: transferSize(),
    // or less where the board's input buffer is smaller.
    int chunkSize() const;
    // The same for the fast upload, which is not bound to powers of two.
    int fastChunkSize() const;
    // Long raw REPL commands in raw-paste mode where the board has it (always
    // over WebREPL): no fixed waits, and never more than the board can take.
    void setPasteCommands(bool on) { m_pasteCommands = on; }
    bool pasteCommands() const { return m_pasteCommands; }

    bool write(const QByteArray& data);
    // A script run in the raw REPL whose answer is read as lines (Run): as
    // write(), but behind a small input ring a long one goes in acknowledged
    // pieces, since the silent raw REPL gives nothing else to pace by.
    bool writeScript(const QByteArray& command);
    // Files beside the console, where the transport can carry them (WebREPL).
    bool canPutFiles() const;
    int putPathLimit() const;
    bool putFile(const QByteArray& path, const QByteArray& data, QString* error);
    // write() for what the user types at a running board: its echo is not
    // the board's own output (boardOutput skips it).
    bool type(const QByteArray& data);
    // Sends data and waits for the end of the reply (eod) at most timeoutMs.
    // Unchunked sends everything in one write (script pastes). With expect
    // set, the reply must first show it (in the REPL: a line ending with it,
    // such as the echo of the command; in the raw REPL: a chunk containing
    // it): whatever comes before is the tail of an earlier exchange, so it
    // neither ends this one nor reaches the caller.
    bool tranceive(const QByteArray& data, int timeoutMs, bool chunked = true, const QByteArray& expect = {});
    // One line typed into the ordinary REPL: sends it with "\r\n" and waits
    // for the prompt that follows its echo.
    bool replCommand(const QByteArray& line, int timeoutMs);
    // Waits for the next end of reply without sending.
    bool awaitEod(int timeoutMs);
    // The same, but a restart seen in the board's output also ends the wait.
    bool awaitEodOrRestart(int timeoutMs);
    void processQueue();
    void flushQueue(bool init);
    void drain();
    void bufferSplitBy(const QByteArray& sep);
    void io_ready();
    // Waits at most ms, less when data arrive; false when the port closed.
    bool qDelay(int ms);
    // A fixed wait that data do not shorten; false when the port closed.
    bool qWait(int ms);

    // Raw byte transfers (fast mode over a serial line): while on, what
    // arrives stays in the buffer as it came, neither cut into replies nor
    // searched for a restart (file data may look like one). Turning it off
    // looks at what is left for both.
    bool carriesRawBytes() const;
    void setRawStream(bool on);
    const QByteArray& buffered() const { return m_buffer; }
    void consumeBuffered(int n) { m_buffer.remove(0, n); }
    // Bytes straight to the transport, in one write.
    bool sendBytes(const QByteArray& data);
    // Waits at most ms for more bytes; false on a time-out or a closed port.
    bool awaitBytes(int ms) { return waitLoop(ms, true, false) == 0; }

    bool hasReply() const { return !m_queue.isEmpty(); }
    // Bytes read from the port since it was opened; tells a silent board from a slow one.
    quint64 bytesReceived() const { return m_bytesReceived; }
    QByteArray takeReply() { return m_queue.takeFirst(); }
    void clearQueue() { m_queue.clear(); }
    QByteArray pendingBuffer() const { return m_buffer; }
    void clearBuffer() { m_buffer.clear(); }
    // The chunk size of writes and uploads: "MC/TransferSize", below 32 means
    // 512, any other value rounded down to a size the board script can take.
    int transferSize() const { return safeTransferSize(m_transferSize); }
    void setTransferSize(int setting) { m_transferSize = setting; }
    static int safeTransferSize(int size);

    // REPL control
    bool to_repl();
    bool to_raw();
    MC_RES mc_stop(bool noReset);
    // The command line's way in: interrupts whatever runs and asks for the
    // raw REPL in one write, without the connect sequence's waits for the
    // board to fall silent. False (state unknown again) when no raw prompt came.
    bool enterRawQuickly();
    bool abort();
    void launch();
    void reset();
    void dfu();

    // Connection
    void setPortSettings(const PortSettings& settings);
    // Starts a user connection: clears the reconnect cycle, then doConnect().
    bool connectToBoard(const PortSettings& settings, bool autoReconnect, bool stopOnConnect);
    bool doConnect();
    void connectionClosed();
    void setAutomaticReconnect(bool on) { m_autoReconnect = on; }
    // Whether opening the port stops the board's program by itself (the
    // window's way); the command line stops it its own way.
    void setStopOnConnect(bool on) { m_stopOnConnect = on; }
    void setAutomaticReconnectOption(bool on);
    void setResetMcOption(bool on) { m_resetMcOption = on; }
    bool resetMcOption() const { return m_resetMcOption; }
    QString lastPortName() const { return m_lastPortName; }
    int reconnectAttempts() const { return m_attempts; }
    // One look for the same board (USB serial number, else port or path, or
    // the same ws:// address) and a connect when it is there.
    bool reconnectNow();
    QTimer& infoTimer() { return m_infoTimer; }

    static constexpr int kMaxReconnectAttempts = 10;

public slots:
    void postConnect();
    void io_disconnected();
    void io_error(QSerialPort::SerialPortError error);
    void tryReconnect();

signals:
    void stateChanged(MC_STATE state);
    void eod();
    void logLine(const QString& html);
    void terminalLine(const QString& html);
    // A line the board printed (not one of ours), as text.
    void boardOutput(const QString& text);
    // A Syslog line that only echoes what Pelkam itself sent (its commands,
    // pasted scripts, the REPL's banners for them); logLine gets the rest.
    void ownCommandLine(const QString& text);
    // The reconnect cycle gave up (BoardWaiter may go on looking).
    void reconnectExhausted();
    void fileOpsEnableRequested(bool on);
    void connectionOpened(const QString& portName);
    void connectionLost();
    void resetMcConsumed();
    void queryInfoRequested();
    void portClosing();
    // The board's interpreter may have started afresh (reconnect, launch,
    // reset, DFU, a soft reboot seen in its output): what was defined in it is gone.
    void interpreterRestarted();

private:
    enum WaitResult { Timeout = 1, Closed = 2 };
    QString findSameBoard() const;
    // Remembers the lines of what Pelkam sends in the friendly REPL.
    void noteSent(const QByteArray& data);
    bool isOwnEcho(QByteArray line) const;
    // True (and forgotten) when a board line is the echo of a typed one.
    bool isEcho(QByteArray line);
    int waitLoop(int ms, bool endOnData, bool endOnEod, bool endOnRestart = false);
    void drainQueue();
    // Hands bytes to the transport; where the board has a small input buffer,
    // paced so that it never overflows.
    bool send(const QByteArray& data);
    bool sendWindowed(const QByteArray& data);
    // MicroPython's raw-paste mode: code goes out in windows the board grants.
    // Pasted, failed, or refused by a board without it (then sent as usual).
    int rawPaste(const QByteArray& code);
    // A long command behind a small input ring: pieces the board answers one by one.
    int pasteAcked(const QByteArray& code);
    // rawPaste() for a long raw REPL command where it applies, else refused.
    int pasteLong(const QByteArray& data);
    void splitByState();
    void useTransport(std::unique_ptr<BoardTransport> transport);
    void appendLine(const QByteArray& line);
    // Queues one cut piece; false when it was stale input and was dropped.
    bool takePiece(const QByteArray& piece);
    void signalEod();
    // Adds received bytes to the recent ones and looks there for a restart.
    void noteRecent(const QByteArray& data);
    // Looks for the signs of a board that restarted in what it just sent.
    void findRestart();

    std::unique_ptr<BoardTransport> m_transport;
    int m_transferSize = 0; // as set, before rounding
    QList<QByteArray> m_sent; // lines Pelkam sent lately in the friendly REPL
    QList<QByteArray> m_typed; // lines typed whose echo has not come back yet
    bool m_pasting = false; // raw-paste in flight: bytes are only buffered
    bool m_rawStream = false;
    bool m_pasteCommands = false;
    int m_rawPaste = -1; // the board's raw-paste support: unknown, no, yes
    MC_STATE m_state = MC_UNKNOWN;
    MC_TYPES m_type = MC_STM32;
    QByteArray m_buffer;
    QList<QByteArray> m_queue;
    QByteArray m_expect; // what the exchange in flight waits to see first
    quint64 m_eods = 0;
    quint64 m_bytesReceived = 0;
    QByteArray m_recent;          // the last bytes received, for a banner cut between reads
    QElapsedTimer m_bannerClock;  // since the last Ctrl-B we sent
    QElapsedTimer m_restartClock; // since the board last showed a hard reset

    PortSettings m_settings;
    QString m_lastPortName;
    bool m_autoReconnect = false;
    bool m_autoReconnectOption = false;
    bool m_stopOnConnect = true;
    bool m_resetMcOption = false;
    int m_attempts = 0;
    QTimer m_reconnectTimer;
    QTimer m_infoTimer;
};
