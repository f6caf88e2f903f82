#include "webrepltransport.h"

#include "webreplrelay.h"

#include <QAbstractSocket>
#include <QEventLoop>
#include <QTimer>
#include <QWebSocket>

namespace {
constexpr int kLoginTimeoutMs = 8000;
constexpr int kPasswordBytes = 9;
const QByteArray kPasswordPrompt = QByteArrayLiteral("Password: ");
const QByteArray kConnected = QByteArrayLiteral("WebREPL connected\r\n");
const QByteArray kDenied = QByteArrayLiteral("Access denied");
// The board's greeting ends with a prompt of its own making: the board may
// be running a program, so it is not passed on.
const QByteArray kFakePrompt = QByteArrayLiteral(">>> ");
} // namespace

WebReplTransport::WebReplTransport(QObject* parent) : BoardTransport(parent) {}

WebReplTransport::~WebReplTransport()
{
    close();
}

bool WebReplTransport::isAddress(const QString& name)
{
    return name.trimmed().startsWith(QLatin1String("ws://"), Qt::CaseInsensitive);
}

QUrl WebReplTransport::urlFor(const QString& name)
{
    QUrl url(name.trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().toLower() != QLatin1String("ws") || url.host().isEmpty() ||
        !url.userInfo().isEmpty())
        return QUrl();
    if (url.port() < 0)
        url.setPort(kDefaultPort);
    if (url.path().isEmpty())
        url.setPath(QStringLiteral("/"));
    return url;
}

QString WebReplTransport::dfuRefusal() const
{
    // A board in DFU mode has no network: only a cable brings it back.
    return tr("DFU is not possible over WebREPL: connect the board with a USB cable");
}

bool WebReplTransport::open()
{
    close();
    m_error.clear();
    m_refusedForGood = false;
    const QUrl url = urlFor(m_name);
    if (!url.isValid()) {
        m_error = tr("%1 is not a WebREPL address (ws://HOST[:PORT])").arg(m_name);
        return false;
    }
    m_relay = std::make_unique<WebReplRelay>();
    if (!m_relay->listen(url.host(), quint16(url.port()))) {
        m_error = m_relay->errorString();
        m_relay.reset();
        return false;
    }
    QUrl local = url;
    local.setHost(QStringLiteral("127.0.0.1"));
    local.setPort(m_relay->localPort());
    m_socket = std::make_unique<QWebSocket>();
    QWebSocket* socket = m_socket.get();
    m_login.clear();
    m_pending.clear();
    m_loggingIn = true;
    m_handshakeDone = false;
    m_passwordSent = false;
    m_socketError = -1;

    connect(socket, &QWebSocket::connected, this, [this, socket] {
        m_handshakeDone = true;
        // Qt sets it already; a board answers each keystroke, so make sure.
        if (auto* tcp = socket->findChild<QAbstractSocket*>())
            tcp->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    });
    connect(socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            [this](QAbstractSocket::SocketError error) { m_socketError = error; });
    // The relay marks the board's text messages binary: they arrive as bytes.
    connect(socket, &QWebSocket::binaryMessageReceived, this, &WebReplTransport::received);
    connect(socket, &QWebSocket::disconnected, this, &WebReplTransport::socketGone);

    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, &loop, [this] {
        m_error = tr("the board did not answer in time");
        endLogin(1);
    });
    m_loginLoop = &loop;
    timer.start(kLoginTimeoutMs);
    socket->open(local);
    const int result = loop.exec();
    m_loginLoop = nullptr;
    m_loggingIn = false;
    if (result == 0 && m_open) {
        if (!m_pending.isEmpty())
            QMetaObject::invokeMethod(this, &BoardTransport::readyRead, Qt::QueuedConnection);
        return true;
    }
    close();
    return false;
}

void WebReplTransport::endLogin(int result)
{
    if (m_loginLoop)
        m_loginLoop->exit(result);
}

void WebReplTransport::received(const QByteArray& data)
{
    if (!m_loggingIn) {
        m_pending += data;
        emit readyRead();
        return;
    }
    m_login += data;
    if (m_login.contains(kDenied)) {
        // Never the password itself: it must not reach a log.
        m_error = tr("the board refused the WebREPL password");
        m_refusedForGood = true;
        endLogin(1);
        return;
    }
    const int connected = m_login.indexOf(kConnected);
    if (connected >= 0) {
        QByteArray rest = m_login.mid(connected + kConnected.size());
        if (rest.startsWith(kFakePrompt))
            rest.remove(0, kFakePrompt.size());
        m_pending = rest;
        m_login.clear();
        m_open = true;
        m_loggingIn = false;
        endLogin(0);
        return;
    }
    if (!m_passwordSent && m_login.contains(kPasswordPrompt)) {
        if (m_password.isEmpty()) {
            m_error = tr("the board asks for a WebREPL password and none was given");
            m_refusedForGood = true;
            endLogin(1);
            return;
        }
        // A board's password has at most 9 bytes (webrepl_setup refuses more),
        // so a longer one is wrong: cutting it would only let wrong ones in.
        if (m_password.toUtf8().size() > kPasswordBytes) {
            m_error = tr("the WebREPL password is longer than the 9 bytes a board keeps: it was not sent");
            m_refusedForGood = true;
            endLogin(1);
            return;
        }
        m_passwordSent = true;
        m_socket->sendTextMessage(m_password + QLatin1Char('\r'));
        m_socket->flush();
    }
}

void WebReplTransport::socketGone()
{
    if (m_loggingIn) {
        if (m_error.isEmpty()) {
            if (m_relay && !m_relay->errorString().isEmpty()) {
                m_error = m_relay->errorString();
            } else if (m_handshakeDone ? m_login.isEmpty()
                                       : m_socketError == QAbstractSocket::RemoteHostClosedError) {
                // What MicroPython does to a second client: close without a
                // word, before the handshake (older releases) or after it.
                m_error = tr("The board accepts one WebREPL client at a time");
                m_refusedForGood = true;
            } else if (!m_handshakeDone && m_socket) {
                m_error = m_socket->errorString();
            } else {
                m_error = tr("the board closed the connection");
            }
        }
        endLogin(1);
        return;
    }
    if (!m_open)
        return;
    m_open = false;
    const QString why = tr("The WebREPL connection closed");
    m_error = why;
    emit dropped(why);
}

void WebReplTransport::close()
{
    m_open = false;
    m_loggingIn = false;
    m_pending.clear();
    // The relay never calls into us, so it can go at once.
    m_relay.reset();
    if (!m_socket)
        return;
    QWebSocket* socket = m_socket.release();
    socket->disconnect(this);
    disconnect(socket, nullptr, this, nullptr);
    socket->abort();
    // This may run inside one of the socket's own signals.
    socket->deleteLater();
}

bool WebReplTransport::send(const QByteArray& data)
{
    if (!m_open || !m_socket)
        return false;
    // The board reads text messages only (binary ones are its file protocol).
    const QString text = QString::fromUtf8(data);
    if (text.toUtf8() != data) {
        m_error = tr("bytes that are not UTF-8 text cannot be sent over WebREPL");
        return false;
    }
    if (m_socket->sendTextMessage(text) != data.size())
        return false;
    m_socket->flush();
    return m_open;
}

QByteArray WebReplTransport::readAll()
{
    QByteArray out;
    out.swap(m_pending);
    return out;
}
