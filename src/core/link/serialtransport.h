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
    void setBaudRate(qint32 baud) override;
    bool open() override;
    void close() override;
    bool isOpen() const override { return m_port.isOpen(); }
    bool send(const QByteArray& data) override;
    QByteArray readAll() override { return m_port.readAll(); }
    QString errorString() const override { return m_port.errorString(); }
    // The same USB serial number on any port, or else the same port name;
    // a typed path (a pseudo-terminal) is looked for as it is.
    QString findAgain(const QString& lastName, const QString& serialNumber) const override;

private:
    QSerialPort m_port;
};
