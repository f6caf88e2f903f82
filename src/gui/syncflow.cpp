#include "syncflow.h"

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"
#include "link/boardlink.h"
#include "sync/folderwatcher.h"
#include "sync/synchronizer.h"
#include "syncconfigurationdialog.h"

namespace {
constexpr int kBusyRetryMs = 500;
}

SyncFlow::SyncFlow(BoardFiles& files, Synchronizer& sync, Runner runner, QObject* parent)
    : QObject(parent), m_files(files), m_sync(sync), m_run(std::move(runner))
{
    m_retry.setSingleShot(true);
    m_retry.setInterval(kBusyRetryMs);
    connect(&m_retry, &QTimer::timeout, this, &SyncFlow::uploadSaved);
}

SyncFlow::~SyncFlow() = default;

QString SyncFlow::boardDir() const
{
    return m_files.model() ? m_files.model()->dirPath() : QStringLiteral("/");
}

void SyncFlow::runDialog(QWidget* parent, const QString& root)
{
    SyncConfigurationDialog dialog(parent);
    dialog.readSettings();
    dialog.setSource(root);
    dialog.setDestination(boardDir());
    const IgnoreRules rules = IgnoreRules::forFolder(root);
    const auto options = [&dialog, &rules] {
        Synchronizer::Options o;
        o.missing = dialog.missing();
        o.recursive = dialog.recursive();
        o.createDirs = dialog.createDirs();
        o.deleteExtra = dialog.deleteExtra();
        o.ignore = rules;
        return o;
    };
    connect(&dialog, &SyncConfigurationDialog::previewRequested, this, [&] {
        const QStringList files = Synchronizer::collectSyncFiles(root, QString(), dialog.recursive());
        m_run([&] {
            const Synchronizer::Plan plan = m_sync.preview(root, boardDir(), files, options());
            dialog.showPreview(plan.uploads, plan.deletions, plan.complete, plan.problem);
        });
    });
    if (dialog.exec() != QDialog::Accepted)
        return;
    dialog.writeSettings();
    QStringList skipped;
    const QStringList files = Synchronizer::collectSyncFiles(root, QString(), dialog.recursive(), &skipped);
    for (const QString& line : qAsConst(skipped))
        emit logLine(line);
    const bool extras = !rules.isEmpty() || dialog.createDirs() || dialog.deleteExtra();
    m_run([&] {
        if (extras)
            m_sync.synchronize(root, boardDir(), files, options());
        else
            m_sync.sync_core(root, files, dialog.missing());
        // One listing more, so the pane shows what the sync changed.
        if (m_files.link().isOpen())
            m_files.updateMcDir(boardDir());
    });
}

void SyncFlow::setRoot(const QString& root)
{
    m_root = root;
    if (syncOnSave())
        setSyncOnSave(true);
}

void SyncFlow::setSyncOnSave(bool on)
{
    m_watcher.reset();
    m_saved.clear();
    if (!on)
        return;
    m_watcher = std::make_unique<FolderWatcher>(m_root);
    connect(m_watcher.get(), &FolderWatcher::changed, this, [this](const QStringList& saved) {
        for (const QString& f : saved)
            if (!m_saved.contains(f))
                m_saved << f;
        uploadSaved();
    });
}

void SyncFlow::uploadSaved()
{
    if (m_saved.isEmpty() || !m_files.link().isOpen())
        return;
    Synchronizer::Options options;
    options.createDirs = true;
    options.ignore = IgnoreRules::forFolder(m_root);
    const QStringList files = m_saved;
    const QString root = m_root;
    // Files saved again while these upload are queued anew.
    m_saved.clear();
    const bool ran = m_run([&] {
        m_sync.synchronize(root, boardDir(), files, options);
        if (m_files.link().isOpen())
            m_files.updateMcDir(boardDir());
    });
    if (!ran) {
        for (const QString& f : files)
            if (!m_saved.contains(f))
                m_saved << f;
        m_retry.start();
    }
}
