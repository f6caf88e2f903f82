#include "watchsession.h"

#include "board/boardfiles.h"
#include "folderwatcher.h"
#include "link/boardlink.h"

#include <QFile>

#include <sys/stat.h>

namespace {
constexpr int kTickMs = 100;

// The identity of a folder: a folder replaced under the same name is another one.
QPair<quint64, quint64> folderIdentity(const QString& path)
{
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {0, 0};
    return {static_cast<quint64>(info.st_dev), static_cast<quint64>(info.st_ino)};
}

void addNew(QStringList& list, const QStringList& more)
{
    for (const QString& f : more)
        if (!list.contains(f))
            list << f;
}
} // namespace

WatchSession::WatchSession(BoardFiles& files, Synchronizer& sync, const QString& source,
                           std::function<QString()> destination, const Policy& policy, QObject* parent)
    : QObject(parent), m_files(files), m_sync(sync), m_source(source), m_destination(std::move(destination)),
      m_policy(policy), m_run([](const std::function<void()>& work) {
          work();
          return true;
      })
{
    m_tick.setInterval(kTickMs);
    connect(&m_tick, &QTimer::timeout, this, &WatchSession::tick);
    m_retry.start();
}

WatchSession::~WatchSession() = default;

bool WatchSession::start()
{
    bool ok = true;
    if (sourceReady()) {
        watchFolder();
        if (m_policy.wholeFolder)
            ok = syncAll() || !m_files.link().isOpen();
    }
    m_tick.start();
    return ok;
}

bool WatchSession::sourceReady()
{
    const QString problem = Synchronizer::sourceProblem(m_source);
    if (problem.isEmpty())
        return true;
    if (!m_paused)
        emit note(tr("Waiting for %1 (%2)").arg(m_source, problem));
    m_paused = true;
    m_watcher.reset();
    m_settle.invalidate();
    return false;
}

void WatchSession::watchFolder()
{
    m_watcher = std::make_unique<FolderWatcher>(m_source);
    m_identity = folderIdentity(m_source);
    connect(m_watcher.get(), &FolderWatcher::changed, this, [this](const QStringList& saved, const QStringList& removed) {
        addNew(m_saved, saved);
        m_removed = m_removed || !removed.isEmpty();
    });
    m_saved.clear();
    m_removed = false;
}

bool WatchSession::run(const std::function<void()>& work)
{
    // A sync pumps events, so ticks arrive while one runs.
    m_running = true;
    const bool ran = m_run(work);
    m_running = false;
    return ran;
}

bool WatchSession::namesRefused(const QStringList& files, const QString& destination)
{
    const QStringList refusals = Synchronizer::refusedNames(files, destination);
    for (const QString& refusal : refusals)
        emit note(refusal);
    return !refusals.isEmpty();
}

bool WatchSession::syncAll()
{
    bool ok = false;
    const bool ran = run([&] {
        Synchronizer::Options options = m_policy.options;
        options.ignore = IgnoreRules::forFolder(m_source);
        QStringList skipped;
        const QStringList files =
            options.ignore.filtered(Synchronizer::collectSyncFiles(m_source, QString(), options.recursive, &skipped));
        for (const QString& line : qAsConst(skipped))
            emit note(line);
        const QString destination = m_destination();
        if (namesRefused(files, destination))
            return;
        ok = m_sync.synchronize(m_source, destination, files, options);
        m_unsynced = ok ? QStringList() : files;
        m_retry.restart();
    });
    m_fullDue = !ran;
    return ok;
}

void WatchSession::syncSaved(bool retry)
{
    Synchronizer::Options once = m_policy.options;
    once.deleteExtra = false;
    once.createDirs = true;
    once.ignore = IgnoreRules::forFolder(m_source);
    QStringList files = once.ignore.filtered(m_saved);
    addNew(files, m_unsynced);
    // Files saved again while these upload are queued anew.
    const QStringList taken = m_saved;
    m_saved.clear();
    const bool ran = run([&] {
        if (retry)
            emit note(tr("Trying again: %1").arg(m_unsynced.join(QStringLiteral(", "))));
        const QString destination = m_destination();
        if (namesRefused(files, destination))
            return;
        m_unsynced = m_sync.synchronize(m_source, destination, files, once) ? QStringList() : files;
        if (!m_unsynced.isEmpty())
            emit note(tr("Not synced yet: %1").arg(m_unsynced.join(QStringLiteral(", "))));
    });
    if (!ran) {
        addNew(m_saved, taken);
        return;
    }
    m_retry.restart();
}

void WatchSession::tick()
{
    if (m_running)
        return;
    if (!m_files.link().isOpen()) {
        m_boardAway = true;
        return;
    }
    if (!sourceReady())
        return;
    if (m_boardAway) {
        m_boardAway = false;
        m_fullDue = m_fullDue || m_policy.wholeFolder;
    }
    if (m_paused || !m_watcher || folderIdentity(m_source) != m_identity) {
        // Back, or replaced under the same name: let it settle, then watch it anew.
        if (!m_settle.isValid()) {
            m_settle.start();
            return;
        }
        if (m_settle.elapsed() < FolderWatcher::kQuietMs * 2)
            return;
        m_settle.invalidate();
        if (m_paused)
            emit note(tr("%1 is back").arg(m_source));
        m_paused = false;
        watchFolder();
        m_fullDue = true;
    }
    if (m_removed && m_policy.options.deleteExtra) {
        m_saved.clear();
        m_fullDue = true;
    }
    m_removed = false;
    if (m_fullDue) {
        syncAll();
        return;
    }
    const bool retryDue = !m_unsynced.isEmpty() && m_retry.elapsed() > kRetryMs;
    if (!m_saved.isEmpty() || retryDue)
        syncSaved(retryDue);
}
