#include "tcpserialtransport.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTcpSocket>
#include <QTimer>

#ifdef Q_OS_LINUX
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace {
// A lost peer is noticed within about ten seconds: silence for kKeepIdleS,
// then kKeepCount probes kKeepIntervalS apart; data unacknowledged for
// kUnackedMs ends the link too.
constexpr int kKeepIdleS = 4;
constexpr int kKeepIntervalS = 1;
constexpr int kKeepCount = 5;
constexpr unsigned int kUnackedMs = 10000;
// A server's refusal comes at once and is one short line of text.
constexpr int kRefusalMs = 2000;
constexpr int kHeardMax = 160;

QByteArray bytes(std::initializer_list<unsigned char> list)
{
    QByteArray out;
    for (const unsigned char c : list)
        out += static_cast<char>(c);
    return out;
}
} // namespace

QByteArray TelnetComPort::escape(const QByteArray& data)
{
    if (!data.contains(static_cast<char>(kIac)))
        return data;
    QByteArray out;
    out.reserve(data.size() + 16);
    for (const char c : data) {
        out += c;
        if (static_cast<unsigned char>(c) == kIac)
            out += c;
    }
    return out;
}

QByteArray TelnetComPort::subnegotiation(unsigned char command, const QByteArray& value)
{
    return bytes({kIac, kSb, kComPort, command}) + escape(value) + bytes({kIac, kSe});
}

QByteArray TelnetComPort::opening(quint32 baud)
{
    QByteArray out = bytes({kIac, kWill, kBinary, kIac, kDo, kBinary, kIac, kWill, kSga, kIac, kDo, kSga, kIac,
                            kWill, kComPort});
    const QByteArray rate = bytes({static_cast<unsigned char>(baud >> 24), static_cast<unsigned char>(baud >> 16),
                                   static_cast<unsigned char>(baud >> 8), static_cast<unsigned char>(baud)});
    out += subnegotiation(kSetBaudrate, rate);
    out += subnegotiation(kSetDatasize, bytes({8}));
    out += subnegotiation(kSetParity, bytes({kParityNone}));
    out += subnegotiation(kSetStopsize, bytes({kStopOne}));
    out += subnegotiation(kSetControl, bytes({kNoFlowControl}));
    out += subnegotiation(kSetControl, bytes({kDtrOn}));
    out += subnegotiation(kSetControl, bytes({kRtsOn}));
    out += subnegotiation(kPurgeData, bytes({kPurgeBoth}));
    return out;
}

QByteArray TelnetComPort::closing()
{
    return subnegotiation(kSetControl, bytes({kRtsOff})) + subnegotiation(kSetControl, bytes({kDtrOff}));
}

void TelnetComPort::negotiate(unsigned char verb, unsigned char option, QByteArray* reply)
{
    const bool known = option == kBinary || option == kSga || option == kComPort;
    const auto answer = [reply](unsigned char v, unsigned char o) { *reply += bytes({kIac, v, o}); };
    // DO asks about our side (WILL/WONT), WILL about the server's (DO/DONT).
    const bool ours = verb == kDo || verb == kDont;
    QSet<unsigned char>& agreed = ours ? m_will : m_do;
    const unsigned char yes = ours ? kWill : kDo;
    const unsigned char no = ours ? kWont : kDont;
    if (verb == kDo || verb == kWill) {
        if (known && !agreed.contains(option)) {
            agreed.insert(option);
            answer(yes, option);
        } else if (!known && !m_refused.contains(option)) {
            m_refused.insert(option);
            answer(no, option);
        }
    } else if (agreed.remove(option)) {
        // A DONT or WONT for something agreed is acknowledged once.
        answer(no, option);
    }
}

QByteArray TelnetComPort::decode(const QByteArray& in, QByteArray* reply)
{
    QByteArray out;
    out.reserve(in.size());
    for (const char ch : in) {
        const auto c = static_cast<unsigned char>(ch);
        switch (m_state) {
        case State::Data:
            if (c == kIac)
                m_state = State::Iac;
            else
                out += ch;
            break;
        case State::Iac:
            if (c == kIac) {
                out += ch;
                m_state = State::Data;
            } else if (c >= kWill && c <= kDont) {
                m_verb = c;
                m_state = State::Verb;
            } else {
                // A subnegotiation (modem state, answers to our requests) is read
                // and skipped; other commands (NOP, GA) have no argument.
                m_state = c == kSb ? State::Sub : State::Data;
            }
            break;
        case State::Verb:
            negotiate(m_verb, c, reply);
            m_state = State::Data;
            break;
        case State::Sub:
            if (c == kIac)
                m_state = State::SubIac;
            break;
        case State::SubIac:
            m_state = c == kSe ? State::Data : State::Sub;
            break;
        }
    }
    return out;
}

TcpSerialTransport::TcpSerialTransport(Mode mode, QObject* parent) : SocketTransport(parent), m_mode(mode) {}

TcpSerialTransport::~TcpSerialTransport()
{
    close();
}

bool TcpSerialTransport::isAddress(const QString& name)
{
    const QString n = name.trimmed();
    return n.startsWith(QLatin1String("rfc2217://"), Qt::CaseInsensitive) ||
           n.startsWith(QLatin1String("socket://"), Qt::CaseInsensitive);
}

QUrl TcpSerialTransport::urlFor(const QString& name)
{
    if (!isAddress(name))
        return QUrl();
    const QUrl url(name.trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || url.port() <= 0 || !url.userInfo().isEmpty() ||
        (!url.path().isEmpty() && url.path() != QLatin1String("/")) || url.hasQuery() || url.hasFragment())
        return QUrl();
    return url;
}

void TcpSerialTransport::tune(QAbstractSocket* socket)
{
    // Each keystroke and each acknowledged piece goes out at once.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
#ifdef Q_OS_LINUX
    const int fd = static_cast<int>(socket->socketDescriptor());
    const int idle = kKeepIdleS;
    const int interval = kKeepIntervalS;
    const int count = kKeepCount;
    const unsigned int unacked = kUnackedMs;
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
    setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacked, sizeof unacked);
#endif
}

bool TcpSerialTransport::open()
{
    close();
    m_error.clear();
    const QUrl url = urlFor(m_name);
    if (!url.isValid()) {
        m_error = tr("%1 is not a network serial port (rfc2217://HOST:PORT or socket://HOST:PORT)").arg(m_name);
        return false;
    }
    m_socket = std::make_unique<QTcpSocket>();
    QTcpSocket* socket = m_socket.get();
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    connect(socket, &QTcpSocket::connected, &loop, &QEventLoop::quit);
    connect(socket, &QAbstractSocket::errorOccurred, &loop, &QEventLoop::quit);
    timer.start(kConnectTimeoutMs);
    socket->connectToHost(url.host(), static_cast<quint16>(url.port()));
    if (socket->state() != QAbstractSocket::ConnectedState && socket->error() == QAbstractSocket::UnknownSocketError)
        loop.exec();
    if (socket->state() != QAbstractSocket::ConnectedState) {
        m_error = socket->error() == QAbstractSocket::UnknownSocketError
                      ? tr("no answer within %1 s").arg(kConnectTimeoutMs / 1000)
                      : socket->errorString();
        close();
        return false;
    }
    tune(socket);
    m_telnet = TelnetComPort();
    m_pending.clear();
    m_heard.clear();
    m_opened.start();
    connect(socket, &QTcpSocket::readyRead, this, &TcpSerialTransport::received);
    connect(socket, &QTcpSocket::disconnected, this, &TcpSerialTransport::gone);
    connect(socket, &QAbstractSocket::errorOccurred, this, &TcpSerialTransport::gone);
    if (m_mode == Mode::Rfc2217) {
        socket->write(TelnetComPort::opening(static_cast<quint32>(m_baud)));
        socket->flush();
    }
    m_open = true;
    if (socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &TcpSerialTransport::received, Qt::QueuedConnection);
    return true;
}

void TcpSerialTransport::received()
{
    if (!m_socket)
        return;
    const QByteArray in = m_socket->readAll();
    QByteArray reply;
    const QByteArray data = m_mode == Mode::Raw ? in : m_telnet.decode(in, &reply);
    // Kept before answering: an answer that meets a closed connection ends it at once.
    if (m_heard.size() <= kHeardMax)
        m_heard += data.left(kHeardMax + 1 - m_heard.size());
    if (!reply.isEmpty()) {
        m_socket->write(reply);
        m_socket->flush();
    }
    if (!m_socket)
        return;
    m_pending += data;
    if (!m_pending.isEmpty())
        emit readyRead();
}

void TcpSerialTransport::gone()
{
    if (!m_open)
        return;
    m_open = false;
    QString why = tr("The connection to %1 closed: %2").arg(m_name, m_socket->errorString());
    const QString said = refusal();
    if (!said.isEmpty())
        why += tr(" (the server said \"%1\")").arg(said);
    m_error = why;
    emit dropped(why);
}

QString TcpSerialTransport::refusal() const
{
    if (m_opened.elapsed() > kRefusalMs || m_heard.size() > kHeardMax)
        return QString();
    for (const char c : m_heard)
        if ((c < 0x20 || c > 0x7e) && c != '\r' && c != '\n' && c != '\t')
            return QString();
    const QList<QByteArray> lines = m_heard.split('\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line)
        if (!line->trimmed().isEmpty())
            return QString::fromLatin1(line->trimmed());
    return QString();
}

void TcpSerialTransport::close()
{
    // After a drop the socket may still say "connected" while Qt has already
    // let go of its descriptor: nothing more is written then.
    const bool alive = m_open;
    m_open = false;
    m_pending.clear();
    if (!m_socket)
        return;
    QTcpSocket* socket = m_socket.release();
    socket->disconnect(this);
    disconnect(socket, nullptr, this, nullptr);
    if (alive && socket->state() == QAbstractSocket::ConnectedState) {
        if (m_mode == Mode::Rfc2217)
            socket->write(TelnetComPort::closing());
        // Whatever is still queued goes out before the FIN.
        socket->flush();
        socket->disconnectFromHost();
    } else {
        socket->abort();
    }
    // It lives on until it has closed, or until the program ends.
    socket->setParent(QCoreApplication::instance());
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QAbstractSocket::errorOccurred, socket, &QObject::deleteLater);
    // This may run inside one of the socket's own signals.
    if (socket->state() == QAbstractSocket::UnconnectedState)
        socket->deleteLater();
}

bool TcpSerialTransport::send(const QByteArray& data)
{
    if (!m_open || !m_socket)
        return false;
    const QByteArray wire = m_mode == Mode::Rfc2217 ? TelnetComPort::escape(data) : data;
    if (m_socket->write(wire) != wire.size())
        return false;
    m_socket->flush();
    return m_open;
}
