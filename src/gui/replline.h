#pragma once

#include <QLineEdit>
#include <QStringList>

// The line under the Terminal for talking to the board while it runs its own
// program or is only monitored: Enter sends the line, Up and Down walk the
// last lines sent (kept in "UI/ReplHistory"), Ctrl+C and Ctrl+D send their
// control bytes. It only asks to send; the window decides whether it may.
class ReplLine : public QLineEdit {
    Q_OBJECT
public:
    explicit ReplLine(QWidget* parent = nullptr);

    static constexpr int kHistoryLimit = 100;
    // On while the board runs its own program or is only monitored; off, the
    // line says why and which action makes it usable.
    void setUsable(bool connected, bool boardFree);
    QStringList history() const { return m_history; }

signals:
    void send(const QByteArray& bytes);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void remember(const QString& line);
    void recall(int step);

    QStringList m_history;
    int m_position = 0; // m_history.size() stands for the line being typed
};
