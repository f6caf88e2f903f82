#include "syncflow.h"

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"
#include "link/boardlink.h"
#include "sync/synchronizer.h"
#include "sync/watchsession.h"
#include "syncconfigurationdialog.h"

SyncFlow::SyncFlow(BoardFiles& files, Synchronizer& sync, Runner runner, QObject* parent)
    : QObject(parent), m_files(files), m_sync(sync), m_run(std::move(runner))
{
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
    m_session.reset();
    if (!on)
        return;
    // Only saved files travel; the Sync dialog is there for the whole folder.
    WatchSession::Policy policy;
    policy.options.createDirs = true;
    policy.wholeFolder = false;
    m_session = std::make_unique<WatchSession>(m_files, m_sync, m_root, [this] { return boardDir(); }, policy);
    m_session->setRunner([this](const std::function<void()>& work) {
        return m_run([&] {
            work();
            if (m_files.link().isOpen())
                m_files.updateMcDir(boardDir());
        });
    });
    connect(m_session.get(), &WatchSession::note, this, &SyncFlow::logLine);
    m_session->start();
}
