#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>

class QTcpServer;
class QTcpSocket;

// Qt's websockets decode every text message as UTF-8 and close the
// connection when one ends inside a character. A board sends each of its
// writes as a text message of its own, so a program that writes a
// character's bytes apart would end the connection. The relay stands between QWebSocket and the
// board on loopback, passes everything through, and marks the board's text
// frames binary: the console then reaches the link as bytes, never strings.
class WebReplRelay : public QObject {
    Q_OBJECT
public:
    explicit WebReplRelay(QObject* parent = nullptr);
    ~WebReplRelay() override;

    // Listens on 127.0.0.1 for the one websocket that will reach the board
    // at host:port. False (with errorString()) when it cannot listen.
    bool listen(const QString& host, quint16 port);
    // The loopback port to open the websocket on.
    quint16 localPort() const;
    // Why the way to the board failed ("Connection refused", ...); empty
    // while it has not.
    QString errorString() const { return m_error; }
    void close();

    // Rewrites a stream of server frames (after the HTTP answer) in place:
    // text frames (the console) become binary frames, and binary frames (the
    // answers of WebREPL's file protocol, plain ASCII) become text frames;
    // nothing else changes. Exposed for tests.
    class FrameMarker {
    public:
        // Returns data with every text frame's opcode set to binary; keeps
        // what it needs of a header cut between two calls.
        QByteArray mark(const QByteArray& data);

    private:
        QByteArray m_header;   // a frame header not yet complete
        quint64 m_payload = 0; // payload bytes of the current frame still to pass
        bool m_upgraded = false;
        QByteArray m_http; // the HTTP answer while it is incomplete
    };

private:
    static void pass(QTcpSocket* to, const QByteArray& data);
    void accept();
    void fromBoard();
    void fromClient();
    void boardConnected();
    void boardGone();
    void clientGone();

    QTcpServer* m_server = nullptr;
    QPointer<QTcpSocket> m_client;
    QPointer<QTcpSocket> m_board;
    QByteArray m_toBoard; // what the client sent before the board answered
    FrameMarker m_marker;
    QString m_error;
    QString m_host;
    quint16 m_port = 0;
    bool m_boardReached = false;
};
