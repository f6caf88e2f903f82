#pragma once

#include <QByteArray>
#include <QObject>
#include <QSerialPort>
#include <QString>

// One way of reaching a board: a serial port, a WebREPL socket, a serial
// port on another machine. The link above it owns the protocol; a transport
// moves bytes, says when the way to the board is gone and what it can do.
// Transports::create() picks one for a port string.
class BoardTransport : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // What the user typed to reach the board (a port name, a ws:// address).
    virtual QString name() const = 0;
    virtual void setName(const QString& name) = 0;
    // Settings a transport may have no use for.
    virtual void setBaudRate(qint32 baud) { Q_UNUSED(baud) }
    virtual void setPassword(const QString& password) { Q_UNUSED(password) }
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
    // Where the board last reached as lastName is now, for a reconnect; empty
    // while it is nowhere. A network address is simply tried again.
    virtual QString findAgain(const QString& lastName, const QString& serialNumber) const
    {
        Q_UNUSED(serialNumber)
        return lastName;
    }
    // Whether the console carries any byte as it is (a serial line does;
    // WebREPL's console travels in text messages).
    virtual bool carriesRawBytes() const { return true; }
    // Whether files can travel beside the console, as WebREPL's file
    // protocol carries them.
    virtual bool canPutFiles() const { return false; }
    // The longest board path (in bytes) such a request carries.
    virtual int putPathLimit() const { return 0; }
    // Writes data to the board file path that way: true once the board
    // said it was done (it says so even when a write failed: check the
    // file). May run a nested event loop; *error says why not.
    virtual bool putFile(const QByteArray& path, const QByteArray& data, QString* error)
    {
        Q_UNUSED(path)
        Q_UNUSED(data)
        *error = QStringLiteral("not supported");
        return false;
    }
    // Why the board cannot be put into DFU mode this way; empty when it can.
    virtual QString dfuRefusal() const { return {}; }

signals:
    void readyRead();
    // The way to the board is gone (the peer closed, the network failed).
    void dropped(const QString& why);
    // A local port: it is about to close (a board gone from the bus closes
    // it), and errors as the port reports them.
    void closing();
    void serialError(QSerialPort::SerialPortError error);
};

// A board behind a socket: what the user typed, what arrived and was not
// read yet, whether the way is open and why it failed live here.
class SocketTransport : public BoardTransport {
    Q_OBJECT
public:
    using BoardTransport::BoardTransport;

    QString name() const override { return m_name; }
    void setName(const QString& name) override { m_name = name; }
    bool isOpen() const override { return m_open; }
    QByteArray readAll() override
    {
        QByteArray out;
        out.swap(m_pending);
        return out;
    }
    QString errorString() const override { return m_error; }

protected:
    QString m_name;
    QString m_error;
    QByteArray m_pending;
    bool m_open = false;
};
