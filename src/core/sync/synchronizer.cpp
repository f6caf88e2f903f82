#include "synchronizer.h"

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

namespace {
const QString kDefaultHashScript = QStringLiteral(":/data/hash.py");

QString folderOf(const QString& boardPath)
{
    return boardPath.left(boardPath.lastIndexOf(QLatin1Char('/')));
}

QByteArray digestOf(QFile& file, QCryptographicHash::Algorithm algorithm)
{
    QCryptographicHash hash(algorithm);
    file.seek(0);
    hash.addData(&file);
    return hash.result();
}
} // namespace

Synchronizer::Synchronizer(BoardFiles& files, QObject* parent) : QObject(parent), m_files(files) {}

QStringList Synchronizer::collectSyncFiles(const QString& root, const QString& sub, bool recursive,
                                           QStringList* skipped)
{
    const QDir dir(root + QLatin1Char('/') + sub);
    const auto relative = [&sub](const QString& name) { return sub.isEmpty() ? name : sub + QLatin1Char('/') + name; };
    const auto skip = [skipped](const QString& line) {
        if (skipped)
            *skipped << line;
    };
    QStringList files;
    if (recursive) {
        // Links to folders are never followed: "x -> ." would nest forever.
        const QStringList folders =
            dir.entryList({QStringLiteral("*")}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
        for (const QString& folder : folders) {
            if (QFileInfo(dir.filePath(folder)).isSymLink())
                skip(tr("Skipping %1 - a link to a folder is not followed").arg(relative(folder)));
            else
                files += collectSyncFiles(root, relative(folder), recursive, skipped);
        }
    }
    const QString inside = QFileInfo(root).canonicalFilePath() + QLatin1Char('/');
    // System lists dangling links too; other special files (pipes, devices) stay out.
    for (const QString& name : dir.entryList({QStringLiteral("*")}, QDir::Files | QDir::System, QDir::Name)) {
        const QFileInfo info(dir.filePath(name));
        if (!info.isSymLink()) {
            if (info.isFile())
                files << relative(name);
            continue;
        }
        const QString target = info.canonicalFilePath();
        if (target.isEmpty())
            skip(tr("Skipping %1 - the link leads nowhere").arg(relative(name)));
        else if (!target.startsWith(inside))
            skip(tr("Skipping %1 - the link leads out of the folder").arg(relative(name)));
        else if (QFileInfo(target).isFile())
            files << relative(name);
    }
    return files;
}

QStringList Synchronizer::refusedNames(const QStringList& files, const QString& destination)
{
    QStringList refusals;
    for (const QString& f : files) {
        const QString refusal = BoardFiles::forbiddenIn(destination + f);
        if (!refusal.isEmpty())
            refusals << refusal;
    }
    return refusals;
}

QString Synchronizer::sourceProblem(const QString& root)
{
    const QFileInfo info(root);
    if (!info.isDir())
        return tr("%1 is missing").arg(root);
    if (!info.isReadable() || !info.isExecutable())
        return tr("%1 cannot be read").arg(root);
    if (QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot).isEmpty())
        return tr("%1 is empty").arg(root);
    return QString();
}

QString Synchronizer::abortText() const
{
    return m_files.link().isOpen() ? tr("Synchronization aborted - file upload failure")
                                   : tr("Synchronization aborted: the MC is disconnected");
}

bool Synchronizer::sync_core(const QString& source, const QStringList& files, bool missing)
{
    MCDirModel* model = m_files.model();
    Options options;
    options.missing = missing;
    return synchronize(source, model ? model->dirPath() : QStringLiteral("/"), files, options);
}

bool Synchronizer::synchronize(const QString& source, const QString& destination, const QStringList& allFiles,
                               const Options& options)
{
    const BoardBusy hold(m_files);
    const QStringList files = options.ignore.filtered(allFiles);
    QString script = m_files.options().text(QStringLiteral("Scripts/Hash"), kDefaultHashScript);
    if (script.isEmpty())
        script = kDefaultHashScript;
    const auto hashFailed = [this] {
        log(m_files.link().isOpen() ? tr("Syncronization aborted: hash computation failure")
                                    : tr("Synchronization aborted: the MC is disconnected"));
        return false;
    };
    // Fast transfers ask for every digest in a few calls.
    const bool batch = m_files.fastTransfers();
    QHash<QString, QByteArray> digests;
    if (batch) {
        QStringList paths;
        for (const QString& f : files)
            paths << destination + f;
        digests = m_files.mc_file_hashes(paths, script);
        if (digests.isEmpty() && !paths.isEmpty())
            return hashFailed();
    } else if (!m_files.upload_script(script) || !m_files.link().to_repl()) {
        log(tr("Synchronization failed"));
        return false;
    }

    // The board hashes with MD5 when it can; one that cannot answers SHA1,
    // which the first identical file reveals.
    QCryptographicHash::Algorithm algorithm = QCryptographicHash::Md5;
    bool switched = false;
    QStringList uploads;
    QSet<QString> created; // board folders known to exist
    for (const QString& f : files) {
        if (m_files.cancelRequested())
            return false;
        const QByteArray reply = batch ? digests.value(destination + f) : m_files.mc_file_hash(destination + f);
        if (reply.isEmpty())
            return hashFailed();
        if (reply.startsWith("err")) {
            if (options.missing)
                uploads << f;
            else
                log(tr("Skipping %1 - destination file is missing").arg(f));
            continue;
        }
        created << folderOf(destination + f); // a file answered: its folder exists
        QFile local(source + QLatin1Char('/') + f);
        if (!local.open(QIODevice::ReadOnly)) {
            log(tr("Skipping %1 - file is not readable").arg(f));
            continue;
        }
        const QByteArray board = QByteArray::fromHex(reply);
        if (digestOf(local, algorithm) == board) {
            log(tr("Skipping %1 - files are identical").arg(f));
        } else if (switched) {
            uploads << f;
        } else if (digestOf(local, QCryptographicHash::Sha1) == board) {
            algorithm = QCryptographicHash::Sha1;
            switched = true;
            log(tr("MC does not support MD5 computation - switched to SHA1"));
            log(tr("Skipping %1 - files are identical").arg(f));
        } else {
            uploads << f;
        }
    }

    m_problem.clear();
    for (const QString& f : qAsConst(uploads)) {
        if (options.dryRun) {
            // Say now what the sync itself will stop at: a board folder it may not create.
            const QString folder = folderOf(destination + f);
            if (!options.createDirs && !folder.isEmpty() && !created.contains(folder)) {
                if (!m_files.mc_direxists(folder)) {
                    const QString shown = folder.size() > destination.size() ? folder.mid(destination.size()) : folder;
                    m_problem = tr("%1/ is missing on the board: the sync stops there (tick Create missing folders)")
                                    .arg(shown);
                    log(m_problem);
                    return false;
                }
                created.insert(folder);
            }
            emit fileUploaded(f);
            continue;
        }
        const QString target = destination + f;
        const QString folder = folderOf(target);
        if (options.createDirs && !created.contains(folder)) {
            if (!m_files.mc_mkdir(folder)) {
                log(abortText());
                return false;
            }
            created.insert(folder);
        }
        if (m_files.cancelRequested() || !m_files.upload(source + QLatin1Char('/') + f, target)) {
            if (!m_files.cancelRequested())
                log(abortText());
            return false;
        }
        emit fileUploaded(f);
    }
    if (options.deleteExtra && !pruneAll(source, destination, options)) {
        if (!m_files.cancelRequested())
            log(m_files.link().isOpen() ? tr("Synchronization aborted - delete pass failure") : abortText());
        return false;
    }
    // A dry run changed nothing: no success line for it.
    if (!options.dryRun)
        log(tr("Synchronized files from folders %1/ and %2").arg(source, destination));
    return true;
}

Synchronizer::Plan Synchronizer::preview(const QString& source, const QString& destination, const QStringList& files,
                                         Options options)
{
    options.dryRun = true;
    Plan plan;
    const QMetaObject::Connection uploads =
        connect(this, &Synchronizer::fileUploaded, [&plan](const QString& f) { plan.uploads << f; });
    const QMetaObject::Connection deletions =
        connect(this, &Synchronizer::fileDeleted, [&plan](const QString& f) { plan.deletions << f; });
    plan.complete = synchronize(source, destination, files, options);
    plan.problem = plan.complete ? QString() : m_problem;
    disconnect(uploads);
    disconnect(deletions);
    return plan;
}

bool Synchronizer::pruneAll(const QString& source, const QString& destination, const Options& options)
{
    // Deletions are decided from a complete view of the PC side: a folder
    // that vanished, cannot be read or is empty is no reason to empty the board.
    QString problem = sourceProblem(source);
    if (problem.isEmpty() && !options.ignore.problems().isEmpty())
        problem = tr("%1 has lines that are not valid").arg(IgnoreRules::kFileName);
    if (!problem.isEmpty()) {
        log(tr("Nothing deleted: %1").arg(problem));
        return false;
    }
    // A destination a dry run would create holds nothing to delete.
    const bool exists = m_files.mc_direxists(destination);
    bool known = true;
    m_mounts = exists ? m_files.mc_mounts(&known) : QStringList();
    // Without the mounts, a delete pass could walk into another file system (/sd).
    if (!known) {
        if (m_files.link().isOpen())
            log(tr("Nothing deleted: the board did not say which file systems it mounts"));
        return false;
    }
    bool emptied = false;
    return m_files.link().isOpen() && (!exists || prune(source, destination, QString(), options, &emptied));
}

bool Synchronizer::prune(const QString& source, const QString& destination, const QString& relative,
                         const Options& options, bool* emptied)
{
    const QString dir = destination + relative;
    *emptied = true;
    // What the PC holds here must be known for sure before anything goes.
    const QFileInfo local(source + QLatin1Char('/') + relative);
    if (!relative.isEmpty() && local.exists() && (local.isSymLink() || !local.isReadable() || !local.isExecutable())) {
        log(tr("Skipping %1 - its PC folder cannot be read or is a link").arg(dir));
        *emptied = false;
        return true;
    }
    QJsonArray folders;
    QJsonArray plain;
    if (!m_files.listWhole(dir, &folders, &plain)) {
        // An empty answer would make the folder look empty, and removable.
        if (m_files.link().isOpen())
            log(tr("Nothing more deleted: the board did not list %1").arg(dir));
        return false;
    }
    const auto remove = [&](const QString& rel, bool isDir) {
        if (m_files.cancelRequested())
            return false;
        if (!options.dryRun && !m_files.remove(destination + rel, isDir))
            return false;
        emit fileDeleted(destination + rel);
        return true;
    };
    for (const QJsonValue& value : plain) {
        const QString rel = relative + value.toObject().value(QStringLiteral("n")).toString();
        const QFileInfo onPc(source + QLatin1Char('/') + rel);
        // A link of any kind on the PC keeps its board namesake.
        if (options.ignore.ignored(rel, false) || onPc.isFile() || onPc.isSymLink()) {
            *emptied = false;
            continue;
        }
        if (!remove(rel, false))
            return false;
    }
    for (const QJsonValue& value : folders) {
        const QString rel = relative + value.toObject().value(QStringLiteral("n")).toString();
        const QFileInfo onPc(source + QLatin1Char('/') + rel);
        // Without recursion only the folder's own files are compared; another
        // file system mounted below the target is never entered.
        if (!options.recursive || options.ignore.ignored(rel, true) || onPc.isSymLink() ||
            m_mounts.contains(QDir::cleanPath(destination + rel))) {
            *emptied = false;
            continue;
        }
        bool inner = false;
        if (!prune(source, destination, rel + QLatin1Char('/'), options, &inner))
            return false;
        if (onPc.isDir() || !inner) {
            *emptied = false;
            continue;
        }
        if (!remove(rel, true))
            return false;
    }
    return true;
}
