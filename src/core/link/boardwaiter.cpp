#include "boardwaiter.h"

#include "boardlink.h"

BoardWaiter::BoardWaiter(BoardLink& link, QObject* parent) : QObject(parent), m_link(link)
{
    m_timer.setInterval(kLookEveryMs);
    connect(&m_timer, &QTimer::timeout, this, &BoardWaiter::look);
    connect(&m_link, &BoardLink::reconnectExhausted, this, &BoardWaiter::start);
    // A connection however made (the user's, or ours) ends the wait.
    connect(&m_link, &BoardLink::connectionOpened, this, &BoardWaiter::stop);
}

void BoardWaiter::start()
{
    if (m_minutes <= 0 || m_link.lastPortName().isEmpty())
        return;
    m_since.start();
    m_timer.start();
    emit m_link.logLine(tr("Waiting for %1 (up to %2 min)").arg(m_link.lastPortName()).arg(m_minutes));
    emit waitingFor(m_link.lastPortName());
}

void BoardWaiter::stop()
{
    if (!m_timer.isActive())
        return;
    m_timer.stop();
    emit waitingFor(QString());
}

void BoardWaiter::look()
{
    if (m_since.elapsed() > m_minutes * 60000LL) {
        emit m_link.logLine(tr("Stopped waiting for %1").arg(m_link.lastPortName()));
        stop();
        return;
    }
    // A connect that succeeds ends the wait through connectionOpened.
    m_link.reconnectNow();
}
