#pragma once

#include <QObject>
#include <QStringList>

// SIGINT and SIGTERM set a flag that long-running commands check, and wake
// the event loop through stopSignals().
void installStopHandlers();
bool stopRequested();
// The signal that asked to stop (0 while none did).
int stopSignal();
// Runs the event loop for ms; false once a stop was requested.
bool pump(int ms);

// Emits requested() in the event loop once a stop signal arrived.
class StopSignals : public QObject {
    Q_OBJECT
public:
    static StopSignals& instance();

signals:
    void requested(int signal);

private:
    StopSignals();
};

// The folder each board writes into when several boards download at once:
// the port's name, or its whole path where two ports share a name.
QString portFolder(const QString& port, const QStringList& ports);

// Runs this program once per port, each child with its one --port and the
// rest of the command line; passes their lines on prefixed with the port and
// a tab, prints a summary on standard error. 0 when every board succeeded.
// localArg is the index among the command's arguments of a local path each
// board writes to (-1: none): a folder gets a subfolder per board, a file
// goes into a subfolder per board beside where it was asked for.
int runOnEveryPort(const QStringList& ports, int localArg, bool localIsFolder);
