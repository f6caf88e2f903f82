#include "webreplrelay.h"

#include "tcpserialtransport.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

namespace {
// Websocket frame header bits (RFC 6455, section 5.2).
constexpr char kOpcodeMask = 0x0f;
constexpr char kOpcodeText = 0x01;
constexpr char kOpcodeBinary = 0x02;
constexpr unsigned char kMaskedBit = 0x80;
constexpr unsigned char kLength16 = 126; // a 16-bit length follows
constexpr unsigned char kLength64 = 127; // a 64-bit length follows
const QByteArray kHttpEnd = QByteArrayLiteral("\r\n\r\n");
// An HTTP answer longer than this is no websocket upgrade: it passes as it
// is and QWebSocket reports it.
constexpr int kMaxHttpAnswer = 16384;
} // namespace

QByteArray WebReplRelay::FrameMarker::mark(const QByteArray& data)
{
    QByteArray in = data;
    QByteArray out;
    if (!m_upgraded) {
        m_http += in;
        const int end = m_http.indexOf(kHttpEnd);
        if (end < 0 && m_http.size() <= kMaxHttpAnswer)
            return out;
        m_upgraded = true;
        if (end < 0) {
            // Not a websocket server: nothing to mark from here on.
            m_payload = ~quint64(0);
            out.swap(m_http);
            return out;
        }
        out = m_http.left(end + kHttpEnd.size());
        in = m_http.mid(end + kHttpEnd.size());
        m_http.clear();
    }
    out.reserve(out.size() + in.size());
    int i = 0;
    while (i < in.size()) {
        if (m_payload > 0) {
            const int n = int(qMin<quint64>(m_payload, quint64(in.size() - i)));
            out.append(in.constData() + i, n);
            i += n;
            m_payload -= quint64(n);
            continue;
        }
        m_header.append(in.at(i++));
        if (m_header.size() < 2)
            continue;
        const auto second = static_cast<unsigned char>(m_header.at(1));
        const unsigned char length7 = second & 0x7f;
        const int lengthBytes = length7 == kLength16 ? 2 : length7 == kLength64 ? 8 : 0;
        const int need = 2 + lengthBytes + ((second & kMaskedBit) ? 4 : 0);
        if (m_header.size() < need)
            continue;
        quint64 length = length7;
        if (lengthBytes) {
            length = 0;
            for (int b = 0; b < lengthBytes; ++b)
                length = (length << 8) | static_cast<unsigned char>(m_header.at(2 + b));
        }
        const char opcode = m_header.at(0) & kOpcodeMask;
        if (opcode == kOpcodeText || opcode == kOpcodeBinary)
            m_header[0] = char((m_header.at(0) & ~kOpcodeMask) | (opcode == kOpcodeText ? kOpcodeBinary : kOpcodeText));
        out += m_header;
        m_header.clear();
        m_payload = length;
    }
    return out;
}

WebReplRelay::WebReplRelay(QObject* parent) : QObject(parent) {}

WebReplRelay::~WebReplRelay()
{
    close();
}

bool WebReplRelay::listen(const QString& host, quint16 port)
{
    close();
    m_host = host;
    m_port = port;
    m_error.clear();
    m_marker = FrameMarker();
    m_server = new QTcpServer(this);
    m_server->setMaxPendingConnections(1);
    connect(m_server, &QTcpServer::newConnection, this, &WebReplRelay::accept);
    if (!m_server->listen(QHostAddress::LocalHost, 0)) {
        m_error = m_server->errorString();
        return false;
    }
    return true;
}

quint16 WebReplRelay::localPort() const
{
    return m_server ? m_server->serverPort() : 0;
}

void WebReplRelay::accept()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        if (m_client) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        m_client = socket;
        // Nobody else may reach the board through us.
        m_server->close();
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, &WebReplRelay::fromClient);
        connect(socket, &QTcpSocket::disconnected, this, &WebReplRelay::clientGone);
        m_board = new QTcpSocket(this);
        connect(m_board, &QTcpSocket::connected, this, &WebReplRelay::boardConnected);
        connect(m_board, &QTcpSocket::readyRead, this, &WebReplRelay::fromBoard);
        connect(m_board, &QTcpSocket::disconnected, this, &WebReplRelay::boardGone);
        connect(m_board, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError) {
            // Only a board never reached is the relay's to explain; a board
            // that closes later (a second client) is the websocket's.
            if (m_board && !m_boardReached && m_error.isEmpty()) {
                m_error = m_board->errorString();
                boardGone();
            } else if (m_board && m_boardReached) {
                // A board that vanished (power, Wi-Fi) ends the link like one that closed.
                boardGone();
            }
        });
        m_board->connectToHost(m_host, m_port);
    }
}

void WebReplRelay::pass(QTcpSocket* to, const QByteArray& data)
{
    to->write(data);
    // Now, not on the next turn of the event loop: every hop would add to
    // each round trip of the board's acknowledged pieces.
    to->flush();
}

void WebReplRelay::boardConnected()
{
    m_boardReached = true;
    // Boards ignore websocket pings; their TCP stack still answers keep-alive probes.
    TcpSerialTransport::tune(m_board);
    if (!m_toBoard.isEmpty())
        pass(m_board, m_toBoard);
    m_toBoard.clear();
}

void WebReplRelay::fromClient()
{
    if (!m_client)
        return;
    const QByteArray data = m_client->readAll();
    if (m_board && m_board->state() == QAbstractSocket::ConnectedState)
        pass(m_board, data);
    else
        m_toBoard += data;
}

void WebReplRelay::fromBoard()
{
    if (!m_board)
        return;
    const QByteArray marked = m_marker.mark(m_board->readAll());
    if (m_client && !marked.isEmpty())
        pass(m_client, marked);
}

void WebReplRelay::boardGone()
{
    if (m_board && m_board->bytesAvailable())
        fromBoard();
    // What was passed on still reaches the client before it sees the end.
    if (m_client)
        m_client->disconnectFromHost();
}

void WebReplRelay::clientGone()
{
    if (m_board)
        m_board->abort();
}

void WebReplRelay::close()
{
    if (m_server) {
        m_server->close();
        m_server->deleteLater();
        m_server = nullptr;
    }
    for (QTcpSocket* socket : {m_client.data(), m_board.data()}) {
        if (!socket)
            continue;
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
    m_client = nullptr;
    m_board = nullptr;
    m_toBoard.clear();
    m_boardReached = false;
}
