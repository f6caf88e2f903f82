#pragma once

#include "board/boardoptions.h"

class QSettings;

// The board options the window's settings hold (the CLI builds its own from
// its command line).
BoardOptions boardOptionsFromSettings(const QSettings& settings);
