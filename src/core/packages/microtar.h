#pragma once

#include <cstdint>
#include <cstdio>

// A small reading-only tar reader over a stdio stream. Every operation
// returns 0 on success or one of the negative codes below.
enum {
    MTAR_ESUCCESS = 0,
    MTAR_EFAILURE = -1,
    MTAR_EOPENFAIL = -2,
    MTAR_EREADFAIL = -3,
    MTAR_EWRITEFAIL = -4,
    MTAR_ESEEKFAIL = -5,
    MTAR_EBADCHKSUM = -6,
    MTAR_ENULLRECORD = -7,
    MTAR_ENOTFOUND = -8,
};

enum {
    MTAR_TREG = '0',
    MTAR_TLNK = '1',
    MTAR_TSYM = '2',
    MTAR_TCHR = '3',
    MTAR_TBLK = '4',
    MTAR_TDIR = '5',
    MTAR_TFIFO = '6',
    MTAR_TPAXGLOBAL = 'g',
};

constexpr unsigned kMtarRecordSize = 512;

struct mtar_header_t {
    bool ustar;
    uint32_t mode;
    uint32_t owner;
    uint32_t size;
    uint32_t mtime;
    uint32_t type;
    char name[256]; // ustar: prefix immediately followed by name, no "/" between
    char linkname[101];
};

struct mtar_t {
    int (*read)(mtar_t* tar, void* data, unsigned size);
    int (*write)(mtar_t* tar, const void* data, unsigned size);
    int (*seek)(mtar_t* tar, uint64_t pos);
    int (*close)(mtar_t* tar);
    FILE* stream;
    uint64_t pos;
    uint32_t remaining_data;
    uint64_t last_header;
};

const char* mtar_strerror(int err);
int mtar_open(mtar_t* tar, const char* filename, const char* mode);
// Reads from an open stream (which it then owns), checking the first header.
int mtar_open_stream(mtar_t* tar, FILE* stream);
int mtar_close(mtar_t* tar);
int mtar_seek(mtar_t* tar, uint64_t pos);
uint64_t mtar_tell(const mtar_t* tar);
int mtar_read_header(mtar_t* tar, mtar_header_t* header);
int mtar_read_data(mtar_t* tar, void* ptr, unsigned size);
// Decodes one 512-byte record; exposed for the fuzz target and tests.
int mtar_decode_header(const unsigned char* record, mtar_header_t* header);
