#include "microtar.h"

#include <cstring>

namespace {
// Offsets and widths of the ustar header fields we read.
constexpr int kNameOff = 0, kNameLen = 100;
constexpr int kModeOff = 100, kModeLen = 8;
constexpr int kOwnerOff = 108, kOwnerLen = 8;
constexpr int kSizeOff = 124, kSizeLen = 12;
constexpr int kMtimeOff = 136, kMtimeLen = 12;
constexpr int kChecksumOff = 148, kChecksumLen = 8;
constexpr int kTypeOff = 156;
constexpr int kLinkOff = 157, kLinkLen = 100;
constexpr int kMagicOff = 257;
constexpr int kPrefixOff = 345, kPrefixLen = 155;

// Octal field as "%o" reads it, but bounded by the field width (fields need
// not be terminated) and saturating instead of overflowing.
uint32_t octal(const unsigned char* field, int width)
{
    int i = 0;
    while (i < width && (field[i] == ' ' || field[i] == '\t'))
        ++i;
    uint64_t value = 0;
    for (; i < width && field[i] >= '0' && field[i] <= '7'; ++i) {
        value = value * 8 + static_cast<uint64_t>(field[i] - '0');
        if (value > 0xFFFFFFFFu)
            return 0xFFFFFFFFu;
    }
    return static_cast<uint32_t>(value);
}

// Copies a field up to its first zero byte or its width.
size_t copyField(char* out, const unsigned char* field, int width)
{
    size_t n = 0;
    while (n < static_cast<size_t>(width) && field[n] != 0)
        ++n;
    std::memcpy(out, field, n);
    out[n] = 0;
    return n;
}

int fileRead(mtar_t* tar, void* data, unsigned size)
{
    return std::fread(data, 1, size, tar->stream) == size ? MTAR_ESUCCESS : MTAR_EREADFAIL;
}

int fileWrite(mtar_t* tar, const void* data, unsigned size)
{
    return std::fwrite(data, 1, size, tar->stream) == size ? MTAR_ESUCCESS : MTAR_EWRITEFAIL;
}

int fileSeek(mtar_t* tar, uint64_t pos)
{
    if (pos > static_cast<uint64_t>(INT64_MAX))
        return MTAR_ESEEKFAIL;
    return fseeko(tar->stream, static_cast<off_t>(pos), SEEK_SET) == 0 ? MTAR_ESUCCESS : MTAR_ESEEKFAIL;
}

int fileClose(mtar_t* tar)
{
    std::fclose(tar->stream);
    tar->stream = nullptr;
    return MTAR_ESUCCESS;
}

int rawRead(mtar_t* tar, void* data, unsigned size)
{
    const int err = tar->read(tar, data, size);
    tar->pos += size;
    return err;
}
} // namespace

const char* mtar_strerror(int err)
{
    switch (err) {
    case MTAR_ESUCCESS:
        return "success";
    case MTAR_EFAILURE:
        return "failure";
    case MTAR_EOPENFAIL:
        return "could not open";
    case MTAR_EREADFAIL:
        return "could not read";
    case MTAR_EWRITEFAIL:
        return "could not write";
    case MTAR_ESEEKFAIL:
        return "could not seek";
    case MTAR_EBADCHKSUM:
        return "bad checksum";
    case MTAR_ENULLRECORD:
        return "null record";
    case MTAR_ENOTFOUND:
        return "file not found";
    default:
        return "unknown error";
    }
}

int mtar_decode_header(const unsigned char* record, mtar_header_t* header)
{
    if (record[kChecksumOff] == 0)
        return MTAR_ENULLRECORD;
    uint32_t sum = 0;
    for (unsigned i = 0; i < kMtarRecordSize; ++i)
        sum += (i >= kChecksumOff && i < kChecksumOff + kChecksumLen) ? 0x20u : record[i];
    if (sum != octal(record + kChecksumOff, kChecksumLen))
        return MTAR_EBADCHKSUM;

    std::memset(header, 0, sizeof(*header));
    header->ustar = std::memcmp(record + kMagicOff, "ustar", 5) == 0;
    header->mode = octal(record + kModeOff, kModeLen);
    header->owner = octal(record + kOwnerOff, kOwnerLen);
    header->size = octal(record + kSizeOff, kSizeLen);
    header->mtime = octal(record + kMtimeOff, kMtimeLen);
    header->type = record[kTypeOff];
    size_t used = 0;
    if (header->ustar)
        used = copyField(header->name, record + kPrefixOff, kPrefixLen);
    copyField(header->name + used, record + kNameOff, kNameLen);
    copyField(header->linkname, record + kLinkOff, kLinkLen);
    return MTAR_ESUCCESS;
}

int mtar_open(mtar_t* tar, const char* filename, const char* mode)
{
    std::memset(tar, 0, sizeof(*tar));
    tar->read = fileRead;
    tar->write = fileWrite;
    tar->seek = fileSeek;
    tar->close = fileClose;
    const bool reading = std::strchr(mode, 'r') != nullptr;
    FILE* stream = std::fopen(filename, reading ? "rb" : mode);
    if (!stream)
        return MTAR_EOPENFAIL;
    if (!reading) {
        tar->stream = stream;
        return MTAR_ESUCCESS;
    }
    return mtar_open_stream(tar, stream);
}

int mtar_open_stream(mtar_t* tar, FILE* stream)
{
    std::memset(tar, 0, sizeof(*tar));
    tar->read = fileRead;
    tar->write = fileWrite;
    tar->seek = fileSeek;
    tar->close = fileClose;
    tar->stream = stream;
    mtar_header_t header;
    const int err = mtar_read_header(tar, &header);
    if (err != MTAR_ESUCCESS)
        mtar_close(tar);
    return err;
}

int mtar_close(mtar_t* tar)
{
    if (!tar->stream)
        return MTAR_ESUCCESS;
    return tar->close(tar);
}

int mtar_seek(mtar_t* tar, uint64_t pos)
{
    const int err = tar->seek(tar, pos);
    tar->pos = pos;
    return err;
}

uint64_t mtar_tell(const mtar_t* tar)
{
    return tar->pos;
}

int mtar_read_header(mtar_t* tar, mtar_header_t* header)
{
    tar->last_header = tar->pos;
    unsigned char record[kMtarRecordSize];
    int err = rawRead(tar, record, kMtarRecordSize);
    if (err != MTAR_ESUCCESS)
        return err;
    // The stream stays at the header, ready for mtar_read_data.
    err = mtar_seek(tar, tar->last_header);
    if (err != MTAR_ESUCCESS)
        return err;
    return mtar_decode_header(record, header);
}

int mtar_read_data(mtar_t* tar, void* ptr, unsigned size)
{
    if (tar->remaining_data == 0) {
        mtar_header_t header;
        int err = mtar_read_header(tar, &header);
        if (err != MTAR_ESUCCESS)
            return err;
        err = mtar_seek(tar, tar->last_header + kMtarRecordSize);
        if (err != MTAR_ESUCCESS)
            return err;
        tar->remaining_data = header.size;
    }
    if (size > tar->remaining_data)
        return MTAR_EFAILURE;
    const int err = rawRead(tar, ptr, size);
    if (err != MTAR_ESUCCESS)
        return err;
    tar->remaining_data -= size;
    if (tar->remaining_data == 0)
        return mtar_seek(tar, tar->last_header);
    return MTAR_ESUCCESS;
}
