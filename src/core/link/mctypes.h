#pragma once

#include <QFlags>

// Link state: who owns the board's console and how replies are cut.
enum MC_STATE {
    MC_UNKNOWN = 0, // not under our control: output goes to the terminal
    MC_RUNNING = 1, // a launched board program runs
    MC_REPL = 2,    // we drive the friendly REPL
    MC_RAW = 3,     // we drive the raw REPL
};

enum MC_RES { MC_FAILED = -1, MC_STOPPED = 0, MC_DEFERRED = 1 };

enum MC_TYPES { MC_STM32 = 0, MC_ESP32 = 1 };

enum MC_LIST { MC_LIST_FILES = 1, MC_LIST_DIRS = 2, MC_LIST_ALL = 3 };
Q_DECLARE_FLAGS(MC_LIST_FLAGS, MC_LIST)
Q_DECLARE_OPERATORS_FOR_FLAGS(MC_LIST_FLAGS)
