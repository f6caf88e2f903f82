#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

// The key/value records of a pax global header ("LEN key=value\n" each).
// Parsing stops at the first record whose length cannot be trusted.
QHash<QString, QString> _tar_parse_global(const QByteArray& data);
