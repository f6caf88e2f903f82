#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

class QSocketNotifier;

// A pseudo-terminal that plays a scripted board: when the bytes it received
// end with a step's expectation, it answers with that step's reply.
class TranscriptDevice : public QObject {
    Q_OBJECT
public:
    struct Step {
        QByteArray expect;
        QByteArray reply;
    };

    TranscriptDevice();
    ~TranscriptDevice() override;

    QString path() const { return m_path; }
    void addStep(const QByteArray& expect, const QByteArray& reply) { m_steps.append({expect, reply}); }
    void send(const QByteArray& bytes);
    QByteArray received() const { return m_received; }
    // Lengths of the separate reads, to see how writes were chunked.
    QList<int> writeSizes() const { return m_writeSizes; }
    void clearReceived()
    {
        m_received.clear();
        m_writeSizes.clear();
        m_pending.clear();
    }
    void hangUp();

private:
    void onReadable();

    int m_master = -1;
    QString m_path;
    QSocketNotifier* m_notifier = nullptr;
    QList<Step> m_steps;
    QByteArray m_received;
    QByteArray m_pending;
    QList<int> m_writeSizes;
};
