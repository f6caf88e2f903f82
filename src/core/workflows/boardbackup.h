#pragma once

#include <QObject>

class BoardFiles;

// Copies a board folder tree to a PC folder, every file checked with the
// download's checksum and written under a temporary name until it is.
class BoardBackup : public QObject {
    Q_OBJECT
public:
    explicit BoardBackup(BoardFiles& files, QObject* parent = nullptr);

    // True only when every file was saved and verified.
    bool run(const QString& boardDir, const QString& localDir);
    // A board name that must not become a PC file name.
    static bool isUnsafeName(const QString& name);


signals:
    void logLine(const QString& text);
    void fileSaved(const QString& relativePath);
    void progress(int filesDone, int filesTotal, qint64 bytesDone);

private:
    struct Entry {
        QString relative;
        qint64 size = -1;
    };
    bool walk(const QString& boardDir, const QString& relative, const QString& localDir, QList<Entry>* files);
    bool fetch(const QString& boardPath, const QString& localPath);
    void log(const QString& text) { emit logLine(text); }

    BoardFiles& m_files;
    int m_saved = 0;
    int m_total = 0;
    qint64 m_bytes = 0;
    bool m_complete = true;
};
