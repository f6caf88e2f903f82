#include "packageinstaller.h"

#include "board/boardfiles.h"
#include "board/mcdirmodel.h"
#include "paxglobal.h"
#include "prompter.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <quazip.h>
#include <quazipfile.h>
#include <quazipfileinfo.h>

namespace {
constexpr qint64 kZipReadStep = 64 * 1024;
constexpr int kEndRecordSize = 22; // ZIP end of central directory, without its comment

// minizip cannot open a ZIP without entries (its end record sits at offset 0),
// yet such an archive is a valid, empty package.
bool readEmptyZip(const QString& path, QString* comment)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() < kEndRecordSize || file.size() > kEndRecordSize + 0xFFFF)
        return false;
    const QByteArray data = file.readAll();
    const auto u16 = [&data](int at) {
        return static_cast<int>(static_cast<uchar>(data[at]) | static_cast<uchar>(data[at + 1]) << 8);
    };
    if (!data.startsWith(QByteArrayLiteral("PK\x05\x06")) || u16(10) != 0 || u16(20) != data.size() - kEndRecordSize)
        return false;
    *comment = QString::fromLocal8Bit(data.mid(kEndRecordSize));
    return true;
}
} // namespace

PackageInstaller::PackageInstaller(BoardFiles& files, QObject* parent) : QObject(parent), m_files(files) {}

PackageInstaller::~PackageInstaller()
{
    if (m_tar)
        mtar_close(m_tar.get());
}

bool PackageInstaller::isPackageName(const QString& path)
{
    return path.endsWith(QLatin1String(".upack"), Qt::CaseInsensitive) ||
           path.endsWith(QLatin1String(".ufw"), Qt::CaseInsensitive);
}

PackageInstaller::Result PackageInstaller::install(const QString& path)
{
    if (path.endsWith(QLatin1String(".upack"), Qt::CaseInsensitive))
        return package_upload_core(path);
    if (path.endsWith(QLatin1String(".ufw"), Qt::CaseInsensitive))
        return ufw_upload_core(path);
    log(tr("Unsupported package type"));
    return Failed;
}

bool PackageInstaller::refuseWhileBusy()
{
    if (!busy())
        return false;
    if (m_prompter)
        m_prompter->warning(tr("Package Upload"), tr("A package is being uploaded. Please wait"));
    return true;
}

bool PackageInstaller::entryTooLarge(const QString& name, quint64 size)
{
    if (size <= kMaxEntrySize)
        return false;
    log(tr("%1 is too large for a MicroPython board (%2 bytes). Abort").arg(name).arg(size));
    return true;
}

PackageInstaller::Result PackageInstaller::stop(Result result)
{
    if (m_zip)
        m_zip->close();
    m_zip.reset();
    if (m_tar)
        mtar_close(m_tar.get());
    m_tar.reset();
    if (result == Failed && !m_files.link().isOpen())
        log(tr("Package installation stopped: the MC is disconnected"));
    return result;
}

bool PackageInstaller::mkdir(const QString& path)
{
    return m_files.mc_mkdir(path);
}

bool PackageInstaller::uploadEntry(const QByteArray& data, const QString& target)
{
    if (m_files.cancelRequested() || !m_files.checkTarget(target))
        return false;
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    if (!m_files.upload(&buffer, target))
        return false;
    emit fileInstalled(target);
    return true;
}

void PackageInstaller::refresh()
{
    if (MCDirModel* model = m_files.model())
        m_files.updateMcDir(model->dirPath());
}

// ---- .upack ----

PackageInstaller::Result PackageInstaller::package_upload_core(const QString& path)
{
    if (refuseWhileBusy())
        return Busy;
    const BoardBusy hold(m_files);
    m_zip = std::make_unique<QuaZip>(path);
    if (!m_zip->open(QuaZip::mdUnzip)) {
        m_zip.reset();
        QString comment;
        if (readEmptyZip(path, &comment)) {
            log(tr("Loading upack for %1").arg(comment));
            log(tr("UPack uploaded!"));
            refresh();
            return Installed;
        }
        log(tr("Invalid package %1 - maybe not an upack?").arg(path));
        return Failed;
    }
    log(tr("Loading upack for %1").arg(m_zip->getComment()));

    const QStringList names = m_zip->getFileNameList();
    QSet<QString> dirs;
    for (const QString& name : names) {
        const int slash = name.lastIndexOf(QLatin1Char('/'));
        if (slash >= 0)
            dirs.insert(name.left(slash));
    }
    // Entries go to absolute board paths, so their folders are made absolute
    // too; relative ones would land under whatever folder the board is in.
    for (const QString& dir : qAsConst(dirs)) {
        if (!mkdir(dir.startsWith(QLatin1Char('/')) ? dir : QLatin1Char('/') + dir))
            return stop(Failed);
    }

    for (const QString& name : names) {
        if (!m_zip || !m_zip->setCurrentFile(name)) {
            log(tr("UPack is broken (cannot get %1). Abort").arg(name));
            return stop(Failed);
        }
        QByteArray data;
        if (!readZipEntry(name, &data))
            return stop(Failed);
        log(tr("Uploading %1 from upack").arg(name));
        const QString target = name.startsWith(QLatin1Char('/')) ? name : QLatin1Char('/') + name;
        if (!uploadEntry(data, target))
            return stop(Failed);
    }
    log(tr("UPack uploaded!"));
    stop(Installed);
    refresh();
    return Installed;
}

bool PackageInstaller::readZipEntry(const QString& name, QByteArray* data)
{
    QuaZipFileInfo64 info;
    if (m_zip->getCurrentFileInfo(&info) && entryTooLarge(name, info.uncompressedSize))
        return false;
    QuaZipFile entry(m_zip.get());
    if (!entry.open(QIODevice::ReadOnly)) {
        log(tr("UPack is broken (cannot read %1). Abort").arg(name));
        return false;
    }
    // Read it whole before sending: a partial file must never replace a good
    // one on the board. The size the archive claims is not trusted.
    while (data->size() <= static_cast<int>(kMaxEntrySize)) {
        const QByteArray part = entry.read(kZipReadStep);
        if (part.isEmpty())
            break;
        *data += part;
    }
    const bool readFailed = entry.getZipError() != UNZ_OK;
    entry.close();
    if (readFailed || entry.getZipError() != UNZ_OK || static_cast<quint64>(data->size()) != info.uncompressedSize) {
        log(tr("UPack is broken (cannot read %1). Abort").arg(name));
        return false;
    }
    return !entryTooLarge(name, static_cast<quint64>(data->size()));
}

// ---- .ufw ----

bool PackageInstaller::readTarData(const mtar_header_t& header, QByteArray* data)
{
    data->resize(static_cast<int>(header.size));
    if (header.size == 0)
        return true;
    return mtar_read_data(m_tar.get(), data->data(), header.size) == MTAR_ESUCCESS;
}

PackageInstaller::Result PackageInstaller::ufw_upload_core(const QString& path)
{
    if (refuseWhileBusy())
        return Busy;
    const BoardBusy hold(m_files);
    m_tar = std::make_unique<mtar_t>();
    const int opened = mtar_open(m_tar.get(), QFile::encodeName(path).constData(), "r");
    if (opened != MTAR_ESUCCESS) {
        log(tr("Cannot read ufw package: %1").arg(opened));
        m_tar.reset();
        return Failed;
    }
    log(tr("Loading ufw from %1").arg(path));

    QSet<QString> dirs;
    const auto ensureDir = [&](const QString& dir) {
        if (dirs.contains(dir))
            return true;
        dirs.insert(dir);
        return mkdir(dir);
    };
    mtar_header_t header;
    int err = MTAR_ESUCCESS;
    while (m_tar && (err = mtar_read_header(m_tar.get(), &header)) == MTAR_ESUCCESS) {
        const uint64_t pos = mtar_tell(m_tar.get());
        const QString name = QString::fromLatin1(header.name);
        if (header.type == MTAR_TREG || header.type == 0) {
            if (name.mid(1).contains(QLatin1Char('/')) && !ensureDir(name.left(name.lastIndexOf(QLatin1Char('/')))))
                return stop(Failed);
            if (entryTooLarge(name, header.size))
                return stop(Failed);
            log(tr("Uploading %1").arg(name));
            QByteArray data;
            if (!readTarData(header, &data)) {
                log(tr("Cannot read %1 whole: the package is truncated. Abort").arg(name));
                return stop(Failed);
            }
            if (!uploadEntry(data, name))
                return stop(Failed);
        } else if (header.type == MTAR_TDIR) {
            if (!ensureDir(name))
                return stop(Failed);
        } else if (header.type == MTAR_TPAXGLOBAL) {
            if (entryTooLarge(name, header.size))
                return stop(Failed);
            QByteArray data;
            if (readTarData(header, &data)) {
                const QHash<QString, QString> values = ::_tar_parse_global(data);
                if (values.contains(QStringLiteral("board")) && values.contains(QStringLiteral("mod")))
                    log(tr("UFW firmware package is for %1/%2 (%3)")
                            .arg(values.value(QStringLiteral("board")), values.value(QStringLiteral("mod")),
                                 values.value(QStringLiteral("comment"))));
            }
        }
        if (!m_tar)
            break;
        const uint64_t padded =
            (static_cast<uint64_t>(header.size) + kMtarRecordSize - 1) / kMtarRecordSize * kMtarRecordSize;
        m_tar->remaining_data = 0;
        err = mtar_seek(m_tar.get(), pos + kMtarRecordSize + padded);
        if (err != MTAR_ESUCCESS)
            break;
    }
    // The end of the archive is an all-zero record or the end of the file;
    // anything else is a corrupt header, which ends the install all the same.
    const bool clean = err == MTAR_ENULLRECORD || (err == MTAR_EREADFAIL && m_tar &&
                                                   m_tar->last_header == static_cast<uint64_t>(QFileInfo(path).size()));
    log(tr("UFW firmware pack uploaded!"));
    stop(Installed);
    refresh();
    return clean ? Installed : EndedEarly;
}
