#pragma once

#include "boardtransport.h"

#include <QElapsedTimer>
#include <QSet>
#include <QUrl>

#include <memory>

class QAbstractSocket;
class QTcpSocket;

// Telnet with the COM-PORT option (RFC 2217), client side. Commands are
// sent and never waited for: port servers do not always acknowledge them.
class TelnetComPort {
public:
    // Telnet and its COM-PORT-OPTION subnegotiation codes.
    enum : unsigned char {
        kSe = 240,
        kSb = 250,
        kWill = 251,
        kWont = 252,
        kDo = 253,
        kDont = 254,
        kIac = 255,
        kBinary = 0,
        kSga = 3,
        kComPort = 44,
        kSetBaudrate = 1,
        kSetDatasize = 2,
        kSetParity = 3,
        kSetStopsize = 4,
        kSetControl = 5,
        kPurgeData = 12,
        kParityNone = 1,
        kStopOne = 1,
        kNoFlowControl = 1,
        kDtrOn = 8,
        kDtrOff = 9,
        kRtsOn = 11,
        kRtsOff = 12,
        kPurgeBoth = 3,
    };

    // What goes out first: BINARY and SGA both ways, COM-PORT-OPTION, the
    // line settings (baud, 8N1, no flow control), DTR and RTS on as a local
    // port raises them when it opens, then a purge of both buffers.
    static QByteArray opening(quint32 baud);
    // What goes out last: RTS, then DTR, dropped as closing a local port
    // drops them. RTS first: a lone RTS resets an ESP32 through its
    // auto-reset circuit, a lone DTR does not.
    static QByteArray closing();
    // Data bytes as Telnet carries them: 0xFF doubled.
    static QByteArray escape(const QByteArray& data);
    static QByteArray subnegotiation(unsigned char command, const QByteArray& value);

    // The data bytes in what the server sent, Telnet commands taken out
    // (a command may be cut between two calls). Answers the negotiation
    // wants go to *reply.
    QByteArray decode(const QByteArray& bytes, QByteArray* reply);

private:
    void negotiate(unsigned char verb, unsigned char option, QByteArray* reply);

    enum class State { Data, Iac, Verb, Sub, SubIac };
    State m_state = State::Data;
    unsigned char m_verb = 0;
    // Options we said we WILL do, and asked the server to DO.
    QSet<unsigned char> m_will{kBinary, kSga, kComPort};
    QSet<unsigned char> m_do{kBinary, kSga};
    QSet<unsigned char> m_refused; // options already refused, so refusals never loop
};

// A board's serial port exported over the network by a port server such as
// ser2net. socket://HOST:PORT carries the raw byte stream; rfc2217://HOST:PORT
// carries it through Telnet with the COM-PORT option, which also sets the
// line and the control lines.
class TcpSerialTransport : public SocketTransport {
    Q_OBJECT
public:
    enum class Mode { Raw, Rfc2217 };
    static constexpr int kConnectTimeoutMs = 5000;

    explicit TcpSerialTransport(Mode mode, QObject* parent = nullptr);
    ~TcpSerialTransport() override;

    static bool isAddress(const QString& name);
    // SCHEME://HOST:PORT, or an invalid URL when name is no rfc2217:// or
    // socket:// address with a host and a port.
    static QUrl urlFor(const QString& name);
    // Keep-alive and no delay: a port server that vanishes without closing
    // (power, network) ends the link within about ten seconds.
    static void tune(QAbstractSocket* socket);

    void setBaudRate(qint32 baud) override { m_baud = baud; }
    bool open() override;
    void close() override;
    bool send(const QByteArray& data) override;

private:
    void received();
    void gone();
    // The text a port server sent before it closed a connection it had just
    // accepted (ser2net: "Port's device already in use"), or nothing.
    QString refusal() const;

    const Mode m_mode;
    qint32 m_baud = 115200;
    std::unique_ptr<QTcpSocket> m_socket;
    TelnetComPort m_telnet;
    QElapsedTimer m_opened;
    QByteArray m_heard; // the first bytes after opening
};
