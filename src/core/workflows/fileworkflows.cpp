#include "fileworkflows.h"

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"
#include "packages/packageinstaller.h"
#include "prompter.h"
#include "sync/synchronizer.h"

#include <QDir>
#include <QFileInfo>

FileWorkflows::FileWorkflows(BoardFiles& files, PackageInstaller& packages, Synchronizer& sync, QObject* parent)
    : QObject(parent), m_files(files), m_packages(packages), m_sync(sync)
{
}

QString FileWorkflows::mcDir() const
{
    const MCDirModel* model = m_files.model();
    return model ? model->dirPath() : QStringLiteral("/");
}

MCDirModel* FileWorkflows::idleModel(const QModelIndex& index) const
{
    return m_files.busy() || !index.isValid() ? nullptr : m_files.model();
}

void FileWorkflows::refresh()
{
    m_files.updateMcDir(mcDir());
}

void FileWorkflows::pcFileActivated(const QFileInfo& file)
{
    if (m_files.busy() || !m_prompter)
        return;
    const QString suffix = file.suffix();
    const bool upack = suffix.compare(QLatin1String("upack"), Qt::CaseInsensitive) == 0;
    if (upack || suffix.compare(QLatin1String("ufw"), Qt::CaseInsensitive) == 0) {
        switch (m_prompter->question(tr("Upload File"),
                                     tr("This is an update package. Do you want to unpack it and upload its contents?"),
                                     Prompter::YesNoCancel, Prompter::Yes)) {
        case Prompter::Yes:
            if (upack)
                m_packages.package_upload_core(file.absoluteFilePath());
            else
                m_packages.ufw_upload_core(file.absoluteFilePath());
            return;
        case Prompter::No:
            break;
        default:
            return;
        }
    }
    if (suffix.compare(QLatin1String("py"), Qt::CaseInsensitive) == 0 &&
        m_files.options().suggestExecute) {
        switch (m_prompter->question(tr("Upload File"), tr("Execute this file on the MC instead of uploading?"),
                                     Prompter::YesNoCancel, Prompter::No)) {
        case Prompter::Yes:
            m_files.execute_script(file.absoluteFilePath());
            return;
        case Prompter::No:
            break;
        default:
            return;
        }
    }
    local_file_upload(file);
}

bool FileWorkflows::local_file_upload(const QFileInfo& file)
{
    if (m_files.busy())
        return false;
    const QDir root(m_pcRoot);
    const QString rel = root.relativeFilePath(file.absoluteFilePath());
    const QString name = file.fileName();
    const QString dir = mcDir();
    QString target;
    switch (m_files.options().subDirsSel) {
    case 0:
        target = rel;
        break;
    case 1:
        target = name;
        break;
    default:
        if (file.absolutePath() == root.absolutePath()) {
            target = name;
            break;
        }
        if (!m_prompter)
            return false;
        switch (m_prompter->details(
            tr("Upload File"), tr("Keep the subdirectory structure?"), tr("File's relative path is %1").arg(rel),
            tr("If you choose to keep the directory structure, the file will be uploaded to\n%1\n\nIf not, it will "
               "be uploaded to\n%2")
                .arg(dir + rel, dir + name))) {
        case Prompter::Yes:
            target = rel;
            break;
        case Prompter::No:
            target = name;
            break;
        default:
            return false;
        }
    }
    if (target.isEmpty())
        return false;
    target.prepend(dir).replace(QLatin1Char('\\'), QLatin1Char('/'));
    const BoardBusy hold(m_files);
    if (!m_files.mc_mkdir(target.left(target.lastIndexOf(QLatin1Char('/')))))
        return false;
    if (!m_files.upload(file.absoluteFilePath(), target))
        return false;
    refresh();
    return true;
}

bool FileWorkflows::syncFile(const QString& absolutePath)
{
    if (m_files.busy())
        return false;
    return m_sync.sync_core(m_pcRoot, {QDir(m_pcRoot).relativeFilePath(absolutePath)}, true);
}

FileWorkflows::McActivation FileWorkflows::mcEntryActivated(const QModelIndex& index, const QModelIndex& current)
{
    MCDirModel* model = idleModel(index);
    if (!model)
        return Ignored;
    if (model->isDir(index)) {
        const QString name = model->path(index);
        if (name != QLatin1String("..")) {
            m_files.updateMcDir(model->fullPath(index));
            return Navigated;
        }
        QString dir = model->dirPath();
        if (dir.isEmpty() || dir == QLatin1String("/"))
            return Ignored;
        dir.chop(1);
        dir = dir.left(dir.lastIndexOf(QLatin1Char('/')));
        model->setDirPath(dir);
        m_files.updateMcDir(model->dirPath());
        return Navigated;
    }
    if (m_files.options().clickAction == QLatin1String("download")) {
        if (current.isValid() && !model->isDir(current)) {
            action_download_core(current);
            return Downloaded;
        }
        return Ignored;
    }
    return EditRequested;
}

bool FileWorkflows::action_download_core(const QModelIndex& index)
{
    MCDirModel* model = idleModel(index);
    if (!model)
        return false;
    const QString name = model->path(index);
    const QString local = m_pcRoot + QLatin1Char('/') + name;
    if (QFileInfo::exists(local) &&
        (!m_prompter || m_prompter->question(tr("Download file"), tr("File %1 exists. Overwrite?").arg(local),
                                             Prompter::YesNo, Prompter::NoButton) != Prompter::Yes))
        return false;
    return m_files.downloadReplacing(mcDir() + name, local);
}

bool FileWorkflows::removeEntry(const QModelIndex& index)
{
    MCDirModel* model = idleModel(index);
    if (!model)
        return false;
    // No confirmation: the reminder is logged and the board's removal decides.
    if (model->isDir(index))
        log(tr("Directory %1 must be empty in order to be removed").arg(model->path(index)));
    return action_remove_core(index);
}

bool FileWorkflows::action_remove_core(const QModelIndex& index)
{
    MCDirModel* model = idleModel(index);
    if (!model)
        return false;
    const BoardBusy hold(m_files);
    if (!m_files.remove(model->fullPath(index), model->isDir(index)))
        return false;
    refresh();
    return true;
}

bool FileWorkflows::renameEntry(const QModelIndex& index)
{
    MCDirModel* model = idleModel(index);
    if (!model || !m_prompter || model->path(index) == QLatin1String(".."))
        return false;
    const QString old = model->path(index);
    const QString name = m_prompter->text(tr("Rename"), tr("New name of %1").arg(old));
    if (name.isEmpty() || name == old)
        return false;
    // Refused before anything is sent: the name goes into a Python call.
    if (name.contains(QLatin1Char('/')) || !BoardFiles::forbiddenIn(name).isEmpty()) {
        m_prompter->warning(tr("Rename"), tr("The name %1 cannot be used on the board").arg(name));
        return false;
    }
    if (model->exists(name, true) || model->exists(name, false)) {
        m_prompter->warning(tr("Rename"), tr("%1 already exists").arg(name));
        return false;
    }
    const BoardBusy hold(m_files);
    const bool renamed = m_files.mc_rename(model->fullPath(index), mcDir() + name);
    refresh();
    return renamed;
}

bool FileWorkflows::newDirectory()
{
    MCDirModel* model = m_files.model();
    if (m_files.busy() || !model || !m_prompter)
        return false;
    const QString name = m_prompter->text(tr("New Directory"), tr("Name"));
    if (name.isEmpty())
        return false;
    if (model->dirExists(name)) {
        m_prompter->warning(tr("New Directory"), tr("A directory with the same name already exists"));
        return false;
    }
    const BoardBusy hold(m_files);
    if (!m_files.mc_mkdir(name)) {
        log(tr("MC directory creation failure"));
        return false;
    }
    refresh();
    return true;
}
