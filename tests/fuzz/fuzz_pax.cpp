// Arbitrary bytes as the data of a pax global header.
#include "packages/paxglobal.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QHash<QString, QString> values =
        _tar_parse_global(QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size)));
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        if (it.key().isEmpty())
            __builtin_trap(); // a key needs at least one character before "="
    return 0;
}
