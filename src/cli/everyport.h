#pragma once

#include <QStringList>

// SIGINT and SIGTERM set a flag that long-running commands check.
void installStopHandlers();
bool stopRequested();
// Runs the event loop for ms; false once a stop was requested.
bool pump(int ms);

// Runs this program once per port, each child with its one --port and the
// rest of the command line; passes their lines on prefixed with the port and
// a tab, prints a summary on standard error. 0 when every board succeeded.
int runOnEveryPort(const QStringList& ports);
