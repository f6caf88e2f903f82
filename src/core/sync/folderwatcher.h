#pragma once

#include "ignorerules.h"

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>

// Watches a PC folder tree and reports which files were saved or removed once
// writing has paused, whatever way an editor saves (in place, or a temporary
// renamed over the file). Reports the files a sync would take: not hidden,
// not ignored.
class FolderWatcher : public QObject {
    Q_OBJECT
public:
    // How long the folder must stay quiet before a change is reported.
    static constexpr int kQuietMs = 200;

    explicit FolderWatcher(const QString& root, QObject* parent = nullptr);
    QString root() const { return m_root; }

signals:
    // Paths relative to the root, "/"-separated.
    void changed(const QStringList& saved, const QStringList& removed);

private:
    struct Stamp {
        qint64 size = -1;
        QDateTime modified;
        bool operator==(const Stamp& o) const { return size == o.size && modified == o.modified; }
    };
    QHash<QString, Stamp> scan();
    void rescan();

    QString m_root;
    QFileSystemWatcher m_watcher;
    QTimer m_quiet;
    QHash<QString, Stamp> m_stamps;
};
