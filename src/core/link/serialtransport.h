#pragma once

#include "boardtransport.h"

#include <QSerialPort>

// A board on a serial port: the bytes go out exactly as they are given.
class SerialTransport : public BoardTransport {
    Q_OBJECT
public:
    explicit SerialTransport(QObject* parent = nullptr);
    ~SerialTransport() override;

    QString name() const override { return m_port.portName(); }
    void setName(const QString& name) override { m_port.setPortName(name); }
    void setBaudRate(qint32 baud);
    bool open() override;
    void close() override;
    bool isOpen() const override { return m_port.isOpen(); }
    bool send(const QByteArray& data) override;
    QByteArray readAll() override { return m_port.readAll(); }
    QString errorString() const override { return m_port.errorString(); }

signals:
    // The port is about to close (a board gone from the bus closes it).
    void closing();
    void serialError(QSerialPort::SerialPortError error);

private:
    QSerialPort m_port;
};
