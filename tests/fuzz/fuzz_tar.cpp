// Feeds arbitrary bytes to the tar reader the way the firmware installer
// walks an archive: every header, the data of files and global headers, the
// pax records, then the seek to the next header.
#include "packages/microtar.h"
#include "packages/paxglobal.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {
constexpr uint32_t kMaxEntrySize = 16u * 1024 * 1024;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!stream)
        return 0;
    mtar_t tar;
    if (mtar_open_stream(&tar, stream) != MTAR_ESUCCESS)
        return 0;
    mtar_header_t header;
    std::vector<char> buffer;
    while (mtar_read_header(&tar, &header) == MTAR_ESUCCESS) {
        const uint64_t pos = mtar_tell(&tar);
        const bool file = header.type == MTAR_TREG || header.type == 0;
        if ((file || header.type == MTAR_TPAXGLOBAL) && header.size > 0 && header.size <= kMaxEntrySize) {
            buffer.resize(header.size);
            if (mtar_read_data(&tar, buffer.data(), header.size) == MTAR_ESUCCESS && !file)
                _tar_parse_global(QByteArray(buffer.data(), static_cast<int>(buffer.size())));
        }
        tar.remaining_data = 0;
        const uint64_t next = pos + kMtarRecordSize + (uint64_t{header.size} + 511) / 512 * 512;
        if (next <= pos)
            abort(); // the walk must always move forward
        if (mtar_seek(&tar, next) != MTAR_ESUCCESS)
            break;
    }
    mtar_close(&tar);
    return 0;
}
