#pragma once

#include <QCoreApplication>
#include <QString>

class QFileSystemModel;
class QModelIndex;

class PlotterView;
class QAction;
class QGroupBox;
class QLabel;
class QLineEdit;
class QMainWindow;
class QMenu;
class QProgressBar;
class QTabWidget;
class QTableView;
class QTextBrowser;
class QToolBar;
class QToolButton;
class QTreeView;
class ReplLine;

// The main window's widgets: its actions (found by object name), menus,
// toolbars, the two file panes, the Terminal, Syslog and Plotter tabs and the
// progress row. Built once into the window, which then wires them to the core.
class WindowViews {
    // The texts belong to the window, where its translations have always been.
    Q_DECLARE_TR_FUNCTIONS(PelkamWindow)
public:
    explicit WindowViews(QMainWindow* window);

    // The About box's text.
    static QString aboutText();
    // A first start (no stored geometry): a good share of the screen, centred.
    static void fitToScreen(QMainWindow* window);
    // The PC pane's read-only file model, its columns sized to what they show
    // each time a folder has been read.
    QFileSystemModel* attachPcModel(QObject* owner);
    // What the PC pane shows for a size or a date, in the interface's
    // language; a null string for the other columns.
    static QString pcColumnText(const QModelIndex& index);
    // The nine file actions, with Refresh and Rename.
    void setFileActionsEnabled(bool on);
    // After a failure that left the file actions off: how to go on.
    void hintActionsOff(QMainWindow* window);
    // "Waiting for PORT" in the status bar while BoardWaiter looks; cleared after.
    void showWaiting(const QString& port);

    QGroupBox* fileSystemGroup = nullptr;
    QLineEdit* pcFolderEdit = nullptr;
    QToolButton* pcFolderSelTool = nullptr;
    QToolButton* pcFolderUpTool = nullptr;
    QLabel* mcFolderLabel = nullptr;
    QTreeView* pcFileList = nullptr;
    QTableView* mcFileList = nullptr;
    QTabWidget* logTabs = nullptr;
    QTextBrowser* terminal = nullptr;
    ReplLine* replLine = nullptr;
    QTextBrowser* log = nullptr;
    PlotterView* plotter = nullptr;
    QProgressBar* progress = nullptr;
    QToolButton* cancelButton = nullptr;
    QToolBar* connectionToolBar = nullptr;
    QToolBar* actionsToolBar = nullptr;
    QMenu* pcMenu = nullptr;
    QMenu* mcMenu = nullptr;

private:
    QAction* makeAction(const char* name, const QString& text, const QString& tooltip, const QString& shortcut,
                        const QString& icon, bool checkable = false);
    QAction* action(const char* name) const;
    void createActions();
    void createPanes();
    void createLogTabs(QWidget* central);
    void createMenusAndToolbars();
    void createContextMenus();

    QMainWindow* m_window;
};
