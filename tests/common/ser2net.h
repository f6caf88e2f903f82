#pragma once

#include "testsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTcpServer>

// Debian's ser2net in front of local serial devices (the virtual board's
// pty), started with a configuration of its own so the system's is never
// read: one telnet(rfc2217) and one plain tcp accepter per device.
class Ser2Net {
public:
    // host: the loopback address the accepters listen on.
    explicit Ser2Net(const QStringList& devices, const QString& host = QStringLiteral("127.0.0.1"))
        : m_devices(devices), m_host(host)
    {
        for (int i = 0; i < devices.size(); ++i)
            m_ports << freePort() << freePort();
        start();
    }
    ~Ser2Net() { stop(); }

    static bool installed() { return !QStandardPaths::findExecutable(QStringLiteral("ser2net")).isEmpty(); }

    bool isRunning() const { return m_process.state() == QProcess::Running; }
    QString rfc2217(int device = 0) const
    {
        return QStringLiteral("rfc2217://%1:%2").arg(m_host).arg(m_ports.value(2 * device));
    }
    QString socket(int device = 0) const
    {
        return QStringLiteral("socket://%1:%2").arg(m_host).arg(m_ports.value(2 * device + 1));
    }
    QString log() const { return QString::fromLocal8Bit(m_log); }

    // Starts it again on the same ports; true once every accepter answers.
    bool start()
    {
        QStringList args{"-n", "-d", "-c", "/dev/null"};
        for (int i = 0; i < m_devices.size(); ++i) {
            // The device itself: ser2net wants the pty, not a link to it.
            const QString device = QFileInfo(m_devices.at(i)).canonicalFilePath();
            const QString connector =
                QStringLiteral("#  connector: serialdev(nouucplock=true),%1,115200n81,local").arg(device);
            args << "-Y"
                 << QStringLiteral("connection: &rfc%1#  accepter: telnet(rfc2217),tcp,%2,%3")
                            .arg(i)
                            .arg(m_host)
                            .arg(m_ports.at(2 * i)) +
                        connector;
            args << "-Y"
                 << QStringLiteral("connection: &raw%1#  accepter: tcp,%2,%3").arg(i).arg(m_host).arg(m_ports.at(2 * i + 1)) +
                        connector;
        }
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&m_process, &QProcess::readyRead, [this] { m_log += m_process.readAll(); });
        m_process.start(QStringLiteral("ser2net"), args);
        if (!m_process.waitForStarted(5000))
            return false;
        // Ready once every accepter listens. A probe connection would open the
        // device, and ser2net refuses the next client for as long as it takes
        // to close it again ("Port's device already in use").
        return waitFor(
            [this] {
                const QSet<quint16> open = listening();
                for (const quint16 port : qAsConst(m_ports))
                    if (!open.contains(port))
                        return false;
                return true;
            },
            10000);
    }

    // SIGKILL: gone without a word to its clients beyond what the kernel says.
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
        m_process.disconnect();
    }
    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            kill();
        m_process.disconnect();
    }

private:
    // Local TCP ports in the LISTEN state, from the kernel's own tables.
    static QSet<quint16> listening()
    {
        QSet<quint16> ports;
        for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
            QFile file(QString::fromLatin1(table));
            if (!file.open(QIODevice::ReadOnly))
                continue;
            // "  0: 0100007F:1F90 00000000:0000 0A ...": local address, remote, state.
            for (const QByteArray& line : file.readAll().split('\n')) {
                const QList<QByteArray> fields = line.simplified().split(' ');
                if (fields.size() > 3 && fields.at(3) == "0A") {
                    const QByteArray& local = fields.at(1);
                    ports.insert(static_cast<quint16>(local.mid(local.lastIndexOf(':') + 1).toUInt(nullptr, 16)));
                }
            }
        }
        return ports;
    }

    static quint16 freePort()
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        return server.serverPort();
    }

    QStringList m_devices;
    QString m_host;
    QList<quint16> m_ports;
    QProcess m_process;
    QByteArray m_log;
};
