#include "nal.h"

#include <cstring>

namespace kplvc::codecs::h264 {

namespace {
// Position of the first 00 00 01 at or after `from`, or `size`.
size_t find_start_code(const uint8_t* data, size_t size, size_t from) {
    size_t i = from + 2;
    while (i < size) {
        const void* one = std::memchr(data + i, 1, size - i);
        if (!one) return size;
        i = static_cast<size_t>(static_cast<const uint8_t*>(one) - data);
        if (data[i - 1] == 0 && data[i - 2] == 0) return i - 2;
        i += 1;
    }
    return size;
}
}  // namespace

bool next_nal(const uint8_t* data, size_t size, size_t* pos, const uint8_t** nal, size_t* len) {
    while (*pos < size) {
        const size_t sc = find_start_code(data, size, *pos);
        if (sc >= size) {
            *pos = size;
            return false;
        }
        const size_t begin = sc + 3;
        size_t end = find_start_code(data, size, begin);
        *pos = end;
        while (end > begin && data[end - 1] == 0) --end;  // trailing_zero_8bits, a 4-byte start code
        if (end > begin) {
            *nal = data + begin;
            *len = end - begin;
            return true;
        }
    }
    return false;
}

BitReader unescape(const uint8_t* nal, size_t len, std::vector<uint8_t>& out) {
    out.resize(len + kTailPad);
    uint8_t* o = out.data();
    size_t n = 0;
    int zeros = 0;
    for (size_t i = 1; i < len; ++i) {
        const uint8_t b = nal[i];
        if (zeros >= 2 && b == 3) {
            zeros = 0;
            continue;
        }
        zeros = b == 0 ? zeros + 1 : 0;
        o[n++] = b;
    }
    std::memset(o + n, 0, kTailPad);
    // The stop bit is the last 1 of the payload; everything after it is
    // alignment (and, at worst, zero bytes a damaged unit kept).
    size_t last = n;
    while (last > 0 && o[last - 1] == 0) --last;
    size_t bits = 0;
    if (last > 0) bits = last * 8 - 1 - static_cast<size_t>(__builtin_ctz(o[last - 1]));
    return BitReader(o, n, bits);
}

}  // namespace kplvc::codecs::h264
