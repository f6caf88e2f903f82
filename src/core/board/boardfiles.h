#pragma once

#include "boardoptions.h"
#include "link/boardlink.h"
#include "link/mctypes.h"

#include <QHash>
#include <QJsonArray>
#include <QObject>
#include <QSet>
#include <QStringList>

class BoardFiles;
class MCDirModel;
class QFile;
class QFileDevice;
class QIODevice;

// Marks a board operation for its whole duration: while one lives,
// BoardFiles::busy() is true and user actions refuse to start another.
class BoardBusy {
public:
    explicit BoardBusy(BoardFiles& files);
    ~BoardBusy();
    BoardBusy(const BoardBusy&) = delete;
    BoardBusy& operator=(const BoardBusy&) = delete;

private:
    BoardFiles& m_files;
};

// Every remote file operation: pastes one of our board scripts into the raw
// REPL, calls it and speaks its framing over the link. Reports by signals.
class BoardFiles : public QObject {
    Q_OBJECT
public:
    explicit BoardFiles(BoardLink& link, QObject* parent = nullptr);

    void setModel(MCDirModel* model) { m_model = model; }
    MCDirModel* model() const { return m_model; }
    BoardLink& link() { return m_link; }
    // True while an operation talks to the board. Board calls wait in nested
    // event loops, so user actions check this before starting another one.
    bool busy() const { return m_depth > 0; }
    // Asks the running operation (a transfer, sync, backup or package) to stop
    // after the current chunk; nothing happens while none runs.
    void cancel();
    // True from a cancel until the outermost running operation ends; the first
    // call that sees it logs the one "Cancelled" line.
    bool cancelRequested();

    // What the window's settings or the command line chose; the link's
    // transfer size comes with it.
    void setOptions(const BoardOptions& options);
    const BoardOptions& options() const { return m_options; }
    bool fastTransfers() const { return m_options.fastTransfers; }
    void setFastTransfers(bool on) { m_options.fastTransfers = on; }
    // Forgets which scripts the board holds; they are pasted again when next needed.
    void forgetScripts();
    // Fast transfers: the digests of many board files in few calls of the
    // hash script's _hash, each path's reply as mc_file_hash() gives it;
    // empty when the board failed.
    QHash<QString, QByteArray> mc_file_hashes(const QStringList& paths, const QString& hashScript);
    // Where a fast upload writes until its checksum holds, and the name its
    // verified copy takes before it replaces the target; listed only while
    // fast transfers are off.
    static const QString kTempSuffix;
    static const QString kVerifiedSuffix;

    bool upload_script(const QString& path);
    bool execute_script(const QString& path);
    // Off by default, where a run's output is logged line by line until a
    // ">" ends it. On (the CLI): the output goes out as scriptOutput, as the
    // board sent it, until the raw REPL's own end, its error text apart.
    void setWholeScriptOutput(bool on) { m_wholeOutput = on; }
    // With whole output: whether the last script ended in an exception.
    bool scriptRaised() const { return m_scriptRaised; }
    bool debug();

    bool upload(const QString& source, const QString& target);
    // Refuses (with a log line) a board path the board's file system cannot take.
    bool checkTarget(const QString& target);
    // The refusal text for a board path with a forbidden character, else empty.
    static QString forbiddenIn(const QString& target);
    bool upload(QIODevice* source, const QString& target);
    bool download(const QString& source, const QString& localPath);
    bool download(const QString& source, QFileDevice* target);
    // Downloads into a new file that replaces localPath only when it is
    // complete, its checksum matches and every local write succeeded; the
    // old file stays whole otherwise. Returns whether it was replaced.
    bool downloadReplacing(const QString& source, const QString& localPath);
    // Whether the last download ended with matching checksums.
    bool lastDownloadOk() const { return m_lastDownloadOk; }
    // Whether the last download failed on the PC's side (a full disk, a size limit).
    bool lastLocalWriteFailed() const { return m_localWriteFailed; }

    bool remove(const QString& path, bool isDir);
    bool mc_mkdir(QString path);
    bool mc_direxists(const QString& path);
    QByteArray mc_file_hash(const QString& path);
    // os.rename on the board, in the ordinary REPL; logs the outcome.
    bool mc_rename(const QString& from, const QString& to);

    // A folder's folders and files, as mc_lsdir lists them, in one small
    // raw REPL call (no script pasted). False when this way cannot tell:
    // the board did not answer as expected, or our temporaries lie there and
    // the full listing must tidy them first. *exists is false for no folder.
    bool listQuickly(const QString& directory, QJsonArray* dirs, QJsonArray* files, bool* exists);
    QJsonArray mc_lsdir(const QString& dir, MC_LIST_FLAGS flags);
    // A folder's folders and files (mc_lsdir), for those who copy or delete
    // by them: each list is asked for once more when its answer was not a
    // whole JSON list (no answer, an error, a line cut or garbled on its way),
    // whose empty array would mean nothing. False when one still was not.
    bool listWhole(const QString& dir, QJsonArray* dirs, QJsonArray* files);
    // Where the board mounts its file systems ("/flash", "/sd"); may be empty.
    // ok (when given) is false when the board did not answer or could not tell.
    QStringList mc_mounts(bool* ok = nullptr);
    // After each listing, also ask the board how full it is (spaceReported).
    void setReportSpace(bool on) { m_reportSpace = on; }
    void updateMcDir(QString path);
    QStringList upy_parselist(const QString& text) const;

    QHash<QString, QString> mc_uname();
    void displayMcInfo();

    // The script for an operation: the settings override, else the built-in
    // resource, with the "_e" variant for ESP32 boards when one exists.
    QString scriptPath(const QString& key, const QString& base, bool hasEspVariant) const;
    // A Python string literal for any path: quotes, backslashes and control
    // characters escaped, non-ASCII written as \u escapes, so the text is ASCII.
    static QString pyString(const QString& text);
    static QByteArray sizePacket(int length);
    static QByteArray checksumPacket(quint32 sum);
    static quint32 byteSum(const QByteArray& data);
    static const QString kForbiddenCharacters;

public slots:
    void queryInfo();

signals:
    void logLine(const QString& html);
    void fileOpsEnableRequested(bool on);
    void progressStarted(int maximum);
    void progressChanged(int value);
    void progressFinished();
    // How many bytes of the file itself have gone or come; total is -1 when
    // not known (a download).
    void fileProgress(qint64 done, qint64 total);
    void queryInfoFinished();
    void scriptOutput(const QByteArray& bytes, bool error);
    // One line a run printed (its error text apart), as the window's Run logs it.
    void scriptLine(const QString& text);
    // Bytes free and in all on the listed folder's file system; both -1 when
    // the board cannot tell (no os.statvfs).
    void spaceReported(qint64 freeBytes, qint64 totalBytes);

private:
    bool readScript(const QString& path, QByteArray* text);
    // A run's output until its end: logged line by line, or (whole output)
    // passed on as scriptOutput.
    void logScriptLines();
    void followScript();
    QString substituteDir(QString command, const QString& dir) const;
    // Leaves a board stuck in one of our functions and forgets the REPL mode,
    // so the next operation starts from a clean prompt.
    void recover();
    // Sends one upload packet and takes the reply; returns the failure text, or
    // an empty string with *reply filled.
    QString request(const QByteArray& packet, int timeoutMs, const QString& onTimeout, const QString& onSilence,
                    QByteArray* reply);
    // Re-enters the raw REPL after a transfer and swallows its banner.
    bool settleRaw();
    // The packet exchange of an upload; the fast one has no plain waits.
    // Returns the failure text, empty on success.
    QString sendTransfer(const QByteArray& text, int chunk, bool fast, bool* cancelled, int verifyMs);
    // Pastes the fast-transfer script unless the board holds it already.
    bool fastScript();
    // Runs one call in the raw REPL and returns what it printed, once the
    // raw REPL has ended its output; ok is false on a timeout or an error.
    // A late answer is never read as the next one's: after a time-out the
    // board is interrupted and the link drained.
    QByteArray rawCall(const QByteArray& call, int timeoutMs, bool* ok);
    // rawCall with the script it needs pasted (the fast script when empty);
    // a board that forgot it (a NameError) gets it again, once.
    QByteArray fastCall(const QByteArray& call, int timeoutMs, bool* ok, const QString& script = QString());
    // True (and the board made ready for a fresh paste) when a reply says
    // the board forgot our scripts.
    bool forgotScripts(QByteArray reply);
    // After a failed fast upload: whether to send the file once more (the
    // board forgot our scripts, or cannot inflate).
    bool fastUploadAgain(const QString& target, bool deflated);
    void reportInPlace(const QString& target);
    // Interrupts the board, forgets its scripts and enters a fresh raw REPL.
    void resync();
    // Removes our leftover temporaries in a board folder and puts verified
    // copies whose target is missing in place; returns the paths restored.
    QStringList fastClean(const QString& dir);
    // Deflated blocks, each after its 2-byte length (top bit: stored as is).
    static QByteArray deflateBlocks(const QByteArray& data);
    // The fast upload's call; *text gets what is to be sent (deflated where it pays).
    QString fastUploadCall(const QByteArray& raw, const QString& target, int chunk, QByteArray* text, bool* deflated);
    bool fastMkdir(const QString& path);
    // A fast upload whose data skips the REPL, through the transport's own
    // file protocol (WebREPL): 1 uploaded, 0 failed (the board is gone), -1
    // when the REPL's way is to carry it (no such protocol, a long path, a
    // copy that came out wrong, any refusal the REPL's way will explain).
    int fastPut(const QByteArray& raw, const QString& target);
    // Raw transfers (fast mode over a serial line): what one came to.
    enum RawResult { RawNotUsed = -1, RawFailed = 0, RawDone = 1, RawCancelled = 2 };
    enum RawStart { RawStarted, RawEnded, RawLost };
    // Whether files travel raw to this board now (the fast script pasted);
    // logs once a connection when the board cannot take raw bytes.
    bool rawTransfersHere();
    // Sends a raw call that streams: RawStarted with the numbers of its
    // header line ("#9" and kind), RawEnded when it answered at once
    // (m_lastReply holds its output, or its error text), RawLost.
    int rawStart(const QByteArray& call, char kind, QList<qint64>* fields);
    // Takes the raw REPL's end of a call from the link's buffer (from is
    // where the output starts) into m_lastReply and m_lastCallError.
    bool takeCallEnd(int from);
    bool rawEnd(int timeoutMs);
    // A RawResult; failures logged, the board left at a clean prompt.
    int rawUpload(const QByteArray& raw, const QString& target);
    int rawUploadOnce(const QByteArray& raw, const QByteArray& wire, bool deflated, const QString& target,
                      QString* failure);
    int rawDownload(const QString& source, QFileDevice* target);
    int rawReceive(const QString& source, QFileDevice* target, const QList<qint64>& fields);
    // Writes a received piece (once a write failed, no more) and adds it to the sum.
    void storeReceived(QFileDevice* target, const QByteArray& data, bool* writeFailed, quint64* sum);
    // What a download's end logs and remembers, whichever way it came.
    void concludeDownload(const QString& source, QFileDevice* target, bool ok, bool writeFailed);
    // The bytes a fast upload sends: deflated blocks where the board can
    // inflate and it pays, else the file itself.
    QByteArray packForBoard(const QByteArray& raw, bool* deflated);
    // Logs a failed upload: the board's reason, in words, where it gave one.
    void logUploadFailure(const QString& target, bool fast, const QString& failure);
    // "Invalid reply <hex>. Aborted": an upload's answer that is not the one awaited.
    static QString invalidReply(const QByteArray& reply);
    void log(const QString& text) { emit logLine(text); }
    // Interrupts our function on the board and swallows its traceback, so a
    // cancel leaves a clean prompt and a clean log.
    void stopQuietly();
    void reportSpace(const QString& path);

    // How long the raw REPL may take to answer a Ctrl-A or an interrupt.
    static constexpr int kRawSettleMs = 2000;

    friend class BoardBusy;
    BoardLink& m_link;
    MCDirModel* m_model = nullptr;
    int m_depth = 0;
    bool m_cancel = false;
    bool m_cancelLogged = false;
    bool m_lastDownloadOk = false;
    bool m_listingOk = false; // the last mc_lsdir got a whole JSON list
    bool m_localWriteFailed = false;
    BoardOptions m_options;
    QSet<QString> m_pasted; // scripts the board holds, in fast mode
    int m_boardInflates = -1;
    int m_boardRaw = -1;              // whether the board's console takes raw bytes
    bool m_rawFallbackLogged = false; // in this connection
    bool m_deflateFailed = false; // inflating ran out of memory in this connection
    // How fast a slow board reads its fresh copy back to check it.
    static constexpr int kVerifyBytesPerMs = 20;
    bool m_noFileProtocol = false; // the board did not answer it in this connection
    QByteArray m_lastCallError;   // the error text of the last raw call
    quint64 m_restarts = 0;       // restarts seen in the board's output
    quint64 m_callSince = 0;      // m_restarts when the current fast call began
    QByteArray m_lastReply;       // the last upload packet's reply
    qint64 m_fileSize = 0;        // the file being uploaded, for fileProgress
    bool m_reportSpace = false;
    bool m_wholeOutput = false;
    bool m_scriptRaised = false;
};
