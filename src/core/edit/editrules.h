#pragma once

#include <QByteArray>
#include <QString>

// What the code editor decides about a file without a screen: is it text,
// how to show binary data, which language it is, and JSON in and out.
namespace EditRules {

enum Type { Python = 0, CXX_Source = 1, CXX_Header = 2, XML = 3, HTML = 4, JSON = 5, Other = 6 };

// UTF-8 lead bytes only: continuation bytes are skipped unchecked and
// control characters (NUL included) count as text.
bool isBinary(const QByteArray& data);
// A hex dump of at most the first 512 bytes, 16 a line.
QString formatBinary(const QByteArray& data);
// Other when nothing matches (the caller keeps its previous type then).
Type detectType(const QString& name, const QString& text, const QByteArray& data);
// JSON is shown indented...
QString shown(Type type, const QString& text);
// ...and stored compact; anything else (invalid JSON included) as typed.
QByteArray stored(Type type, const QString& text);
// Empty when the text parses as JSON, else the parser's error.
QString jsonError(const QString& text);

} // namespace EditRules
