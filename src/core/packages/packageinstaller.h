#pragma once

#include "microtar.h"

#include <QObject>

#include <memory>

class BoardFiles;
class Prompter;
class QuaZip;

// Installs ".upack" (ZIP) and ".ufw" (tar) packages onto the board: creates
// the folders the package needs and uploads every file to its board path.
// At most one package is open at a time.
class PackageInstaller : public QObject {
    Q_OBJECT
public:
    enum Result {
        Installed,
        Busy,      // another package is being installed: nothing done
        Failed,    // stopped; files uploaded before stay on the board
        EndedEarly // a corrupt tar header ended the archive; reported as installed
    };

    explicit PackageInstaller(BoardFiles& files, QObject* parent = nullptr);
    ~PackageInstaller() override;

    // Asked for the busy warning; may be null (nobody to warn).
    void setPrompter(Prompter* prompter) { m_prompter = prompter; }
    bool busy() const { return m_zip || m_tar; }
    // While a package installs: the "Package Upload" warning, and true.
    bool refuseWhileBusy();

    // Picks the installer by extension; anything else is refused.
    Result install(const QString& path);
    Result package_upload_core(const QString& path);
    Result ufw_upload_core(const QString& path);

    static bool isPackageName(const QString& path);
    // No MicroPython board has flash for more; refusing bigger entries keeps a
    // hostile package from making us allocate without bound.
    static constexpr quint32 kMaxEntrySize = 16u * 1024 * 1024;

signals:
    void logLine(const QString& html);
    // One line per file uploaded, with its board path.
    void fileInstalled(const QString& boardPath);

private:
    bool entryTooLarge(const QString& name, quint64 size);
    Result stop(Result result);
    bool mkdir(const QString& path);
    bool uploadEntry(const QByteArray& data, const QString& target);
    bool readZipEntry(const QString& name, QByteArray* data);
    bool readTarData(const mtar_header_t& header, QByteArray* data);
    void refresh();
    void log(const QString& text) { emit logLine(text); }

    BoardFiles& m_files;
    Prompter* m_prompter = nullptr;
    std::unique_ptr<QuaZip> m_zip;
    std::unique_ptr<mtar_t> m_tar;
};
