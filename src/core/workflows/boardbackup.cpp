#include "boardbackup.h"

#include "board/boardfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>


BoardBackup::BoardBackup(BoardFiles& files, QObject* parent) : QObject(parent), m_files(files) {}

bool BoardBackup::isUnsafeName(const QString& name)
{
    return name.isEmpty() || name == QLatin1String(".") || name == QLatin1String("..") ||
           name.contains(QLatin1Char('/')) || name.contains(QChar(0)) ||
           name.contains(QChar(QChar::ReplacementCharacter));
}

bool BoardBackup::walk(const QString& boardDir, const QString& relative, const QString& localDir, QList<Entry>* files)
{
    const QString dir = relative.isEmpty() ? boardDir : boardDir + QLatin1Char('/') + relative;
    if (!QDir().mkpath(localDir + QLatin1Char('/') + relative)) {
        log(tr("Cannot create the folder %1").arg(localDir + QLatin1Char('/') + relative));
        return false;
    }
    const auto child = [&relative](const QString& name) {
        return relative.isEmpty() ? name : relative + QLatin1Char('/') + name;
    };
    // A listing that did not come whole would leave files out unnoticed.
    QJsonArray folders;
    QJsonArray plain;
    if (!m_files.listWhole(dir, &folders, &plain)) {
        if (m_files.link().isOpen())
            log(tr("The board did not list %1").arg(dir));
        return false;
    }
    for (const QJsonValue& value : plain) {
        const QJsonObject o = value.toObject();
        const QString name = o.value(QStringLiteral("n")).toString();
        if (isUnsafeName(name)) {
            log(tr("Skipping %1 in %2: the name is not safe on the PC").arg(name, dir));
            m_complete = false;
            continue;
        }
        files->append({child(name), static_cast<qint64>(o.value(QStringLiteral("s")).toDouble(-1))});
    }
    for (const QJsonValue& value : folders) {
        const QString name = value.toObject().value(QStringLiteral("n")).toString();
        if (isUnsafeName(name)) {
            log(tr("Skipping folder %1 in %2: the name is not safe on the PC").arg(name, dir));
            m_complete = false;
            continue;
        }
        if (!walk(boardDir, child(name), localDir, files))
            return false;
    }
    return true;
}

bool BoardBackup::fetch(const QString& boardPath, const QString& localPath)
{
    // One retry: a single corrupted block should not cost the file. A local
    // write that failed (a full disk) is not retried.
    for (int attempt = 0; attempt < 2 && m_files.link().isOpen(); ++attempt) {
        if (m_files.cancelRequested())
            break;
        if (attempt > 0)
            log(tr("Retrying %1").arg(boardPath));
        if (m_files.downloadReplacing(boardPath, localPath))
            return true;
        if (m_files.lastLocalWriteFailed())
            break;
    }
    return false;
}

bool BoardBackup::run(const QString& boardDirectory, const QString& localDir)
{
    const BoardBusy hold(m_files);
    QString boardDir = boardDirectory;
    while (boardDir.size() > 1 && boardDir.endsWith(QLatin1Char('/')))
        boardDir.chop(1);
    m_saved = 0;
    m_bytes = 0;
    m_complete = true;
    if (!m_files.mc_direxists(boardDir)) {
        log(tr("No such board folder: %1").arg(boardDir));
        return false;
    }
    QList<Entry> files;
    if (!walk(boardDir, QString(), localDir, &files)) {
        log(tr("Backup aborted: the board folder could not be listed"));
        return false;
    }
    m_total = files.size();
    emit progress(0, m_total, 0);
    const QString prefix = boardDir == QLatin1String("/") ? boardDir : boardDir + QLatin1Char('/');
    for (const Entry& entry : qAsConst(files)) {
        if (m_files.cancelRequested())
            return false;
        if (!m_files.link().isOpen()) {
            log(tr("Backup aborted: the MC is disconnected"));
            return false;
        }
        const QString local = localDir + QLatin1Char('/') + entry.relative;
        if (fetch(prefix + entry.relative, local)) {
            ++m_saved;
            m_bytes += QFileInfo(local).size();
            emit fileSaved(entry.relative);
        } else {
            m_complete = false;
            log(tr("Not saved: %1").arg(entry.relative));
        }
        emit progress(m_saved, m_total, m_bytes);
    }
    if (!m_files.link().isOpen()) {
        log(tr("Backup aborted: the MC is disconnected"));
        return false;
    }
    log(tr("Backed up %1 of %2 files (%3 bytes) from %4 to %5")
            .arg(m_saved)
            .arg(m_total)
            .arg(m_bytes)
            .arg(boardDir, localDir));
    return m_complete && m_saved == m_total;
}
