#include "serialtransport.h"

#include <QFileInfo>
#include <QSerialPortInfo>

SerialTransport::SerialTransport(QObject* parent) : BoardTransport(parent)
{
    m_port.setParity(QSerialPort::NoParity);
    m_port.setStopBits(QSerialPort::OneStop);
    m_port.setDataBits(QSerialPort::Data8);
    m_port.setFlowControl(QSerialPort::NoFlowControl);
    connect(&m_port, &QSerialPort::readyRead, this, &BoardTransport::readyRead);
    connect(&m_port, &QSerialPort::aboutToClose, this, &SerialTransport::closing);
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialTransport::serialError);
}

SerialTransport::~SerialTransport()
{
    close();
}

void SerialTransport::setBaudRate(qint32 baud)
{
    m_port.setBaudRate(baud);
}

bool SerialTransport::open()
{
    m_port.blockSignals(true);
    m_port.clearError();
    const bool opened = m_port.open(QIODevice::ReadWrite);
    if (opened)
        m_port.clearError();
    m_port.blockSignals(false);
    return opened;
}

void SerialTransport::close()
{
    m_port.blockSignals(true);
    m_port.clearError();
    if (m_port.isOpen())
        m_port.close();
    m_port.blockSignals(false);
}

bool SerialTransport::send(const QByteArray& data)
{
    return m_port.isOpen() && m_port.write(data) == data.size() && m_port.flush();
}

QString SerialTransport::findAgain(const QString& lastName, const QString& serialNumber) const
{
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo& info : ports) {
        const bool same = serialNumber.isEmpty() ? info.portName() == lastName : info.serialNumber() == serialNumber;
        if (same)
            return info.portName();
    }
    // Pseudo-terminals and other typed paths are never listed: look for the path itself.
    if (serialNumber.isEmpty() && lastName.startsWith(QLatin1Char('/')) && QFileInfo::exists(lastName))
        return lastName;
    return QString();
}
