#include "webrepltransport.h"

#include "webreplrelay.h"

#include <QAbstractSocket>
#include <QElapsedTimer>
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
// WebREPL's file protocol (MicroPython's extmod/modwebrepl.c): an 82-byte
// request, the data in binary frames, and a 4-byte answer ("WB", a 16-bit
// status) once the file is open and once it is written.
const QByteArray kRequest = QByteArrayLiteral("WA");
const QByteArray kAnswer = QByteArrayLiteral("WB");
constexpr char kPutFile = 1;
constexpr int kNameField = 64;
constexpr int kAnswerBytes = 4;
constexpr int kPutFrame = 1024;
// A board without the protocol never answers; one with it answers at once.
constexpr int kOpenAnswerMs = 3000;
// The data may take this long plus a millisecond for every kSlowestBytesPerMs.
constexpr int kWrittenBaseMs = 5000;
constexpr int kSlowestBytesPerMs = 2;
} // namespace

WebReplTransport::WebReplTransport(QObject* parent) : SocketTransport(parent) {}

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
    // The relay turns the board's binary frames, the file protocol's answers, into text.
    connect(socket, &QWebSocket::textMessageReceived, this, &WebReplTransport::fileAnswer);
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

void WebReplTransport::fileAnswer(const QString& text)
{
    m_fileAnswers += text.toLatin1();
    if (m_answerLoop)
        m_answerLoop->quit();
}

int WebReplTransport::awaitAnswer(int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (m_fileAnswers.size() < kAnswerBytes && m_open) {
        const int left = timeoutMs - static_cast<int>(timer.elapsed());
        if (left <= 0)
            return -1;
        QEventLoop loop;
        QTimer::singleShot(left, &loop, &QEventLoop::quit);
        connect(this, &BoardTransport::dropped, &loop, &QEventLoop::quit);
        m_answerLoop = &loop;
        loop.exec();
        m_answerLoop = nullptr;
    }
    if (m_fileAnswers.size() < kAnswerBytes || !m_fileAnswers.startsWith(kAnswer))
        return -1;
    const int status = static_cast<unsigned char>(m_fileAnswers.at(2)) | static_cast<unsigned char>(m_fileAnswers.at(3)) << 8;
    m_fileAnswers.remove(0, kAnswerBytes);
    return status;
}

bool WebReplTransport::putFile(const QByteArray& path, const QByteArray& data, QString* error)
{
    if (!m_open || !m_socket) {
        *error = tr("The WebREPL connection closed");
        return false;
    }
    if (path.isEmpty() || path.size() > kMaxPutPath || path.contains('\0')) {
        *error = tr("the path is too long for WebREPL's file protocol");
        return false;
    }
    QByteArray request = kRequest;
    request += kPutFile;
    request += '\0'; // flags
    request += QByteArray(8, '\0'); // offset
    const auto size = static_cast<quint32>(data.size());
    for (int shift = 0; shift < 32; shift += 8)
        request += static_cast<char>((size >> shift) & 0xff);
    request += static_cast<char>(path.size() & 0xff);
    request += static_cast<char>(path.size() >> 8);
    request += path.leftJustified(kNameField, '\0', true);
    m_fileAnswers.clear();
    m_socket->sendBinaryMessage(request);
    m_socket->flush();
    // The data goes only once the board has the file open.
    const int opened = awaitAnswer(kOpenAnswerMs);
    if (opened != 0) {
        *error = opened < 0 ? tr("the board does not answer WebREPL's file protocol")
                            : tr("the board refused the file (status %1)").arg(opened);
        return false;
    }
    for (int at = 0; at < data.size() && m_open; at += kPutFrame)
        m_socket->sendBinaryMessage(data.mid(at, kPutFrame));
    m_socket->flush();
    const int written = awaitAnswer(kWrittenBaseMs + data.size() / kSlowestBytesPerMs);
    if (written != 0) {
        *error = written < 0 ? tr("no answer from the board after the file's data")
                             : tr("the board refused the file (status %1)").arg(written);
        return false;
    }
    return true;
}
