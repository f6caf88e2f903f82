#pragma once

#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>

class BoardFiles;
class Synchronizer;
class WatchSession;
class QWidget;

// The window's two ways of syncing the PC folder into the listed board
// folder: the Sync dialog (with its preview and extra options) and Sync on
// Save, which uploads each file as it is saved.
class SyncFlow : public QObject {
    Q_OBJECT
public:
    // Runs a board workflow the way the window does; false when the window
    // cannot take one now (another runs, or the board is not ours to drive).
    using Runner = std::function<bool(const std::function<void()>&)>;

    SyncFlow(BoardFiles& files, Synchronizer& sync, Runner runner, QObject* parent = nullptr);
    ~SyncFlow() override;

    void runDialog(QWidget* parent, const QString& root);
    // Sync on Save follows the PC folder while it is on.
    void setSyncOnSave(bool on);
    bool syncOnSave() const { return m_session != nullptr; }
    void setRoot(const QString& root);

signals:
    void logLine(const QString& text);

private:
    QString boardDir() const;

    BoardFiles& m_files;
    Synchronizer& m_sync;
    Runner m_run;
    QString m_root;
    std::unique_ptr<WatchSession> m_session;
};
