#include "transcriptdevice.h"

#include <QSocketNotifier>
#include <QTimer>

#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

TranscriptDevice::TranscriptDevice()
{
    int slave = -1;
    char name[256] = {};
    if (openpty(&m_master, &slave, name, nullptr, nullptr) != 0)
        return;
    termios raw{};
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    ::close(slave);
    fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);
    m_path = QString::fromLocal8Bit(name);
    m_notifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &TranscriptDevice::onReadable);
}

TranscriptDevice::~TranscriptDevice()
{
    hangUp();
}

void TranscriptDevice::hangUp()
{
    if (m_master < 0)
        return;
    delete m_notifier;
    m_notifier = nullptr;
    ::close(m_master);
    m_master = -1;
}

void TranscriptDevice::send(const QByteArray& bytes)
{
    if (m_master >= 0 && !bytes.isEmpty())
        (void)::write(m_master, bytes.constData(), static_cast<size_t>(bytes.size()));
}

void TranscriptDevice::onReadable()
{
    char buf[4096];
    const ssize_t n = ::read(m_master, buf, sizeof buf);
    if (n <= 0) {
        // No client holds the device: wait for the next open without spinning.
        m_notifier->setEnabled(false);
        QTimer::singleShot(20, this, [this] {
            if (m_notifier)
                m_notifier->setEnabled(true);
        });
        return;
    }
    m_received.append(buf, static_cast<int>(n));
    m_pending.append(buf, static_cast<int>(n));
    m_writeSizes.append(static_cast<int>(n));
    if (!m_steps.isEmpty() && m_pending.endsWith(m_steps.first().expect)) {
        const Step step = m_steps.takeFirst();
        m_pending.clear();
        send(step.reply);
    }
}
