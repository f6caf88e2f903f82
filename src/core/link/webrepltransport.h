#pragma once

#include "boardtransport.h"

#include <QUrl>

#include <memory>

class QWebSocket;
class WebReplRelay;

// A board reached over MicroPython's WebREPL: a websocket on which the board
// asks for a password, then carries its console as text messages. The
// board's input buffer is small and drops what does not fit, so the link
// above sends no more than inputWindow() bytes without an answer.
class WebReplTransport : public SocketTransport {
    Q_OBJECT
public:
    static constexpr int kDefaultPort = 8266;
    // What MicroPython's console input ring holds: 255 of an ESP8266's 256
    // bytes (a ring keeps one slot free); an ESP32's 260 hold more.
    static constexpr int kInputWindow = 255;

    explicit WebReplTransport(QObject* parent = nullptr);
    ~WebReplTransport() override;

    static bool isAddress(const QString& name);
    // ws://HOST[:PORT] with the port filled in; an invalid URL when name is not one.
    static QUrl urlFor(const QString& name);

    void setPassword(const QString& password) override { m_password = password; }
    bool open() override;
    void close() override;
    bool send(const QByteArray& data) override;
    int inputWindow() const override { return kInputWindow; }
    bool refusedForGood() const override { return m_refusedForGood; }
    QString dfuRefusal() const override;
    // The longest board path a put request carries (its name field holds 64
    // bytes with the terminating zero).
    static constexpr int kMaxPutPath = 63;
    bool carriesRawBytes() const override { return false; }
    bool canPutFiles() const override { return m_open; }
    int putPathLimit() const override { return kMaxPutPath; }
    bool putFile(const QByteArray& path, const QByteArray& data, QString* error) override;

private:
    void received(const QByteArray& data);
    void fileAnswer(const QString& text);
    // The next file protocol status, or -1 when none came in time.
    int awaitAnswer(int timeoutMs);
    void socketGone();
    void endLogin(int result);

    std::unique_ptr<WebReplRelay> m_relay;
    std::unique_ptr<QWebSocket> m_socket;
    QString m_password;
    QByteArray m_login; // what the board said before the login ended
    QByteArray m_fileAnswers; // what the file protocol answered, not yet read
    bool m_loggingIn = false;
    bool m_refusedForGood = false;
    bool m_handshakeDone = false;
    bool m_passwordSent = false;
    int m_socketError = -1;
    class QEventLoop* m_loginLoop = nullptr;
    class QEventLoop* m_answerLoop = nullptr;
};
