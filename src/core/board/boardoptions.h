#pragma once

#include <QMap>
#include <QString>

// What the window's settings or the CLI's command line decide for the board
// operations. Core takes it as a value and never reads settings itself, so
// ticking a box in the window never changes what a script of the CLI does.
struct BoardOptions {
    bool fastTransfers = false; // "MC/FastTransfers"
    int transferSize = 0;       // "MC/TransferSize": below 32 means 512
    bool suggestExecute = false; // "MC/SuggestExecute"
    int subDirsSel = 2;          // "MC/SubDirsSel"
    QString clickAction;         // "MC/ClickAction"
    // The user's own texts by settings key: board scripts ("Scripts/Upload"),
    // REPL commands ("PY/uname") and default folders ("MC/ESPDir").
    QMap<QString, QString> texts;

    // The text set for key, else fallback (an empty text set counts as set).
    QString text(const QString& key, const QString& fallback = QString()) const
    {
        return texts.value(key, fallback);
    }
};
