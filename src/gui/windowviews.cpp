#include "windowviews.h"

#include "plotterview.h"
#include "qmaterialicon.h"
#include "replline.h"

#include <QAction>
#include <QDate>
#include <QFileSystemModel>
#include <QGuiApplication>
#include <QScreen>
#include <QSettings>
#include <QStyledItemDelegate>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTextBrowser>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

namespace {
const QString kSupportUrl = QStringLiteral("https://tarvel.dev/pelkam");
// How much of the screen's width and height a first start takes, in percent.
constexpr int kScreenShare = 75;
constexpr int kSizeColumn = 1;
const QString kShowOwnKey = QStringLiteral("UI/ShowOwnCommands");
constexpr int kDateColumn = 3;

// QFileSystemModel writes sizes and dates in the system's locale; the
// interface's language is Pelkam's own choice.
class LocalisedFileDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        const QString shown = WindowViews::pcColumnText(index);
        if (!shown.isNull())
            option->text = shown;
    }
};
} // namespace

QString WindowViews::pcColumnText(const QModelIndex& index)
{
    const auto* model = qobject_cast<const QFileSystemModel*>(index.model());
    if (!model)
        return QString();
    const QLocale here;
    if (index.column() == kSizeColumn && !model->isDir(index))
        return here.formattedDataSize(model->size(index));
    if (index.column() == kDateColumn)
        return here.toString(model->lastModified(index), QLocale::ShortFormat);
    return QString();
}

WindowViews::WindowViews(QMainWindow* window) : m_window(window)
{
    window->setObjectName(QStringLiteral("PelkamWindow"));
    window->resize(983, 657);
    window->setWindowTitle(QStringLiteral("Pelkam"));
    createActions();
    createPanes();
    createMenusAndToolbars();
    createContextMenus();
}

QAction* WindowViews::action(const char* name) const
{
    return m_window->findChild<QAction*>(QString::fromLatin1(name));
}

QAction* WindowViews::makeAction(const char* name, const QString& text, const QString& tooltip, const QString& shortcut,
                                 const QString& icon, bool checkable)
{
    auto* a = new QAction(text, m_window);
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

void WindowViews::createActions()
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
    makeAction("actionPlotter", tr("Plotter"), tr("Show the numbers the board prints as a graph"), {},
               QStringLiteral("show_chart"));
    QAction* own = makeAction("actionShowOwnCommands", tr("Show the program's own commands"),
                              tr("Show in the Syslog what Pelkam itself sends the board and the board's echo of it"),
                              {}, {}, true);
    // On by default, so the Syslog shows all it always has.
    own->setChecked(QSettings().value(kShowOwnKey, true).toBool());
    QObject::connect(own, &QAction::toggled, [](bool on) { QSettings().setValue(kShowOwnKey, on); });
    makeAction("actionRename", tr("Rename"), tr("Rename a board file or folder"), QStringLiteral("F2"),
               QStringLiteral("drive_file_rename_outline"));
    makeAction("actionSyncOnSave", tr("Sync on Save"),
               tr("Upload each file saved in the PC folder into the listed board folder"), {},
               QStringLiteral("cloud_upload"), true);
    // Escape works anywhere in the window, not only while the button shows.
    m_window->addAction(makeAction("actionCancel", tr("Cancel"),
                                   tr("Stop the running transfer after the current chunk"), QStringLiteral("Escape"),
                                   QStringLiteral("cancel")));
    action("actionCancel")->setEnabled(false);
}

void WindowViews::createMenusAndToolbars()
{
    auto a = [this](const char* name) { return action(name); };
    QMenuBar* bar = new QMenuBar(m_window);
    bar->setObjectName(QStringLiteral("menubar"));
    m_window->setMenuBar(bar);
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
    for (const char* name : {"actionConnect", "actionLaunch", "actionAbort", "actionReset", "actionDFU",
                             "actionRefresh", "actionRename", "actionSyncOnSave"})
        board->addAction(a(name));
    QMenu* view = bar->addMenu(tr("View"));
    view->setObjectName(QStringLiteral("menuView"));
    view->addAction(a("actionPlotter"));
    view->addAction(a("actionShowOwnCommands"));
    QMenu* help = bar->addMenu(tr("Help"));
    help->setObjectName(QStringLiteral("menuHelp"));
    help->addAction(a("actionCheck_for_updates"));
    help->addAction(a("actionAbout_Qt"));
    help->addAction(a("actionAbout"));

    connectionToolBar = new QToolBar(tr("Connection"), m_window);
    connectionToolBar->setObjectName(QStringLiteral("a_connectionToolBar"));
    for (const char* name : {"actionConnect", "actionReset_MC", "actionMonitor_Only", "actionAutomatic_Reconnect"})
        connectionToolBar->addAction(a(name));
    m_window->addToolBar(Qt::TopToolBarArea, connectionToolBar);

    actionsToolBar = new QToolBar(tr("Actions"), m_window);
    actionsToolBar->setObjectName(QStringLiteral("b_actionsToolBar"));
    for (const char* name : {"actionUpload", "actionDownload", "actionNew_File", "actionEdit", "actionRemove",
                             "actionSync", "", "actionUpload_Package", "", "actionNew_Directory", "actionLaunch",
                             "actionAbort", "actionReset", "actionDFU"}) {
        if (*name)
            actionsToolBar->addAction(a(name));
        else
            actionsToolBar->addSeparator();
    }
    m_window->addToolBar(Qt::TopToolBarArea, actionsToolBar);

    auto* status = new QStatusBar(m_window);
    status->setObjectName(QStringLiteral("statusbar"));
    m_window->setStatusBar(status);
}

void WindowViews::createPanes()
{
    auto* central = new QWidget(m_window);
    central->setObjectName(QStringLiteral("centralwidget"));
    auto* vertical = new QVBoxLayout(central);
    vertical->setObjectName(QStringLiteral("verticalLayout_2"));

    fileSystemGroup = new QGroupBox(tr("File System"), central);
    fileSystemGroup->setObjectName(QStringLiteral("fileSystemGroup"));
    auto* grid = new QGridLayout(fileSystemGroup);
    grid->setObjectName(QStringLiteral("gridLayout"));
    auto* folderRow = new QHBoxLayout();
    folderRow->setObjectName(QStringLiteral("horizontalLayout_2"));
    pcFolderSelTool = new QToolButton(fileSystemGroup);
    pcFolderSelTool->setObjectName(QStringLiteral("pcFolderSelTool"));
    pcFolderSelTool->setText(QStringLiteral("..."));
    pcFolderSelTool->setToolTip(tr("<html><head/><body><p>Select a directory (PC)</p></body></html>"));
    pcFolderSelTool->setIcon(materialIcon(QStringLiteral("folder_open")));
    pcFolderUpTool = new QToolButton(fileSystemGroup);
    pcFolderUpTool->setObjectName(QStringLiteral("pcFolderUpTool"));
    pcFolderUpTool->setText(QStringLiteral("..."));
    pcFolderUpTool->setToolTip(tr("<html><head/><body><p>Goto parent directory (PC)</p></body></html>"));
    pcFolderUpTool->setIcon(materialIcon(QStringLiteral("arrow_upward")));
    pcFolderEdit = new QLineEdit(fileSystemGroup);
    pcFolderEdit->setObjectName(QStringLiteral("pcFolderEdit"));
    folderRow->addWidget(pcFolderSelTool);
    folderRow->addWidget(pcFolderUpTool);
    folderRow->addWidget(pcFolderEdit, 1);
    // The listed board folder, at the right end of the row above the board pane.
    mcFolderLabel = new QLabel(fileSystemGroup);
    mcFolderLabel->setObjectName(QStringLiteral("mcFolderLabel"));
    mcFolderLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    folderRow->addWidget(mcFolderLabel, 1);
    grid->addLayout(folderRow, 0, 0, 1, 2);
    pcFileList = new QTreeView(fileSystemGroup);
    pcFileList->setObjectName(QStringLiteral("pcFileList"));
    pcFileList->setSortingEnabled(true);
    pcFileList->sortByColumn(0, Qt::AscendingOrder);
    pcFileList->setContextMenuPolicy(Qt::CustomContextMenu);
    mcFileList = new QTableView(fileSystemGroup);
    mcFileList->setObjectName(QStringLiteral("mcFileList"));
    mcFileList->verticalHeader()->hide();
    mcFileList->setShowGrid(false);
    mcFileList->setContextMenuPolicy(Qt::CustomContextMenu);
    grid->addWidget(pcFileList, 1, 0);
    grid->addWidget(mcFileList, 1, 1);
    vertical->addWidget(fileSystemGroup, 3);
    fileSystemGroup->setEnabled(false);

    createLogTabs(central);
    vertical->addWidget(logTabs, 2);

    progress = new QProgressBar(central);
    progress->setObjectName(QStringLiteral("progressBar"));
    progress->hide();
    progress->setFormat(tr("%p% (%v of %m bytes)"));
    // A Cancel button beside the progress bar, shown with it.
    auto* progressRow = new QHBoxLayout();
    progressRow->addWidget(progress);
    cancelButton = new QToolButton(central);
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    cancelButton->setDefaultAction(action("actionCancel"));
    cancelButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    cancelButton->hide();
    progressRow->addWidget(cancelButton);
    vertical->addLayout(progressRow);
    m_window->setCentralWidget(central);
}

void WindowViews::createLogTabs(QWidget* central)
{
    logTabs = new QTabWidget(central);
    logTabs->setObjectName(QStringLiteral("logTabWidget"));
    logTabs->setTabPosition(QTabWidget::West);
    auto* terminalTab = new QWidget();
    terminalTab->setObjectName(QStringLiteral("logRuntimeTab"));
    auto* terminalLayout = new QVBoxLayout(terminalTab);
    terminalLayout->setObjectName(QStringLiteral("verticalLayout_3"));
    terminal = new QTextBrowser(terminalTab);
    terminal->setObjectName(QStringLiteral("runtimeLogBrowser"));
    terminalLayout->addWidget(terminal);
    replLine = new ReplLine(terminalTab);
    replLine->setEnabled(false);
    terminalLayout->addWidget(replLine);
    auto* logTab = new QWidget();
    logTab->setObjectName(QStringLiteral("logAppTab"));
    auto* logLayout = new QVBoxLayout(logTab);
    logLayout->setObjectName(QStringLiteral("verticalLayout"));
    log = new QTextBrowser(logTab);
    log->setObjectName(QStringLiteral("logBrowser"));
    logLayout->addWidget(log);
    plotter = new PlotterView();
    logTabs->addTab(terminalTab, tr("Terminal"));
    logTabs->addTab(logTab, tr("Syslog"));
    logTabs->addTab(plotter, tr("Plotter"));
    logTabs->setCurrentIndex(0);
}

void WindowViews::createContextMenus()
{
    pcMenu = new QMenu(m_window);
    pcMenu->addAction(materialIcon(QStringLiteral("build")), tr("Run on the MC"))->setData(0);
    pcMenu->addAction(materialIcon(QStringLiteral("send")), tr("Upload"))->setData(1);
    pcMenu->addAction(materialIcon(QStringLiteral("swap_horizontal_circle")), tr("Synchronize"))->setData(2);
    mcMenu = new QMenu(m_window);
    mcMenu->addAction(materialIcon(QStringLiteral("edit")), tr("Edit"))->setData(0);
    mcMenu->addAction(materialIcon(QStringLiteral("save")), tr("Download"))->setData(1);
    mcMenu->addAction(materialIcon(QStringLiteral("delete")), tr("Remove"))->setData(2);
    // Rename runs through its own action; its data keeps the window's switch out of it.
    action("actionRename")->setData(3);
    mcMenu->addAction(action("actionRename"));
}

QString WindowViews::aboutText()
{
    const QString year = QString::number(QDate::currentDate().year());
    return tr("Pelkam Board Toolkit v%1").arg(QStringLiteral(PELKAM_VERSION)) + QStringLiteral("<br>") +
           tr("Developed by: Tarvel") + QStringLiteral("<br>") +
           tr("Copyright %1 Tarvel. All rights reserved.").arg(year) + QStringLiteral("<br>") +
           QStringLiteral("<a href=\"%1\">%1</a><br><br>").arg(kSupportUrl) + tr("3rd party software:") +
           QStringLiteral("<ul>"
                          "<li><a href=\"https://github.com/google/material-design-icons\">Material design "
                          "icons</a> (Apache License 2.0)</li>"
                          "<li><a href=\"https://github.com/Megaxela/QCodeEditor\">QCodeEditor</a> (MIT License)</li>"
                          "<li><a href=\"https://github.com/rxi/microtar\">microtar</a> (MIT License)</li>"
                          "<li><a href=\"https://qwt.sourceforge.io\">Qwt</a> (Qwt License 1.0)</li>"
                          "</ul>");
}

void WindowViews::fitToScreen(QMainWindow* window)
{
    const QScreen* screen = window->screen() ? window->screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    const QSize size(area.width() * kScreenShare / 100, area.height() * kScreenShare / 100);
    window->resize(size.expandedTo(window->minimumSizeHint()));
    window->move(area.center() - window->rect().center());
}

QFileSystemModel* WindowViews::attachPcModel(QObject* owner)
{
    auto* model = new QFileSystemModel(owner);
    model->setReadOnly(true);
    pcFileList->setModel(model);
    pcFileList->setItemDelegate(new LocalisedFileDelegate(pcFileList));
    pcFileList->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    QTreeView* view = pcFileList;
    // Size, kind and date are read in the background: size them once they are there.
    QObject::connect(model, &QFileSystemModel::directoryLoaded, view, [view] {
        for (int column = 1; column < view->model()->columnCount(); ++column)
            view->resizeColumnToContents(column);
    });
    return model;
}

void WindowViews::setFileActionsEnabled(bool on)
{
    for (const char* name :
         {"actionUpload", "actionDownload", "actionNew_File", "actionNew_Directory", "actionEdit", "actionRemove",
          "actionSync", "actionUpload_Package", "actionLaunch", "actionRefresh", "actionRename"})
        if (auto* action = m_window->findChild<QAction*>(QString::fromLatin1(name)))
            action->setEnabled(on);
}

void WindowViews::hintActionsOff(QMainWindow* window)
{
    window->statusBar()->showMessage(
        tr("The operation failed, so the file actions stay off: Abort (Ctrl+X) brings the board back to its prompt "
           "(Preferences can keep them on)"));
}

void WindowViews::showWaiting(const QString& port)
{
    m_window->statusBar()->showMessage(port.isEmpty() ? QString() : tr("Waiting for %1").arg(port));
}
