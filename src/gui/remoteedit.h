#pragma once

#include <QModelIndex>
#include <QObject>
#include <QPointer>

class BoardFiles;
#include "codeeditordialog.h"
class Prompter;
class QTemporaryFile;
class QWidget;

// Editing one board file (or a new one) in the code editor: the file is
// downloaded into a temporary file, shown, and uploaded back on acceptance.
// One edit at a time; a failed download keeps the edit state until the
// connection closes (deliberately).
class RemoteEdit : public QObject {
    Q_OBJECT
public:
    RemoteEdit(BoardFiles& files, QWidget* window);
    ~RemoteEdit() override;

    void setPrompter(Prompter* prompter) { m_prompter = prompter; }
    // The PC folder that the editor's Save As starts in.
    void setPcRoot(const QString& path) { m_pcRoot = path; }
    bool editing() const { return m_temp != nullptr; }
    CodeEditor* editor() const { return m_editor; }

    void newFile();
    // The Edit action: the board pane's current entry.
    void edit(const QModelIndex& current);
    void action_edit_core(const QModelIndex& index);

public slots:
    void codeeditor_accepted();
    void codeeditor_rejected();
    // Ends any edit state (the editor, if shown, keeps its text).
    void connectionClosed();

signals:
    void logLine(const QString& text);
    // The editor was accepted (and its text uploaded or offered for saving) or rejected.
    void editFinished();

private:
    bool createTemporary();
    void dropTemporary();
    CodeEditor* openEditor(Qt::WindowFlags flags);
    void offerLocalSave(CodeEditor* editor);
    void refresh();

    BoardFiles& m_files;
    QWidget* m_window;
    Prompter* m_prompter = nullptr;
    QTemporaryFile* m_temp = nullptr;
    QPointer<CodeEditor> m_editor;
    QString m_path;
    QString m_pcRoot;
};
