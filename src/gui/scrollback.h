#pragma once

class QTextEdit;

// Keeps the newest `limit` lines of a view (0 keeps everything). The oldest
// go in batches of a tenth of the limit: QTextDocument's own block limit lays
// the whole document out again for every line it drops, which a board
// printing at full speed outruns once thousands of lines are kept.
void trimScrollback(QTextEdit* view, int limit);
