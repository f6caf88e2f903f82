#pragma once

#include <QModelIndex>
#include <QObject>

class BoardFiles;
class MCDirModel;
class PackageInstaller;
class Prompter;
class QFileInfo;
class Synchronizer;

// What a person does with the two file panes, without widgets: the window
// maps its panes' indexes and actions to these, and asks through the Prompter.
// Board paths are built from the listed board directory, which ends with "/".
class FileWorkflows : public QObject {
    Q_OBJECT
public:
    enum McActivation { Ignored, Navigated, Downloaded, EditRequested };

    FileWorkflows(BoardFiles& files, PackageInstaller& packages, Synchronizer& sync, QObject* parent = nullptr);
    void setPrompter(Prompter* prompter) { m_prompter = prompter; }
    // The PC pane's folder: relative upload paths and downloads start there.
    void setPcRoot(const QString& path) { m_pcRoot = path; }

    // A PC file double clicked: package and execute questions, then upload.
    void pcFileActivated(const QFileInfo& file);
    bool local_file_upload(const QFileInfo& file);
    // Synchronises the one file (missing files are uploaded).
    bool syncFile(const QString& absolutePath);

    // A board entry double clicked; index is the board pane's row.
    McActivation mcEntryActivated(const QModelIndex& index, const QModelIndex& current);
    bool action_download_core(const QModelIndex& index);
    // Logs the emptiness reminder for folders, then removes.
    bool removeEntry(const QModelIndex& index);
    bool action_remove_core(const QModelIndex& index);
    bool newDirectory();
    // Asks for the entry's new name and renames it on the board.
    bool renameEntry(const QModelIndex& index);

signals:
    void logLine(const QString& html);

private:
    QString mcDir() const;
    // The listing model when idle and the index is a row of it, else null.
    MCDirModel* idleModel(const QModelIndex& index) const;
    void refresh();
    void log(const QString& text) { emit logLine(text); }

    BoardFiles& m_files;
    PackageInstaller& m_packages;
    Synchronizer& m_sync;
    Prompter* m_prompter = nullptr;
    QString m_pcRoot;
};
