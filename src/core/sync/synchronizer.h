#pragma once

#include "ignorerules.h"

#include <QObject>
#include <QStringList>

class BoardFiles;

// One-way synchronisation from a PC folder to a board folder: files whose
// board digest differs (or that are missing on the board) are uploaded.
class Synchronizer : public QObject {
    Q_OBJECT
public:
    struct Options {
        bool missing = true;     // upload files the board does not have
        bool dryRun = false;     // compare only: report, upload nothing
        bool createDirs = false; // create the board folders the uploads need
        bool deleteExtra = false; // then remove board entries the PC lacks
        bool recursive = true;    // deletion looks into sub-folders too
        IgnoreRules ignore;       // left alone on both sides
    };

    // What a sync would do; complete is false when the comparison stopped.
    struct Plan {
        QStringList uploads;   // relative to the source
        QStringList deletions; // board paths
        bool complete = false;
        QString problem; // what will stop the sync, when the preview can tell
    };

    explicit Synchronizer(BoardFiles& files, QObject* parent = nullptr);

    // Files under root/sub relative to root, "/"-separated: at every level
    // the sub-folders' contents (depth first, by name) come before the
    // level's own files; hidden files are left out. Links are never
    // followed: a link to a file inside root counts as that file, any other
    // link is left out with one line in *skipped.
    static QStringList collectSyncFiles(const QString& root, const QString& sub, bool recursive,
                                        QStringList* skipped = nullptr);
    // Why a PC folder cannot be trusted to say what the board may lose (it
    // is missing, unreadable or empty); empty when it can.
    static QString sourceProblem(const QString& root);
    // Why the board cannot take some of these names, one line each; a sync
    // with any is refused whole, before the first upload.
    static QStringList refusedNames(const QStringList& files, const QString& destination);

    // The window's synchronisation: into the listed board directory.
    bool sync_core(const QString& source, const QStringList& files, bool missing);
    // destination is a board directory ending with "/". True when everything
    // that needed uploading was uploaded (or nothing needed it).
    bool synchronize(const QString& source, const QString& destination, const QStringList& files,
                     const Options& options);
    // A dry run of synchronize(): compares, lists, changes nothing.
    Plan preview(const QString& source, const QString& destination, const QStringList& files, Options options);

signals:
    void logLine(const QString& html);
    // A file that was uploaded (or, in a dry run, would be), relative to the source.
    void fileUploaded(const QString& relativePath);
    // A board file or folder removed (or, in a dry run, that would be).
    void fileDeleted(const QString& boardPath);

private:
    void log(const QString& text) { emit logLine(text); }
    QString abortText() const;
    bool pruneAll(const QString& source, const QString& destination, const Options& options);
    // Removes what under destination + relative the PC lacks; *emptied tells
    // whether nothing is left there. False when the board stopped answering.
    bool prune(const QString& source, const QString& destination, const QString& relative, const Options& options,
               bool* emptied);
    BoardFiles& m_files;
    QString m_problem; // what stopped the last dry run
    QStringList m_mounts; // the board's mount points, for one mirror
};
