#include "remoteedit.h"

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"
#include "codeeditordialog.h"
#include "prompter.h"

#include <QBuffer>
#include <QTemporaryFile>

RemoteEdit::RemoteEdit(BoardFiles& files, QWidget* window) : QObject(window), m_files(files), m_window(window) {}

RemoteEdit::~RemoteEdit() = default;

bool RemoteEdit::createTemporary()
{
    m_temp = new QTemporaryFile(this);
    if (m_temp->open())
        return true;
    emit logLine(tr("Cannot create temporary file at %1").arg(m_temp->fileName()));
    m_temp->deleteLater();
    m_temp = nullptr;
    return false;
}

void RemoteEdit::dropTemporary()
{
    if (!m_temp)
        return;
    m_temp->close();
    m_temp->deleteLater();
    m_temp = nullptr;
}

CodeEditor* RemoteEdit::openEditor(Qt::WindowFlags flags)
{
    auto* editor = new CodeEditor(m_window, flags);
    editor->setPrompter(m_prompter);
    // Queued: the upload waits in nested event loops, which must not run
    // while the dialog is still inside its own done().
    connect(editor, &QDialog::accepted, this, &RemoteEdit::codeeditor_accepted, Qt::QueuedConnection);
    connect(editor, &QDialog::rejected, this, &RemoteEdit::codeeditor_rejected, Qt::QueuedConnection);
    connect(editor, &CodeEditor::error, this, &RemoteEdit::logLine);
    editor->readSettings(QStringLiteral("Code"));
    editor->directory = m_pcRoot;
    m_editor = editor;
    return editor;
}

void RemoteEdit::newFile()
{
    MCDirModel* model = m_files.model();
    if (!model || !m_prompter)
        return;
    if (editing()) {
        m_prompter->warning(tr("New File"), tr("A file is already being edited"));
        return;
    }
    QString name = m_prompter->text(tr("New File"), tr("File name:"));
    if (name.isEmpty())
        return;
    name.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (name.contains(QLatin1Char('/'))) {
        m_prompter->warning(tr("New File"), tr("The file name is invalid"));
        return;
    }
    if (model->fileExists(name)) {
        m_prompter->warning(tr("New File"), tr("A file with the same name already exists"));
        return;
    }
    if (!createTemporary())
        return;
    m_path = model->dirPath() + name;
    CodeEditor* editor = openEditor(Qt::Dialog | Qt::WindowStaysOnTopHint);
    editor->setWindowModality(Qt::ApplicationModal);
    editor->load(name, QByteArray());
    editor->show();
}

void RemoteEdit::edit(const QModelIndex& current)
{
    MCDirModel* model = m_files.model();
    if (!model || !m_prompter)
        return;
    if (!current.isValid() || model->isDir(current)) {
        m_prompter->warning(tr("Edit"), tr("Select a MC file to edit"));
        return;
    }
    action_edit_core(current);
}

void RemoteEdit::action_edit_core(const QModelIndex& index)
{
    MCDirModel* model = m_files.model();
    if (!model || !index.isValid())
        return;
    if (editing()) {
        if (m_prompter)
            m_prompter->warning(tr("Edit"), tr("A file is already being edited"));
        return;
    }
    const QString name = model->path(index);
    m_path = model->dirPath() + name;
    if (!createTemporary())
        return;
    // On failure the temporary file stays: New File and Edit keep refusing
    // until the connection closes (the program's own behaviour).
    if (!m_files.download(m_path, m_temp) || !m_files.lastDownloadOk())
        return;
    m_temp->seek(0);
    CodeEditor* editor = openEditor(Qt::Dialog);
    editor->load(name, m_temp->readAll());
    editor->show();
}

void RemoteEdit::offerLocalSave(CodeEditor* editor)
{
    if (m_prompter && m_prompter->question(tr("Edit"), tr("The file cannot be uploaded. Save it?"), Prompter::YesNo,
                                           Prompter::Yes) == Prompter::Yes)
        editor->on_saveButton_clicked();
}

void RemoteEdit::refresh()
{
    if (m_files.link().isOpen() && m_files.model())
        m_files.updateMcDir(m_files.model()->dirPath());
}

void RemoteEdit::codeeditor_accepted()
{
    auto* editor = qobject_cast<CodeEditor*>(sender());
    if (!editor)
        editor = m_editor;
    if (!editor)
        return;
    if (m_files.busy()) {
        // Another board operation owns the line: keep the text on screen.
        if (m_prompter)
            m_prompter->warning(tr("Edit"), tr("Another MC operation is running. Upload again when it has finished"));
        editor->show();
        return;
    }
    if (m_temp && m_temp->isOpen()) {
        dropTemporary();
        QBuffer buffer;
        buffer.setData(editor->text());
        buffer.open(QIODevice::ReadOnly);
        if (!m_files.upload(&buffer, m_path))
            offerLocalSave(editor);
        editor->deleteLater();
        refresh();
        emit editFinished();
        return;
    }
    offerLocalSave(editor);
    editor->deleteLater();
    dropTemporary();
    emit editFinished();
}

void RemoteEdit::codeeditor_rejected()
{
    if (auto* editor = qobject_cast<CodeEditor*>(sender()))
        editor->deleteLater();
    else if (m_editor)
        m_editor->deleteLater();
    dropTemporary();
    emit editFinished();
}

void RemoteEdit::connectionClosed()
{
    dropTemporary();
}
