#include "pelkamwindow.h"

#include "board/boardfiles.h"
#include "boardpanekeys.h"
#include "connectionpopup.h"
#include "packages/packageinstaller.h"
#include "panedragdrop.h"
#include "plotterview.h"
#include "preferences.h"
#include "qmaterialicon.h"
#include "remoteedit.h"
#include "replline.h"
#include "scrollback.h"
#include "boardsettings.h"
#include "secretstore.h"
#include "sync/synchronizer.h"
#include "syncflow.h"
#include "themedetector.h"
#include "updater.h"
#include "widgetprompter.h"
#include "windowviews.h"
#include "workflows/fileworkflows.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTextBrowser>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>

namespace {
const QString kDefaultUpdateUrl = QStringLiteral("https://tarvel.dev/pelkam/appcast.xml");
} // namespace

PelkamWindow::PelkamWindow(QWidget* parent)
    : QMainWindow(parent), m_files(std::make_unique<BoardFiles>(m_link)),
      m_packages(std::make_unique<PackageInstaller>(*m_files)), m_sync(std::make_unique<Synchronizer>(*m_files)),
      m_workflows(std::make_unique<FileWorkflows>(*m_files, *m_packages, *m_sync)),
      m_prompter(std::make_unique<WidgetPrompter>(this))
{
    m_remoteEdit = new RemoteEdit(*m_files, this);
    m_syncFlow = std::make_unique<SyncFlow>(*m_files, *m_sync, [this](const std::function<void()>& workflow) {
        if (m_files->busy() || m_workflowDepth > 0 || !action(QStringLiteral("actionUpload"))->isEnabled())
            return false;
        runWorkflow(workflow);
        return true;
    });
    m_packages->setPrompter(m_prompter.get());
    m_workflows->setPrompter(m_prompter.get());
    m_remoteEdit->setPrompter(m_prompter.get());
    const bool dark = ThemeDetector::isDarkThemeEnabled();
    QMaterialIcon* icons = QMaterialIcon::instance();
    icons->setBaseColor(dark ? Qt::white : Qt::black);
    m_accentColor = dark ? QStringLiteral("#A5D6A7") : QStringLiteral("#4CAF50");
    m_syslogColor = dark ? QStringLiteral("#FFCC80") : QStringLiteral("#FF9800");
    icons->setCheckedColor(QColor(m_accentColor));

    m_views = std::make_unique<WindowViews>(this);
    m_terminal = m_views->terminal;
    m_log = m_views->log;
    m_views->actionsToolBar->setEnabled(false);

    m_updater =
        std::make_unique<NullUpdater>(m_settings.value(QStringLiteral("Updates/URL"), kDefaultUpdateUrl).toString());
    connect(action(QStringLiteral("actionCheck_for_updates")), &QAction::triggered, this, &PelkamWindow::checkUpdate);
    connect(action(QStringLiteral("actionExit")), &QAction::triggered, qApp, &QCoreApplication::quit);
    connect(action(QStringLiteral("actionSyncOnSave")), &QAction::toggled, this,
            [this](bool on) { m_syncFlow->setSyncOnSave(on); });

    m_pcModel = m_views->attachPcModel(this);
    m_mcModel.setDecorationProvider([](bool isDir) -> QVariant {
        return materialIcon(isDir ? QStringLiteral("folder") : QStringLiteral("insert_drive_file"));
    });
    m_views->mcFileList->setModel(&m_mcModel);
    m_views->mcFileList->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    QLabel* mcFolder = m_views->mcFolderLabel;
    connect(&m_mcModel, &MCDirModel::dirPathChanged, mcFolder,
            [mcFolder](const QString& path) { mcFolder->setText(tr("Board folder: %1").arg(path)); });
    connect(&m_link, &BoardLink::connectionLost, mcFolder, &QLabel::clear);
    connect(m_files.get(), &BoardFiles::progressStarted, m_views->cancelButton, &QWidget::show);
    connect(m_files.get(), &BoardFiles::progressFinished, m_views->cancelButton, &QWidget::hide);
    m_files->setReportSpace(true);
    applySettings();
    connect(m_files.get(), &BoardFiles::spaceReported, this, [this](qint64 freeBytes, qint64 totalBytes) {
        const QLocale here = locale();
        statusBar()->showMessage(totalBytes <= 0 ? QString()
                                                 : tr("Board: %1 free of %2")
                                                       .arg(here.formattedDataSize(freeBytes),
                                                            here.formattedDataSize(totalBytes)));
    });
    connect(&m_link, &BoardLink::connectionLost, statusBar(), &QStatusBar::clearMessage);
    connect(&m_waiter, &BoardWaiter::waitingFor, this, [this](const QString& port) { m_views->showWaiting(port); });
    PlotterView* plotter = m_views->plotter;
    plotter->setPrompter(m_prompter.get());
    connect(&m_link, &BoardLink::boardOutput, plotter, &PlotterView::addLine);
    connect(m_files.get(), &BoardFiles::scriptLine, plotter, &PlotterView::addLine);
    connect(plotter, &PlotterView::logLine, this, &PelkamWindow::logAppend);
    connect(action(QStringLiteral("actionPlotter")), &QAction::triggered, this,
            [this, plotter] { m_views->logTabs->setCurrentWidget(plotter); });
    connect(m_views->pcFileList, &QWidget::customContextMenuRequested, this, &PelkamWindow::pcFileListMenu);
    connect(m_views->mcFileList, &QWidget::customContextMenuRequested, this, &PelkamWindow::mcFileListMenu);
    // Dropped PC files go up one by one with Upload's questions; a dropped
    // board file comes down with the overwrite question.
    auto* dragDrop = new PaneDragDrop(m_views->pcFileList, m_views->mcFileList, this);
    connect(dragDrop, &PaneDragDrop::pcFilesDropped, this, [this](const QStringList& paths) {
        runWorkflow([&] {
            for (const QString& path : paths)
                if (m_link.isOpen() && !m_cancelled)
                    m_workflows->local_file_upload(QFileInfo(path));
        });
    });
    connect(dragDrop, &PaneDragDrop::boardEntryDropped, this, [this](int row) {
        const QModelIndex index = m_mcModel.index(row, 0);
        if (index.isValid() && !m_mcModel.isDir(index))
            runWorkflow([&] { m_workflows->action_download_core(index); });
    });
    auto* keys = new BoardPaneKeys(this);
    m_views->mcFileList->installEventFilter(keys);
    connect(keys, &BoardPaneKeys::openRequested, this,
            [this] { on_mcFileList_doubleClicked(m_views->mcFileList->currentIndex()); });
    connect(keys, &BoardPaneKeys::removeRequested, this, &PelkamWindow::on_actionRemove_triggered);
    connect(keys, &BoardPaneKeys::upRequested, this, [this] {
        if (m_mcModel.rowCount() > 0 && m_mcModel.path(m_mcModel.index(0, 0)) == QLatin1String(".."))
            on_mcFileList_doubleClicked(m_mcModel.index(0, 0));
    });

    wireLink();
    fileOpsEnable(false);
    QMetaObject::connectSlotsByName(this);
}

PelkamWindow::~PelkamWindow()
{
    // Ends any wait of the link before the views it reports to go away.
    m_link.blockSignals(true);
    m_link.connectionClosed();
}

QAction* PelkamWindow::action(const QString& objectName) const
{
    return findChild<QAction*>(objectName);
}

void PelkamWindow::wireLink()
{
    connect(&m_link, &BoardLink::stateChanged, this, &PelkamWindow::onLinkStateChanged);
    connect(&m_link, &BoardLink::logLine, this, &PelkamWindow::logAppend);
    connect(&m_link, &BoardLink::ownCommandLine, this, &PelkamWindow::ownCommandAppend);
    connect(&m_link, &BoardLink::terminalLine, this, &PelkamWindow::terminalAppend);
    connect(&m_link, &BoardLink::fileOpsEnableRequested, this, &PelkamWindow::fileOpsEnable);
    connect(m_views->replLine, &ReplLine::send, this, [this](const QByteArray& bytes) {
        // Never into one of our own conversations with the board.
        if (m_link.isOpen() && m_link.state() <= MC_RUNNING && !m_files->busy())
            m_link.type(bytes);
    });
    connect(&m_link, &BoardLink::connectionOpened, this, [this] {
        updateReplLine();
        m_views->actionsToolBar->setEnabled(true);
        action(QStringLiteral("actionConnect"))->setIcon(materialIcon(QStringLiteral("link_off")));
    });
    connect(&m_link, &BoardLink::connectionLost, this, [this] {
        updateReplLine();
        m_views->actionsToolBar->setEnabled(false);
        action(QStringLiteral("actionConnect"))->setIcon(materialIcon(QStringLiteral("link")));
        m_mcModel.clear();
    });
    connect(&m_link, &BoardLink::resetMcConsumed, this,
            [this] { action(QStringLiteral("actionReset_MC"))->setChecked(false); });
    connect(&m_link, &BoardLink::queryInfoRequested, m_files.get(), &BoardFiles::queryInfo);

    m_files->setModel(&m_mcModel);
    connect(m_files.get(), &BoardFiles::logLine, this, &PelkamWindow::logAppend);
    connect(m_packages.get(), &PackageInstaller::logLine, this, &PelkamWindow::logAppend);
    connect(m_sync.get(), &Synchronizer::logLine, this, &PelkamWindow::logAppend);
    connect(m_workflows.get(), &FileWorkflows::logLine, this, &PelkamWindow::logAppend);
    connect(m_remoteEdit, &RemoteEdit::logLine, this, &PelkamWindow::logAppend);
    connect(m_syncFlow.get(), &SyncFlow::logLine, this, &PelkamWindow::logAppend);
    connect(&m_link, &BoardLink::connectionLost, m_remoteEdit, &RemoteEdit::connectionClosed);
    connect(m_files.get(), &BoardFiles::fileOpsEnableRequested, this, &PelkamWindow::fileOpsEnable);
    connect(m_files.get(), &BoardFiles::progressStarted, this, [this](int maximum) {
        m_views->progress->setRange(0, maximum);
        m_views->progress->setValue(0);
        m_views->progress->show();
    });
    connect(m_files.get(), &BoardFiles::progressChanged, this,
            [this](int value) { m_views->progress->setValue(qMin(value, m_views->progress->maximum())); });
    connect(m_files.get(), &BoardFiles::progressFinished, m_views->progress, &QWidget::hide);
}

void PelkamWindow::onLinkStateChanged(MC_STATE state)
{
    // Someone watching the plot keeps watching it (a Run's output is plotted too).
    const bool plotting = m_views->logTabs->currentWidget() == m_views->plotter;
    if (state > MC_RUNNING) {
        m_views->fileSystemGroup->setEnabled(true);
        if (!plotting)
            m_views->logTabs->setCurrentIndex(1);
    } else {
        if (!plotting)
            m_views->logTabs->setCurrentIndex(0);
        m_views->fileSystemGroup->setEnabled(false);
    }
    updateReplLine();
    emit stateChanged(state);
}

void PelkamWindow::updateReplLine()
{
    // While the board runs its own program or is only monitored.
    m_views->replLine->setUsable(m_link.isOpen(), m_link.state() <= MC_RUNNING);
}

void PelkamWindow::setPrompter(std::unique_ptr<Prompter> prompter)
{
    m_prompter = std::move(prompter);
    m_packages->setPrompter(m_prompter.get());
    m_workflows->setPrompter(m_prompter.get());
    m_remoteEdit->setPrompter(m_prompter.get());
    m_views->plotter->setPrompter(m_prompter.get());
}

void PelkamWindow::fileOpsEnable(bool on)
{
    if (m_workflowDepth > 0)
        m_opsAfterWorkflow = on;
    else
        setFileActionsEnabled(on);
}

template <typename Workflow> void PelkamWindow::runWorkflow(Workflow workflow)
{
    if (m_files->busy() || m_workflowDepth > 0)
        return;
    m_opsAfterWorkflow = action(QStringLiteral("actionUpload"))->isEnabled();
    ++m_workflowDepth;
    setFileActionsEnabled(false);
    m_cancelled = false;
    action(QStringLiteral("actionCancel"))->setEnabled(true);
    workflow();
    action(QStringLiteral("actionCancel"))->setEnabled(false);
    // A cancelled operation may have changed the board halfway: list it again.
    if (m_cancelled && m_link.isOpen())
        m_files->updateMcDir(m_mcModel.dirPath());
    --m_workflowDepth;
    const bool keep = m_settings.value(Preferences::kKeepActionsKey, false).toBool();
    setFileActionsEnabled((m_opsAfterWorkflow || keep) && m_link.isOpen());
    if (!m_opsAfterWorkflow && !keep && m_link.isOpen())
        m_views->hintActionsOff(this);
}

void PelkamWindow::setFileActionsEnabled(bool on)
{
    m_views->setFileActionsEnabled(on);
}

void PelkamWindow::setupLocalDir(const QString& path)
{
    if (m_settings.value(QStringLiteral("UI/Dir")).toString() != path)
        m_settings.setValue(QStringLiteral("UI/Dir"), path);
    // While the user types, the text stays theirs: "/tmp/" must not become
    // "/tmp" under the cursor before the next letter arrives.
    if (QDir::cleanPath(m_views->pcFolderEdit->text()) != path) {
        const QSignalBlocker blocker(m_views->pcFolderEdit);
        m_views->pcFolderEdit->setText(path);
    }
    m_pcModel->setRootPath(path);
    m_workflows->setPcRoot(path);
    m_remoteEdit->setPcRoot(path);
    m_syncFlow->setRoot(path);
    m_views->pcFileList->setRootIndex(m_pcModel->index(path));
}

void PelkamWindow::readSettings()
{
    if (!restoreGeometry(m_settings.value(QStringLiteral("UI/Geometry")).toByteArray()))
        WindowViews::fitToScreen(this);
    restoreState(m_settings.value(QStringLiteral("UI/Win")).toByteArray());
    setupLocalDir(m_settings.value(QStringLiteral("UI/Dir"), QDir::homePath()).toString());
    action(QStringLiteral("actionAutomatic_Reconnect"))
        ->setChecked(m_settings.value(QStringLiteral("MC/ConnRest"), false).toBool());
    action(QStringLiteral("actionMonitor_Only"))
        ->setChecked(m_settings.value(QStringLiteral("MC/MonOnly"), false).toBool());
    applySettings();
}

void PelkamWindow::writeSettings()
{
    m_settings.setValue(QStringLiteral("MC/ConnRest"),
                        action(QStringLiteral("actionAutomatic_Reconnect"))->isChecked());
    m_settings.setValue(QStringLiteral("MC/MonOnly"), action(QStringLiteral("actionMonitor_Only"))->isChecked());
}

void PelkamWindow::closeEvent(QCloseEvent* event)
{
    if (m_link.isOpen() && (m_operationInProgress || m_packages->busy() || m_remoteEdit->editing()) &&
        m_prompter->question(tr("Exit"), tr("An MC operation is in progress. Abort and quit?"), Prompter::YesNo) !=
            Prompter::Yes) {
        event->ignore();
        return;
    }
    m_settings.setValue(QStringLiteral("UI/Win"), saveState());
    m_settings.setValue(QStringLiteral("UI/Geometry"), saveGeometry());
    event->accept();
    // Ends any board wait so the operation unwinds with the application.
    if (m_link.isOpen())
        m_link.connectionClosed();
}

void PelkamWindow::checkUpdate()
{
    if (m_updater && m_updater->available())
        m_updater->checkForUpdates();
    else
        logAppend(tr("Updates come from the system's package manager"));
}

void PelkamWindow::rememberPassword(const QString& address, const QString& password, bool remember)
{
    const QString problem = SecretStore::remember(address, password, remember);
    if (!problem.isEmpty())
        logAppend(tr("No secret store took the password (%1): it is asked again next time").arg(problem));
}

bool PelkamWindow::connectTo(const BoardLink::PortSettings& settings)
{
    return m_link.connectToBoard(settings, action(QStringLiteral("actionAutomatic_Reconnect"))->isChecked(),
                                 !action(QStringLiteral("actionMonitor_Only"))->isChecked());
}

void PelkamWindow::on_actionConnect_triggered()
{
    if (m_link.isOpen()) {
        m_link.connectionClosed();
        return;
    }
    ConnectionPopup popup(this);
    popup.setOfferedPort(m_offeredPort);
    popup.readSettings();
    popup.move(m_views->connectionToolBar->mapToGlobal(QPoint(0, m_views->connectionToolBar->height())));
    popup.setWindowModality(Qt::ApplicationModal);
    QEventLoop loop;
    connect(&popup, &ConnectionPopup::done, &loop, &QEventLoop::quit);
    popup.show();
    loop.exec();
    if (!popup.applied())
        return;
    popup.writeSettings();
    applySettings();
    if (popup.port().isEmpty())
        return;
    BoardLink::PortSettings settings;
    settings.name = popup.port();
    settings.serialNumber = popup.serialNumber();
    settings.baud = popup.baud();
    settings.type = popup.type() == MC_ESP32 ? MC_ESP32 : MC_STM32;
    settings.password = popup.webRepl() ? popup.password() : QString();
    // The secret store keeps only a password the board has accepted.
    if (connectTo(settings) || !popup.rememberPassword())
        rememberPassword(settings.name, settings.password, popup.rememberPassword());
}

void PelkamWindow::on_actionAbort_triggered()
{
    m_link.abort();
}

void PelkamWindow::on_actionLaunch_triggered()
{
    m_link.launch();
}

void PelkamWindow::on_actionReset_triggered()
{
    m_link.reset();
}

void PelkamWindow::on_actionDFU_triggered()
{
    m_link.dfu();
}

void PelkamWindow::on_actionAutomatic_Reconnect_toggled(bool on)
{
    m_link.setAutomaticReconnectOption(on);
}

void PelkamWindow::on_actionReset_MC_toggled(bool on)
{
    m_link.setResetMcOption(on);
}

void PelkamWindow::on_actionAbout_triggered()
{
    QMessageBox::about(this, QStringLiteral("Pelkam"), WindowViews::aboutText());
}

void PelkamWindow::on_actionAbout_Qt_triggered()
{
    QMessageBox::aboutQt(this, QStringLiteral("Pelkam"));
}

void PelkamWindow::on_pcFolderEdit_textChanged(const QString& text)
{
    if (QFileInfo(text).isDir())
        setupLocalDir(QDir::cleanPath(text));
}

void PelkamWindow::on_pcFolderSelTool_clicked()
{
    const QString dir = m_prompter->existingDirectory(tr("Select Directory"), m_views->pcFolderEdit->text());
    if (!dir.isEmpty())
        setupLocalDir(dir);
}

void PelkamWindow::on_pcFolderUpTool_clicked()
{
    QDir dir(m_views->pcFolderEdit->text());
    if (dir.cdUp())
        setupLocalDir(dir.absolutePath());
}

void PelkamWindow::on_mcFileList_doubleClicked(const QModelIndex& index)
{
    FileWorkflows::McActivation activation = FileWorkflows::Ignored;
    runWorkflow([&] { activation = m_workflows->mcEntryActivated(index, m_views->mcFileList->currentIndex()); });
    if (activation == FileWorkflows::EditRequested)
        on_actionEdit_triggered();
}

void PelkamWindow::on_actionPreferences_triggered()
{
    Preferences preferences(this);
    preferences.setPrompter(m_prompter.get());
    preferences.readSettings();
    if (preferences.exec() == QDialog::Accepted) {
        preferences.writeSettings();
        applySettings();
    }
}

void PelkamWindow::applySettings()
{
    m_files->setOptions(boardOptionsFromSettings(m_settings));
    m_waiter.setMinutes(m_settings.value(Preferences::kKeepWaitingKey, 0).toInt());
    // 0 keeps everything; otherwise the oldest lines go as new ones come.
    m_scrollback = qMax(0, m_settings.value(QStringLiteral("UI/TerminalLines"), 0).toInt());
    trimScrollback(m_terminal, m_scrollback);
    trimScrollback(m_log, m_scrollback);
}

void PelkamWindow::on_actionNew_File_triggered()
{
    runWorkflow([&] { m_remoteEdit->newFile(); });
}

void PelkamWindow::on_actionEdit_triggered()
{
    runWorkflow([&] { m_remoteEdit->edit(m_views->mcFileList->currentIndex()); });
}

void PelkamWindow::on_pcFileList_doubleClicked(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    if (PackageInstaller::isPackageName(m_pcModel->filePath(index)) && m_packages->refuseWhileBusy())
        return;
    if (m_files->busy())
        return;
    if (m_pcModel->isDir(index)) {
        setupLocalDir(m_pcModel->filePath(index));
        return;
    }
    runWorkflow([&] { m_workflows->pcFileActivated(m_pcModel->fileInfo(index)); });
}

void PelkamWindow::on_actionUpload_triggered()
{
    const QModelIndex index = m_views->pcFileList->currentIndex();
    if (index.isValid() && !m_pcModel->isDir(index))
        on_pcFileList_doubleClicked(index);
}

void PelkamWindow::on_actionDownload_triggered()
{
    const QModelIndex index = m_views->mcFileList->currentIndex();
    if (index.isValid() && !m_mcModel.isDir(index))
        runWorkflow([&] { m_workflows->action_download_core(index); });
}

void PelkamWindow::on_actionRemove_triggered()
{
    const QModelIndex index = m_views->mcFileList->currentIndex();
    if (index.isValid())
        runWorkflow([&] { m_workflows->removeEntry(index); });
}

void PelkamWindow::on_actionNew_Directory_triggered()
{
    runWorkflow([&] { m_workflows->newDirectory(); });
}

void PelkamWindow::on_actionSync_triggered()
{
    if (!m_files->busy() && m_workflowDepth == 0)
        m_syncFlow->runDialog(this, m_pcModel->rootPath());
}

void PelkamWindow::on_actionCancel_triggered()
{
    m_cancelled = true;
    m_files->cancel();
}

void PelkamWindow::on_actionRename_triggered()
{
    const QModelIndex index = m_views->mcFileList->currentIndex();
    if (index.isValid())
        runWorkflow([&] { m_workflows->renameEntry(index); });
}

void PelkamWindow::on_actionRefresh_triggered()
{
    if (m_link.isOpen())
        runWorkflow([&] { m_files->updateMcDir(m_mcModel.dirPath()); });
}

void PelkamWindow::on_actionUpload_Package_triggered()
{
    if (m_packages->refuseWhileBusy() || m_files->busy() || m_workflowDepth > 0)
        return;
    const QString path = m_prompter->openFileName(tr("Select package"), m_pcModel->rootPath(),
                                                  tr("Zarno pack files (*.upack);; UFW firmware updates (*.ufw)"));
    if (!path.isEmpty())
        runWorkflow([&] { m_packages->install(path); });
}

void PelkamWindow::pcFileListMenu(const QPoint& pos)
{
    const QModelIndex index = m_views->pcFileList->indexAt(pos);
    if (!index.isValid() || m_pcModel->isDir(index))
        return;
    QAction* chosen = m_views->pcMenu->exec(m_views->pcFileList->viewport()->mapToGlobal(pos));
    if (!chosen)
        return;
    const QFileInfo file = m_pcModel->fileInfo(index);
    switch (chosen->data().toInt()) {
    case 0:
        runWorkflow([&] { m_files->execute_script(file.absoluteFilePath()); });
        break;
    case 1:
        runWorkflow([&] { m_workflows->local_file_upload(file); });
        break;
    case 2:
        runWorkflow([&] { m_workflows->syncFile(file.absoluteFilePath()); });
        break;
    default:
        break;
    }
}

void PelkamWindow::mcFileListMenu(const QPoint& pos)
{
    const QModelIndex index = m_views->mcFileList->indexAt(pos);
    if (!index.isValid() || index.column() != 0 || m_mcModel.isDir(index))
        return;
    m_views->mcFileList->setCurrentIndex(index);
    QAction* chosen = m_views->mcMenu->exec(m_views->mcFileList->viewport()->mapToGlobal(pos));
    if (!chosen)
        return;
    switch (chosen->data().toInt()) {
    case 0:
        runWorkflow([&] { m_remoteEdit->action_edit_core(index); });
        break;
    case 1:
        runWorkflow([&] { m_workflows->action_download_core(index); });
        break;
    case 2:
        runWorkflow([&] { m_workflows->action_remove_core(index); });
        break;
    default:
        break;
    }
}
