#pragma once

#include "board/mcdirmodel.h"
#include "link/boardlink.h"
#include "link/boardwaiter.h"
#include "link/mctypes.h"

#include <QMainWindow>
#include <QPointer>
#include <QSettings>

#include <memory>

class BoardFiles;
class FileWorkflows;
class PackageInstaller;
class Prompter;
class RemoteEdit;
class Synchronizer;
class SyncFlow;
class QAction;
class QFileSystemModel;
class QTextBrowser;
class TarvelUpdater;
class WindowViews;

// The main window: views, actions and menus. It owns the board link and the
// board operations and adapts their signals to the views.
class PelkamWindow : public QMainWindow {
    Q_OBJECT
public:
    enum TerminalColors {
        TC_None = 0,
        TC_Black = 30,
        TC_Red = 31,
        TC_Green = 32,
        TC_Yellow = 33,
        TC_Blue = 34,
        TC_Magenta = 35,
        TC_Cyan = 36,
        TC_White = 37,
    };

    explicit PelkamWindow(QWidget* parent = nullptr);
    ~PelkamWindow() override;

    void readSettings();
    void writeSettings();
    void setupLocalDir(const QString& path);
    void fileOpsEnable(bool on);

    void terminalAppend(const QString& text);
    void logAppend(const QString& text);
    // The echo of what Pelkam sent: to the Syslog while the View option is on.
    void ownCommandAppend(const QString& text);
    static QString& processTerminalData(QString& text);
    void saveLog(QTextBrowser* view, const QString& prefix);

    // Replaces the dialogs (tests answer from a script); the window keeps ownership.
    void setPrompter(std::unique_ptr<Prompter> prompter);
    Prompter& prompter() { return *m_prompter; }
    void setOfferedPort(const QString& path) { m_offeredPort = path; }
    // Marks an operation that closing the window would cut short.
    void setOperationInProgress(bool on) { m_operationInProgress = on; }

    BoardLink& link() { return m_link; }
    BoardFiles& files() { return *m_files; }
    PackageInstaller& packages() { return *m_packages; }
    FileWorkflows& workflows() { return *m_workflows; }
    RemoteEdit& remoteEdit() { return *m_remoteEdit; }
    MCDirModel& mcModel() { return m_mcModel; }
    QAction* action(const QString& objectName) const;

signals:
    void stateChanged(MC_STATE state);

public slots:
    void checkUpdate();
    void on_actionConnect_triggered();
    void on_actionAbort_triggered();
    void on_actionLaunch_triggered();
    void on_actionReset_triggered();
    void on_actionDFU_triggered();
    void on_actionAutomatic_Reconnect_toggled(bool on);
    void on_actionReset_MC_toggled(bool on);
    void on_actionAbout_triggered();
    void on_actionAbout_Qt_triggered();
    void on_actionSaveTerminal_triggered();
    void on_actionSaveSyslog_triggered();
    void on_actionClear_Terminal_triggered();
    void on_actionClear_Syslog_triggered();
    void on_pcFolderEdit_textChanged(const QString& text);
    void on_pcFolderSelTool_clicked();
    void on_pcFolderUpTool_clicked();
    void on_mcFileList_doubleClicked(const QModelIndex& index);
    void on_pcFileList_doubleClicked(const QModelIndex& index);
    void on_actionUpload_triggered();
    void on_actionDownload_triggered();
    void on_actionRemove_triggered();
    void on_actionNew_Directory_triggered();
    void on_actionSync_triggered();
    void on_actionRefresh_triggered();
    void on_actionRename_triggered();
    void on_actionCancel_triggered();
    void on_actionUpload_Package_triggered();
    void on_actionNew_File_triggered();
    void on_actionEdit_triggered();
    void on_actionPreferences_triggered();
    void pcFileListMenu(const QPoint& pos);
    void mcFileListMenu(const QPoint& pos);

    // Opens the link with the given settings, as the popup's apply does.
    bool connectTo(const BoardLink::PortSettings& settings);
    // Keeps or forgets a WebREPL password in the desktop's secret store.
    void rememberPassword(const QString& address, const QString& password, bool remember);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void wireLink();
    void onLinkStateChanged(MC_STATE state);
    QString timeStamp(const QString& color) const;
    void setFileActionsEnabled(bool on);
    // Runs a board workflow with the file actions disabled throughout; refuses
    // while another one waits. Afterwards the actions take the state the
    // transfers inside asked for last.
    template <typename Workflow> void runWorkflow(Workflow workflow);
    void updateReplLine();
    // Scrollback and board options, after the settings changed.
    void applySettings();

    QSettings m_settings;
    std::unique_ptr<WindowViews> m_views;
    QString m_accentColor;
    QString m_syslogColor;
    QPointer<QTextBrowser> m_terminal;
    bool m_cancelled = false;
    int m_scrollback = 0; // lines the Terminal and the Syslog keep, 0 = all
    QPointer<QTextBrowser> m_log;
    QFileSystemModel* m_pcModel = nullptr;
    MCDirModel m_mcModel;
    BoardLink m_link;
    BoardWaiter m_waiter{m_link};
    std::unique_ptr<BoardFiles> m_files;
    std::unique_ptr<PackageInstaller> m_packages;
    std::unique_ptr<Synchronizer> m_sync;
    std::unique_ptr<FileWorkflows> m_workflows;
    std::unique_ptr<SyncFlow> m_syncFlow;
    RemoteEdit* m_remoteEdit = nullptr;
    int m_workflowDepth = 0;
    bool m_opsAfterWorkflow = false;
    std::unique_ptr<TarvelUpdater> m_updater;
    std::unique_ptr<Prompter> m_prompter;
    QString m_offeredPort;
    bool m_operationInProgress = false;
};
