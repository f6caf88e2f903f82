#pragma once

#include <QByteArray>

// What the board's REPLs send and take, shared by the link and the board operations.
namespace replbytes {
constexpr char kCtrlA = 0x01; // raw REPL (re-entering it resets its input)
constexpr char kCtrlB = 0x02; // leave raw REPL / friendly REPL banner
constexpr char kCtrlC = 0x03; // interrupt
constexpr char kCtrlD = 0x04; // end of raw input / paste
constexpr char kCtrlE = 0x05; // paste mode

inline const QByteArray kRawBanner = QByteArrayLiteral("raw REPL; CTRL-B to exit");
// The raw REPL's prompt.
inline const QByteArray kRawEnd = QByteArrayLiteral(">");
// The raw REPL's first answer to anything ended by Ctrl-D.
inline const QByteArray kRawAccepted = QByteArrayLiteral("OK");
inline const QByteArray kPasteBanner = QByteArrayLiteral("paste mode; Ctrl-C to cancel, Ctrl-D to finish");
} // namespace replbytes
