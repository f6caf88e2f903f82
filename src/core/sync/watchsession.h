#pragma once

#include "synchronizer.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPair>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>

class BoardFiles;
class FolderWatcher;

// Keeps a board folder following a PC folder as files are saved: the one
// policy behind the window's Sync on Save and pelkam-cli watch.
// - A file whose upload failed is tried again every kRetryMs.
// - A folder that goes missing or empty (a branch switch, an archive
//   unpacked over it) is waited for and never mirrored.
// - A folder replaced under the same name is watched anew.
// - Deletions come only from a full sync over a fresh scan of both sides,
//   never from the removal events themselves.
// - While the board is away nothing is sent; saved files wait for it.
class WatchSession : public QObject {
    Q_OBJECT
public:
    static constexpr int kRetryMs = 2000;

    struct Policy {
        // deleteExtra: a removal leads to a full sync that deletes.
        Synchronizer::Options options;
        // Sync the whole folder at the start and whenever the board comes
        // back; otherwise only the files saved meanwhile travel. A folder
        // that comes back, or is replaced, is synced whole either way: its
        // files were never saved under the watch.
        bool wholeFolder = true;
    };
    // Runs one sync now and says true, or says false when its owner cannot
    // run one now; the work is then offered again shortly.
    using Runner = std::function<bool(const std::function<void()>&)>;

    WatchSession(BoardFiles& files, Synchronizer& sync, const QString& source, std::function<QString()> destination,
                 const Policy& policy, QObject* parent = nullptr);
    ~WatchSession() override;

    void setRunner(Runner run) { m_run = std::move(run); }
    // Starts watching, after a first full sync when the policy asks for
    // one. False when that sync failed while the board was there.
    bool start();
    QString source() const { return m_source; }
    // Files whose last upload failed; they are being tried again.
    QStringList unsynced() const { return m_unsynced; }

signals:
    // What the session is doing beside the sync's own lines: waiting,
    // trying again, names the board refuses.
    void note(const QString& text);

private:
    void tick();
    bool sourceReady();
    void watchFolder();
    bool run(const std::function<void()>& work);
    bool syncAll();
    void syncSaved(bool retry);
    bool namesRefused(const QStringList& files, const QString& destination);

    BoardFiles& m_files;
    Synchronizer& m_sync;
    const QString m_source;
    const std::function<QString()> m_destination;
    Policy m_policy;
    Runner m_run;
    QTimer m_tick;
    QElapsedTimer m_retry;  // since the last attempt at the unsynced files
    QElapsedTimer m_settle; // a folder back or replaced settles before a sync
    std::unique_ptr<FolderWatcher> m_watcher;
    QPair<quint64, quint64> m_identity;
    QStringList m_saved;
    QStringList m_unsynced;
    bool m_removed = false;
    bool m_paused = false;    // the folder cannot be trusted now
    bool m_boardAway = false; // the link closed since the last look
    bool m_fullDue = false;
    bool m_running = false;
};
