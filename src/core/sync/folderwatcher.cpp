#include "folderwatcher.h"

#include "synchronizer.h"

#include <QDirIterator>
#include <QFileInfo>

FolderWatcher::FolderWatcher(const QString& root, QObject* parent) : QObject(parent), m_root(root)
{
    m_quiet.setSingleShot(true);
    m_quiet.setInterval(kQuietMs);
    connect(&m_quiet, &QTimer::timeout, this, &FolderWatcher::rescan);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_quiet, qOverload<>(&QTimer::start));
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, &m_quiet, qOverload<>(&QTimer::start));
    m_stamps = scan();
}

QHash<QString, FolderWatcher::Stamp> FolderWatcher::scan()
{
    // Every folder is watched for names coming and going, every file for writes in place.
    QStringList paths{m_root};
    QDirIterator dirs(m_root, QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (dirs.hasNext())
        paths << dirs.next();
    const IgnoreRules rules = IgnoreRules::forFolder(m_root);
    QHash<QString, Stamp> stamps;
    for (const QString& f : rules.filtered(Synchronizer::collectSyncFiles(m_root, QString(), true))) {
        const QFileInfo info(m_root + QLatin1Char('/') + f);
        stamps.insert(f, {info.size(), info.lastModified()});
        paths << info.filePath();
    }
    const QStringList watched = m_watcher.files() + m_watcher.directories();
    QStringList added;
    for (const QString& p : qAsConst(paths))
        if (!watched.contains(p))
            added << p;
    if (!added.isEmpty())
        m_watcher.addPaths(added);
    return stamps;
}

void FolderWatcher::rescan()
{
    const QHash<QString, Stamp> now = scan();
    QStringList saved;
    QStringList removed;
    for (auto it = now.cbegin(); it != now.cend(); ++it)
        if (!(m_stamps.value(it.key()) == it.value()))
            saved << it.key();
    for (auto it = m_stamps.cbegin(); it != m_stamps.cend(); ++it)
        if (!now.contains(it.key()))
            removed << it.key();
    m_stamps = now;
    saved.sort();
    removed.sort();
    if (!saved.isEmpty() || !removed.isEmpty())
        emit changed(saved, removed);
}
