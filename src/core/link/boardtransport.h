#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// One way of reaching a board: a serial port or a WebREPL socket. The link
// above it owns the protocol; a transport only moves bytes and says when the
// way to the board is gone.
class BoardTransport : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // What the user typed to reach the board (a port name, a ws:// address).
    virtual QString name() const = 0;
    virtual void setName(const QString& name) = 0;
    // Opens and, where the transport needs it, logs in; may run a nested
    // event loop. Errors are read from errorString().
    virtual bool open() = 0;
    // Closes without any signal.
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    // All bytes at once, handed to the system before it returns.
    virtual bool send(const QByteArray& data) = 0;
    virtual QByteArray readAll() = 0;
    virtual QString errorString() const = 0;
    // How many unacknowledged bytes the board can take at once (0: no limit
    // we know of; the serial path keeps its own pacing).
    virtual int inputWindow() const { return 0; }
    // Whether a board that refused the last open would refuse another try too.
    virtual bool refusedForGood() const { return false; }

signals:
    void readyRead();
    // The way to the board is gone (the peer closed, the network failed).
    void dropped(const QString& why);
};
