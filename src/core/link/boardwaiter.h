#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class BoardLink;

// After the reconnect attempts are exhausted, looks for the same board a
// while longer: a person replugging a cable, a board that boots slowly.
// Off (0 minutes) by default, so the reconnect cycle ends as it always has.
class BoardWaiter : public QObject {
    Q_OBJECT
public:
    explicit BoardWaiter(BoardLink& link, QObject* parent = nullptr);

    void setMinutes(int minutes) { m_minutes = qMax(0, minutes); }
    bool waiting() const { return m_timer.isActive(); }

    static constexpr int kLookEveryMs = 1000;

public slots:
    void start();
    void stop();

signals:
    // The port looked for; empty once no longer waiting.
    void waitingFor(const QString& port);

private:
    void look();

    BoardLink& m_link;
    QTimer m_timer;
    QElapsedTimer m_since;
    int m_minutes = 0;
};
