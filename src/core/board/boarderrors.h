#pragma once

#include <QByteArray>
#include <QString>

// What a board's error text means, in words. Boards say the same error in
// several ways: "[Errno 2] ENOENT" where the firmware's errno table has the
// name, "OSError: 28" or a bare "28" where it does not (stock builds have no
// ENOSPC, ENOTDIR or ENOTEMPTY), and our hash script's "err(21)".
namespace BoardErrors {
constexpr int kNoSpace = 28;

// The error number in a board's text, or -1 when it carries none.
int errnoIn(const QByteArray& text);
// "ENOTEMPTY: the folder is not empty" (translated) for a text that carries
// an error number or name; else the text itself, trimmed, without control bytes.
QString explain(const QByteArray& text);
// True when the text says the board's file system is full.
bool noSpace(const QByteArray& text);
// What a transfer script's failing status means ("#4Inv csum 123": the board
// summed other bytes than were sent), in words; empty for a reply that is no
// such status (success, or an error text, which explain() words).
QString transferFault(const QByteArray& reply);
} // namespace BoardErrors
