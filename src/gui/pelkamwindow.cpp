#include "pelkamwindow.h"

#include "board/boardfiles.h"
#include "connectionpopup.h"
#include "packages/packageinstaller.h"
#include "preferences.h"
#include "qmaterialicon.h"
#include "remoteedit.h"
#include "boardpanekeys.h"
#include "panedragdrop.h"
#include "replline.h"
#include "sync/synchronizer.h"
#include "scrollback.h"
#include "syncflow.h"
#include "themedetector.h"
#include "updater.h"
#include "widgetprompter.h"
#include "workflows/fileworkflows.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDateTime>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QRegExp>
#include <QScrollBar>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTextBrowser>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

namespace {
const QString kDefaultUpdateUrl = QStringLiteral("https://tarvel.dev/pelkam/appcast.xml");
const QString kSupportUrl = QStringLiteral("https://tarvel.dev/pelkam");
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

    setupUi();
    m_logTabs->setCurrentIndex(0);
    m_fileSystemGroup->setEnabled(false);
    m_progress->hide();
    m_progress->setFormat(tr("%p% (%v of %m bytes)"));
    m_actionsToolBar->setEnabled(false);

    m_updater =
        std::make_unique<NullUpdater>(m_settings.value(QStringLiteral("Updates/URL"), kDefaultUpdateUrl).toString());
    connect(action(QStringLiteral("actionCheck_for_updates")), &QAction::triggered, this, &PelkamWindow::checkUpdate);
    connect(action(QStringLiteral("actionExit")), &QAction::triggered, qApp, &QCoreApplication::quit);

    m_pcModel = new QFileSystemModel(this);
    m_pcModel->setReadOnly(true);
    m_pcFileList->setModel(m_pcModel);
    m_pcFileList->setSortingEnabled(true);
    m_pcFileList->sortByColumn(0, Qt::AscendingOrder);
    m_pcFileList->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_mcModel.setDecorationProvider([](bool isDir) -> QVariant {
        return materialIcon(isDir ? QStringLiteral("folder") : QStringLiteral("insert_drive_file"));
    });
    m_mcFileList->setModel(&m_mcModel);
    m_mcFileList->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_mcFileList->setShowGrid(false);
    m_files->setReportSpace(true);
    connect(m_files.get(), &BoardFiles::spaceReported, this, [this](qint64 freeBytes, qint64 totalBytes) {
        if (totalBytes <= 0)
            statusBar()->clearMessage();
        else
            statusBar()->showMessage(tr("Board: %1 free of %2")
                                         .arg(locale().formattedDataSize(freeBytes), locale().formattedDataSize(totalBytes)));
    });
    m_pcFileList->setContextMenuPolicy(Qt::CustomContextMenu);
    m_mcFileList->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_pcFileList, &QWidget::customContextMenuRequested, this, &PelkamWindow::pcFileListMenu);
    connect(m_mcFileList, &QWidget::customContextMenuRequested, this, &PelkamWindow::mcFileListMenu);

    m_pcMenu = new QMenu(this);
    m_pcMenu->addAction(materialIcon(QStringLiteral("build")), tr("Run on the MC"))->setData(0);
    m_pcMenu->addAction(materialIcon(QStringLiteral("send")), tr("Upload"))->setData(1);
    m_pcMenu->addAction(materialIcon(QStringLiteral("swap_horizontal_circle")), tr("Synchronize"))->setData(2);
    m_mcMenu = new QMenu(this);
    m_mcMenu->addAction(materialIcon(QStringLiteral("edit")), tr("Edit"))->setData(0);
    m_mcMenu->addAction(materialIcon(QStringLiteral("save")), tr("Download"))->setData(1);
    m_mcMenu->addAction(materialIcon(QStringLiteral("delete")), tr("Remove"))->setData(2);
    // Rename runs through its own action; its data keeps the switch below out of it.
    action(QStringLiteral("actionRename"))->setData(3);
    m_mcMenu->addAction(action(QStringLiteral("actionRename")));
    // Dropped PC files go up one by one with Upload's questions; a dropped
    // board file comes down with the overwrite question.
    auto* dragDrop = new PaneDragDrop(m_pcFileList, m_mcFileList, this);
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
    m_mcFileList->installEventFilter(keys);
    connect(keys, &BoardPaneKeys::openRequested, this,
            [this] { on_mcFileList_doubleClicked(m_mcFileList->currentIndex()); });
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

QAction* PelkamWindow::makeAction(const char* name, const QString& text, const QString& tooltip,
                                  const QString& shortcut, const QString& icon, bool checkable)
{
    auto* a = new QAction(text, this);
    a->setObjectName(QString::fromLatin1(name));
    if (!tooltip.isEmpty())
        a->setToolTip(tooltip);
    if (!shortcut.isEmpty())
        a->setShortcut(QKeySequence(shortcut));
    if (!icon.isEmpty())
        a->setIcon(materialIcon(icon));
    a->setCheckable(checkable);
    return a;
}

void PelkamWindow::createActions()
{
    makeAction("actionExit", tr("Exit"), {}, QStringLiteral("Ctrl+Q"), {});
    makeAction("actionAbout", tr("About"), {}, {}, {});
    makeAction("actionUpload", tr("Upload"), tr("Upload the selected file"), QStringLiteral("Ctrl+U"),
               QStringLiteral("send"));
    makeAction("actionDownload", tr("Download"), tr("Download a file from the MC"), QStringLiteral("Ctrl+D"),
               QStringLiteral("save"));
    makeAction("actionSync", tr("Sync"), tr("Sync files between the PC and the MC"), {},
               QStringLiteral("swap_horizontal_circle"));
    makeAction("actionAbort", tr("Abort"), tr("Stop the virtual machine"), QStringLiteral("Ctrl+X"),
               QStringLiteral("cancel"));
    makeAction("actionReset", tr("Reset"), tr("Reset the MC"), QStringLiteral("Ctrl+Z"), QStringLiteral("restore"));
    makeAction("actionDFU", tr("DFU"), tr("Put the MC into the DFU mode"), {}, QStringLiteral("system_update"));
    makeAction("actionRemove", tr("Remove"), tr("Remove a file from the MC"), {}, QStringLiteral("delete"));
    makeAction("actionEdit", tr("Edit"), tr("Edit a MC file"), QStringLiteral("Ctrl+E"), QStringLiteral("edit"));
    makeAction("actionPreferences", tr("Preferences"), {}, {}, {});
    makeAction("actionUpload_Package", tr("Upload Package"), tr("Upload a package to the MC"), {},
               QStringLiteral("archive"));
    makeAction("actionNew_Directory", tr("New Directory"), tr("Create a new directory in the MC flash"),
               QStringLiteral("Ctrl+Shift+N"), QStringLiteral("create_new_folder"));
    makeAction("actionNew_File", tr("New File"), tr("Create a new file in the MC flash"), QStringLiteral("Ctrl+N"),
               QStringLiteral("add_circle"));
    makeAction("actionLaunch", tr("Launch"), tr("Launch the virtual machine"), {}, QStringLiteral("launch"));
    makeAction("actionSaveTerminal", tr("Terminal"), {}, {}, {});
    makeAction("actionSaveSyslog", tr("Syslog"), {}, {}, {});
    makeAction("actionClear_Syslog", tr("Clear Syslog"), {}, {}, {});
    makeAction("actionClear_Terminal", tr("Clear Terminal"), {}, {}, {});
    makeAction("actionConnect", tr("Connect"), tr("Connect to a UPY device or disconnect from one"),
               QStringLiteral("Ctrl+O"), QStringLiteral("link"));
    makeAction("actionReset_MC", tr("Reset MC"), tr("Reset the MC after establishing a connection"),
               QStringLiteral("Ctrl+R"), QStringLiteral("refresh"), true);
    makeAction("actionMonitor_Only", tr("Monitor Only"),
               tr("Do not stop the virtual machine after establishing a connection"), QStringLiteral("Ctrl+M"),
               QStringLiteral("visibility"), true);
    makeAction("actionAutomatic_Reconnect", tr("Automatic Reconnect"),
               tr("Automatically reconnect if the connection is aborted"), {}, QStringLiteral("autorenew"), true);
    makeAction("actionAbout_Qt", tr("About Qt"), {}, {}, {});
    makeAction("actionCheck_for_updates", tr("Check for Updates"), {}, {}, {});
    makeAction("actionRefresh", tr("Refresh"), tr("List the board folder again"), QStringLiteral("F5"),
               QStringLiteral("sync"));
    makeAction("actionRename", tr("Rename"), tr("Rename a board file or folder"), QStringLiteral("F2"),
               QStringLiteral("drive_file_rename_outline"));
    connect(makeAction("actionSyncOnSave", tr("Sync on Save"),
                       tr("Upload each file saved in the PC folder into the listed board folder"), {},
                       QStringLiteral("cloud_upload"), true),
            &QAction::toggled, this, [this](bool on) { m_syncFlow->setSyncOnSave(on); });
    // Escape works anywhere in the window, not only while the button shows.
    addAction(makeAction("actionCancel", tr("Cancel"), tr("Stop the running transfer after the current chunk"),
                         QStringLiteral("Escape"), QStringLiteral("cancel")));
    action(QStringLiteral("actionCancel"))->setEnabled(false);
}

void PelkamWindow::createMenusAndToolbars()
{
    auto a = [this](const char* name) { return action(QString::fromLatin1(name)); };
    QMenuBar* bar = new QMenuBar(this);
    bar->setObjectName(QStringLiteral("menubar"));
    setMenuBar(bar);
    QMenu* file = bar->addMenu(tr("File"));
    file->setObjectName(QStringLiteral("menuFile"));
    QMenu* saveLog = file->addMenu(tr("Save Log"));
    saveLog->setObjectName(QStringLiteral("menuSave_Log"));
    saveLog->addAction(a("actionSaveTerminal"));
    saveLog->addAction(a("actionSaveSyslog"));
    file->addSeparator();
    file->addAction(a("actionExit"));
    QMenu* edit = bar->addMenu(tr("Edit", "menu"));
    edit->setObjectName(QStringLiteral("menuEdit"));
    edit->addAction(a("actionPreferences"));
    edit->addAction(a("actionClear_Syslog"));
    edit->addAction(a("actionClear_Terminal"));
    // Every board action by keyboard and by name.
    QMenu* board = bar->addMenu(tr("Board"));
    board->setObjectName(QStringLiteral("menuBoard"));
    for (const char* name : {"actionConnect", "actionLaunch", "actionAbort", "actionReset", "actionDFU", "actionRefresh",
                             "actionRename", "actionSyncOnSave"})
        board->addAction(a(name));
    QMenu* help = bar->addMenu(tr("Help"));
    help->setObjectName(QStringLiteral("menuHelp"));
    help->addAction(a("actionCheck_for_updates"));
    help->addAction(a("actionAbout_Qt"));
    help->addAction(a("actionAbout"));

    m_connectionToolBar = new QToolBar(tr("Connection"), this);
    m_connectionToolBar->setObjectName(QStringLiteral("a_connectionToolBar"));
    for (const char* name : {"actionConnect", "actionReset_MC", "actionMonitor_Only", "actionAutomatic_Reconnect"})
        m_connectionToolBar->addAction(a(name));
    addToolBar(Qt::TopToolBarArea, m_connectionToolBar);

    m_actionsToolBar = new QToolBar(tr("Actions"), this);
    m_actionsToolBar->setObjectName(QStringLiteral("b_actionsToolBar"));
    for (const char* name : {"actionUpload", "actionDownload", "actionNew_File", "actionEdit", "actionRemove",
                             "actionSync", "", "actionUpload_Package", "", "actionNew_Directory", "actionLaunch",
                             "actionAbort", "actionReset", "actionDFU"}) {
        if (*name)
            m_actionsToolBar->addAction(a(name));
        else
            m_actionsToolBar->addSeparator();
    }
    addToolBar(Qt::TopToolBarArea, m_actionsToolBar);

    auto* status = new QStatusBar(this);
    status->setObjectName(QStringLiteral("statusbar"));
    setStatusBar(status);
}

void PelkamWindow::setupUi()
{
    setObjectName(QStringLiteral("PelkamWindow"));
    resize(983, 657);
    setWindowTitle(QStringLiteral("Pelkam"));
    createActions();

    auto* central = new QWidget(this);
    central->setObjectName(QStringLiteral("centralwidget"));
    auto* vertical = new QVBoxLayout(central);
    vertical->setObjectName(QStringLiteral("verticalLayout_2"));

    m_fileSystemGroup = new QGroupBox(tr("File System"), central);
    m_fileSystemGroup->setObjectName(QStringLiteral("fileSystemGroup"));
    auto* grid = new QGridLayout(m_fileSystemGroup);
    grid->setObjectName(QStringLiteral("gridLayout"));
    auto* folderRow = new QHBoxLayout();
    folderRow->setObjectName(QStringLiteral("horizontalLayout_2"));
    m_pcFolderSelTool = new QToolButton(m_fileSystemGroup);
    m_pcFolderSelTool->setObjectName(QStringLiteral("pcFolderSelTool"));
    m_pcFolderSelTool->setText(QStringLiteral("..."));
    m_pcFolderSelTool->setToolTip(tr("<html><head/><body><p>Select a directory (PC)</p></body></html>"));
    m_pcFolderSelTool->setIcon(materialIcon(QStringLiteral("folder_open")));
    m_pcFolderUpTool = new QToolButton(m_fileSystemGroup);
    m_pcFolderUpTool->setObjectName(QStringLiteral("pcFolderUpTool"));
    m_pcFolderUpTool->setText(QStringLiteral("..."));
    m_pcFolderUpTool->setToolTip(tr("<html><head/><body><p>Goto parent directory (PC)</p></body></html>"));
    m_pcFolderUpTool->setIcon(materialIcon(QStringLiteral("arrow_upward")));
    m_pcFolderEdit = new QLineEdit(m_fileSystemGroup);
    m_pcFolderEdit->setObjectName(QStringLiteral("pcFolderEdit"));
    folderRow->addWidget(m_pcFolderSelTool);
    folderRow->addWidget(m_pcFolderUpTool);
    folderRow->addWidget(m_pcFolderEdit, 1);
    // The listed board folder, at the right end of the row above the board pane.
    auto* mcFolder = new QLabel(m_fileSystemGroup);
    mcFolder->setObjectName(QStringLiteral("mcFolderLabel"));
    mcFolder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    folderRow->addWidget(mcFolder, 1);
    connect(&m_mcModel, &MCDirModel::dirPathChanged, mcFolder,
            [mcFolder](const QString& path) { mcFolder->setText(tr("Board folder: %1").arg(path)); });
    connect(&m_link, &BoardLink::connectionLost, mcFolder, &QLabel::clear);
    grid->addLayout(folderRow, 0, 0, 1, 2);
    m_pcFileList = new QTreeView(m_fileSystemGroup);
    m_pcFileList->setObjectName(QStringLiteral("pcFileList"));
    m_mcFileList = new QTableView(m_fileSystemGroup);
    m_mcFileList->setObjectName(QStringLiteral("mcFileList"));
    m_mcFileList->verticalHeader()->hide();
    grid->addWidget(m_pcFileList, 1, 0);
    grid->addWidget(m_mcFileList, 1, 1);
    vertical->addWidget(m_fileSystemGroup, 3);

    m_logTabs = new QTabWidget(central);
    m_logTabs->setObjectName(QStringLiteral("logTabWidget"));
    m_logTabs->setTabPosition(QTabWidget::West);
    auto* terminalTab = new QWidget();
    terminalTab->setObjectName(QStringLiteral("logRuntimeTab"));
    auto* terminalLayout = new QVBoxLayout(terminalTab);
    terminalLayout->setObjectName(QStringLiteral("verticalLayout_3"));
    m_terminal = new QTextBrowser(terminalTab);
    m_terminal->setObjectName(QStringLiteral("runtimeLogBrowser"));
    terminalLayout->addWidget(m_terminal);
    m_replLine = new ReplLine(terminalTab);
    m_replLine->setEnabled(false);
    terminalLayout->addWidget(m_replLine);
    auto* logTab = new QWidget();
    logTab->setObjectName(QStringLiteral("logAppTab"));
    auto* logLayout = new QVBoxLayout(logTab);
    logLayout->setObjectName(QStringLiteral("verticalLayout"));
    m_log = new QTextBrowser(logTab);
    m_log->setObjectName(QStringLiteral("logBrowser"));
    logLayout->addWidget(m_log);
    m_logTabs->addTab(terminalTab, tr("Terminal"));
    m_logTabs->addTab(logTab, tr("Syslog"));
    vertical->addWidget(m_logTabs, 2);

    m_progress = new QProgressBar(central);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    // A Cancel button beside the progress bar, shown with it.
    auto* progressRow = new QHBoxLayout();
    progressRow->addWidget(m_progress);
    auto* cancelButton = new QToolButton(central);
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    cancelButton->setDefaultAction(action(QStringLiteral("actionCancel")));
    cancelButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    cancelButton->hide();
    progressRow->addWidget(cancelButton);
    vertical->addLayout(progressRow);
    connect(m_files.get(), &BoardFiles::progressStarted, cancelButton, &QWidget::show);
    connect(m_files.get(), &BoardFiles::progressFinished, cancelButton, &QWidget::hide);
    setCentralWidget(central);

    createMenusAndToolbars();
}

void PelkamWindow::wireLink()
{
    connect(&m_link, &BoardLink::stateChanged, this, &PelkamWindow::onLinkStateChanged);
    connect(&m_link, &BoardLink::logLine, this, &PelkamWindow::logAppend);
    connect(&m_link, &BoardLink::terminalLine, this, &PelkamWindow::terminalAppend);
    connect(&m_link, &BoardLink::fileOpsEnableRequested, this, &PelkamWindow::fileOpsEnable);
    connect(m_replLine, &ReplLine::send, this, [this](const QByteArray& bytes) {
        // Never into one of our own conversations with the board.
        if (m_link.isOpen() && m_link.state() <= MC_RUNNING && !m_files->busy())
            m_link.write(bytes);
    });
    connect(&m_link, &BoardLink::connectionOpened, this, [this] {
        updateReplLine();
        m_actionsToolBar->setEnabled(true);
        action(QStringLiteral("actionConnect"))->setIcon(materialIcon(QStringLiteral("link_off")));
    });
    connect(&m_link, &BoardLink::connectionLost, this, [this] {
        updateReplLine();
        m_actionsToolBar->setEnabled(false);
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
    connect(&m_link, &BoardLink::connectionLost, m_remoteEdit, &RemoteEdit::connectionClosed);
    connect(m_files.get(), &BoardFiles::fileOpsEnableRequested, this, &PelkamWindow::fileOpsEnable);
    connect(m_files.get(), &BoardFiles::progressStarted, this, [this](int maximum) {
        m_progress->setRange(0, maximum);
        m_progress->setValue(0);
        m_progress->show();
    });
    connect(m_files.get(), &BoardFiles::progressChanged, this,
            [this](int value) { m_progress->setValue(qMin(value, m_progress->maximum())); });
    connect(m_files.get(), &BoardFiles::progressFinished, m_progress, &QWidget::hide);
}

void PelkamWindow::onLinkStateChanged(MC_STATE state)
{
    if (state > MC_RUNNING) {
        m_fileSystemGroup->setEnabled(true);
        m_logTabs->setCurrentIndex(1);
    } else {
        m_logTabs->setCurrentIndex(0);
        m_fileSystemGroup->setEnabled(false);
    }
    updateReplLine();
    emit stateChanged(state);
}

void PelkamWindow::updateReplLine()
{
    // While the board runs its own program or is only monitored.
    m_replLine->setEnabled(m_link.isOpen() && m_link.state() <= MC_RUNNING);
}

void PelkamWindow::setPrompter(std::unique_ptr<Prompter> prompter)
{
    m_prompter = std::move(prompter);
    m_packages->setPrompter(m_prompter.get());
    m_workflows->setPrompter(m_prompter.get());
    m_remoteEdit->setPrompter(m_prompter.get());
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
    setFileActionsEnabled(m_opsAfterWorkflow && m_link.isOpen());
}

void PelkamWindow::setFileActionsEnabled(bool on)
{
    for (const char* name : {"actionUpload", "actionDownload", "actionNew_File", "actionNew_Directory", "actionEdit",
                             "actionRemove", "actionSync", "actionUpload_Package", "actionLaunch", "actionRefresh",
                             "actionRename"})
        action(QString::fromLatin1(name))->setEnabled(on);
}

void PelkamWindow::setupLocalDir(const QString& path)
{
    if (m_settings.value(QStringLiteral("UI/Dir")).toString() != path)
        m_settings.setValue(QStringLiteral("UI/Dir"), path);
    // While the user types, the text stays theirs: "/tmp/" must not become
    // "/tmp" under the cursor before the next letter arrives.
    if (QDir::cleanPath(m_pcFolderEdit->text()) != path) {
        const QSignalBlocker blocker(m_pcFolderEdit);
        m_pcFolderEdit->setText(path);
    }
    m_pcModel->setRootPath(path);
    m_workflows->setPcRoot(path);
    m_remoteEdit->setPcRoot(path);
    m_syncFlow->setRoot(path);
    m_pcFileList->setRootIndex(m_pcModel->index(path));
}

void PelkamWindow::readSettings()
{
    restoreGeometry(m_settings.value(QStringLiteral("UI/Geometry")).toByteArray());
    restoreState(m_settings.value(QStringLiteral("UI/Win")).toByteArray());
    setupLocalDir(m_settings.value(QStringLiteral("UI/Dir"), QDir::homePath()).toString());
    action(QStringLiteral("actionAutomatic_Reconnect"))
        ->setChecked(m_settings.value(QStringLiteral("MC/ConnRest"), false).toBool());
    action(QStringLiteral("actionMonitor_Only"))
        ->setChecked(m_settings.value(QStringLiteral("MC/MonOnly"), false).toBool());
    applyScrollback();
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
    popup.move(m_connectionToolBar->mapToGlobal(QPoint(0, m_connectionToolBar->height())));
    popup.setWindowModality(Qt::ApplicationModal);
    QEventLoop loop;
    connect(&popup, &ConnectionPopup::done, &loop, &QEventLoop::quit);
    popup.show();
    loop.exec();
    if (!popup.applied())
        return;
    popup.writeSettings();
    if (popup.port().isEmpty())
        return;
    BoardLink::PortSettings settings;
    settings.name = popup.port();
    settings.serialNumber = popup.serialNumber();
    settings.baud = popup.baud();
    settings.type = popup.type() == MC_ESP32 ? MC_ESP32 : MC_STM32;
    connectTo(settings);
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
    const QString year = QString::number(QDate::currentDate().year());
    QMessageBox::about(
        this, QStringLiteral("Pelkam"),
        tr("Pelkam Board Toolkit v%1").arg(QStringLiteral(PELKAM_VERSION)) + QStringLiteral("<br>") +
            tr("Developed by: Tarvel") + QStringLiteral("<br>") +
            tr("Copyright %1 Tarvel. All rights reserved.").arg(year) + QStringLiteral("<br>") +
            QStringLiteral("<a href=\"%1\">%1</a><br><br>").arg(kSupportUrl) + tr("3rd party software:") +
            QStringLiteral("<ul>"
                           "<li><a href=\"https://github.com/google/material-design-icons\">Material design "
                           "icons</a> (Apache License 2.0)</li>"
                           "<li><a href=\"https://github.com/Megaxela/QCodeEditor\">QCodeEditor</a> (MIT License)</li>"
                           "<li><a href=\"https://github.com/rxi/microtar\">microtar</a> (MIT License)</li>"
                           "</ul>"));
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
    const QString dir = m_prompter->existingDirectory(tr("Select Directory"), m_pcFolderEdit->text());
    if (!dir.isEmpty())
        setupLocalDir(dir);
}

void PelkamWindow::on_pcFolderUpTool_clicked()
{
    QDir dir(m_pcFolderEdit->text());
    if (dir.cdUp())
        setupLocalDir(dir.absolutePath());
}

void PelkamWindow::on_mcFileList_doubleClicked(const QModelIndex& index)
{
    FileWorkflows::McActivation activation = FileWorkflows::Ignored;
    runWorkflow([&] { activation = m_workflows->mcEntryActivated(index, m_mcFileList->currentIndex()); });
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
        applyScrollback();
    }
}

void PelkamWindow::applyScrollback()
{
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
    runWorkflow([&] { m_remoteEdit->edit(m_mcFileList->currentIndex()); });
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
    const QModelIndex index = m_pcFileList->currentIndex();
    if (index.isValid() && !m_pcModel->isDir(index))
        on_pcFileList_doubleClicked(index);
}

void PelkamWindow::on_actionDownload_triggered()
{
    const QModelIndex index = m_mcFileList->currentIndex();
    if (index.isValid() && !m_mcModel.isDir(index))
        runWorkflow([&] { m_workflows->action_download_core(index); });
}

void PelkamWindow::on_actionRemove_triggered()
{
    const QModelIndex index = m_mcFileList->currentIndex();
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
    const QModelIndex index = m_mcFileList->currentIndex();
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
    const QModelIndex index = m_pcFileList->indexAt(pos);
    if (!index.isValid() || m_pcModel->isDir(index))
        return;
    QAction* chosen = m_pcMenu->exec(m_pcFileList->viewport()->mapToGlobal(pos));
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
    const QModelIndex index = m_mcFileList->indexAt(pos);
    if (!index.isValid() || index.column() != 0 || m_mcModel.isDir(index))
        return;
    m_mcFileList->setCurrentIndex(index);
    QAction* chosen = m_mcMenu->exec(m_mcFileList->viewport()->mapToGlobal(pos));
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

// ---- Terminal and Syslog views ----

QString PelkamWindow::timeStamp(const QString& color) const
{
    return QStringLiteral("<font color=%2>[%1]</font>: ")
        .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")), color);
}

void PelkamWindow::terminalAppend(const QString& text)
{
    if (!m_terminal)
        return;
    QString line = timeStamp(m_accentColor) + text;
    m_terminal->append(processTerminalData(line));
    trimScrollback(m_terminal, m_scrollback);
}

void PelkamWindow::logAppend(const QString& text)
{
    if (!m_log)
        return;
    QString line = timeStamp(m_syslogColor) + text;
    m_log->append(processTerminalData(line));
    trimScrollback(m_log, m_scrollback);
    m_log->verticalScrollBar()->setValue(m_log->verticalScrollBar()->maximum());
}

QString& PelkamWindow::processTerminalData(QString& text)
{
    static const QRegExp pattern(QStringLiteral("\\x001b\\[(?:(\\d+)\\;)*(\\d+)m"));
    auto colorName = [](int code) -> QString {
        switch (code) {
        case TC_Red:
            return QStringLiteral("red");
        case TC_Green:
            return QStringLiteral("green");
        case TC_Yellow:
            return QStringLiteral("yellow");
        case TC_Blue:
            return QStringLiteral("blue");
        case TC_Magenta:
            return QStringLiteral("magenta");
        case TC_Cyan:
            return QStringLiteral("cyan");
        case TC_White:
            return QStringLiteral("white");
        default:
            return QStringLiteral("black");
        }
    };
    QRegExp rx(pattern);
    bool open = false;
    int pos = rx.indexIn(text, 0);
    while (pos != -1) {
        const int length = rx.matchedLength();
        QString replacement;
        for (int cap = 1; cap <= 2; ++cap) {
            const QString param = rx.cap(cap);
            if (param.isEmpty())
                continue;
            const int code = param.toInt();
            if (code == TC_None) {
                if (open)
                    replacement += QStringLiteral("</font>");
                open = false;
            } else {
                if (open)
                    replacement += QStringLiteral("</font>");
                replacement += QStringLiteral("<font color=%1>").arg(colorName(code));
                open = true;
            }
        }
        text.replace(pos, length, replacement);
        // Deliberate resume rule: may start before the inserted text, or count
        // back from the end when negative.
        pos = rx.indexIn(text, pos + replacement.length() - length);
    }
    return text;
}

void PelkamWindow::saveLog(QTextBrowser* view, const QString& prefix)
{
    const QString start = m_settings
                              .value(QStringLiteral("UI/LogDir"),
                                     QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).value(0))
                              .toString();
    const QString suggested = start + QLatin1Char('/') + prefix +
                              QDateTime::currentDateTime().toString(QStringLiteral("_yyyyMMddhhmmss")) +
                              QStringLiteral(".log");
    QString name = m_prompter->saveFileName(tr("Save Log As"), suggested, tr("Log files (*.log)"));
    if (name.isEmpty())
        return;
    if (!name.endsWith(QLatin1String(".log"), Qt::CaseInsensitive))
        name += QStringLiteral(".log");
    m_settings.setValue(QStringLiteral("UI/LogDir"), QFileInfo(name).absolutePath());
    QFile file(name);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(view->toPlainText().toUtf8());
        logAppend(tr("Saved to %1").arg(QFileInfo(name).fileName()));
    } else {
        logAppend(tr("Cannot save to %1: %2").arg(name, file.errorString()));
    }
}

void PelkamWindow::on_actionSaveTerminal_triggered()
{
    saveLog(m_terminal, QStringLiteral("pelkam_terminal"));
}

void PelkamWindow::on_actionSaveSyslog_triggered()
{
    saveLog(m_log, QStringLiteral("pelkam_syslog"));
}

void PelkamWindow::on_actionClear_Terminal_triggered()
{
    m_terminal->clear();
}

void PelkamWindow::on_actionClear_Syslog_triggered()
{
    m_log->clear();
}
