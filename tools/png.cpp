// PNG: the signature, then IHDR, one IDAT holding a zlib stream of stored
// (uncompressed) deflate blocks, and IEND; each chunk closed by the CRC-32
// of its type and data, the zlib stream by the Adler-32 of the raw rows.
#include "tools/png.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace kplvc_tool {

namespace {

using kplvc::codecs::Chroma;
using kplvc::codecs::Picture;

// CRC-32 with the reflected polynomial 0xEDB88320, as PNG chunks use.
struct CrcTable {
    uint32_t t[256];
};
constexpr CrcTable make_crc_table() {
    CrcTable tab{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        tab.t[i] = c;
    }
    return tab;
}
constexpr CrcTable kCrc = make_crc_table();

uint32_t crc32(const uint8_t* p, size_t n) {
    uint32_t crc = ~0u;
    for (size_t i = 0; i < n; ++i) crc = kCrc.t[(crc ^ p[i]) & 255] ^ (crc >> 8);
    return ~crc;
}

uint32_t adler32(const std::vector<uint8_t>& d) {
    uint32_t a = 1, b = 0;
    for (uint8_t v : d) {
        a = (a + v) % 65521;
        b = (b + a) % 65521;
    }
    return (b << 16) | a;
}

void put32(std::vector<uint8_t>& o, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) o.push_back(static_cast<uint8_t>(v >> s));
}

void chunk(std::vector<uint8_t>& out, const char* type, const std::vector<uint8_t>& data) {
    put32(out, static_cast<uint32_t>(data.size()));
    const size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    put32(out, crc32(out.data() + start, out.size() - start));
}

uint8_t clamp(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

}  // namespace

bool write_png(const char* path, const Picture& pic) {
    const int w = pic.width, h = pic.height;
    const int sx = pic.chroma == Chroma::c444 ? 0 : (pic.chroma == Chroma::c411 ? 2 : 1);
    const int sy = pic.chroma == Chroma::c420 ? 1 : 0;
    // Rows of filter type 0 followed by RGB triples.
    std::vector<uint8_t> raw;
    raw.reserve(static_cast<size_t>(h) * (3 * static_cast<size_t>(w) + 1));
    for (int y = 0; y < h; ++y) {
        raw.push_back(0);
        const uint8_t* ly = pic.plane[0] + static_cast<intptr_t>(y) * pic.stride[0];
        const uint8_t* cb = pic.plane[1] + static_cast<intptr_t>(y >> sy) * pic.stride[1];
        const uint8_t* cr = pic.plane[2] + static_cast<intptr_t>(y >> sy) * pic.stride[2];
        for (int x = 0; x < w; ++x) {
            // Fixed point (2^16) of the BT.601 matrix for studio range.
            const int c = 76309 * (ly[x] - 16), u = cb[x >> sx] - 128, v = cr[x >> sx] - 128;
            raw.push_back(clamp((c + 104597 * v + 32768) >> 16));
            raw.push_back(clamp((c - 25675 * u - 53279 * v + 32768) >> 16));
            raw.push_back(clamp((c + 132201 * u + 32768) >> 16));
        }
    }
    std::vector<uint8_t> z = {0x78, 0x01};  // deflate, 32 KiB window, no dictionary
    for (size_t pos = 0; pos < raw.size() || pos == 0;) {
        const size_t n = raw.size() - pos < 65535 ? raw.size() - pos : 65535;
        z.push_back(pos + n == raw.size() ? 1 : 0);  // BFINAL on the last block, BTYPE 00
        z.push_back(static_cast<uint8_t>(n));
        z.push_back(static_cast<uint8_t>(n >> 8));
        z.push_back(static_cast<uint8_t>(~n));
        z.push_back(static_cast<uint8_t>(~n >> 8));
        z.insert(z.end(), raw.begin() + static_cast<std::ptrdiff_t>(pos),
                 raw.begin() + static_cast<std::ptrdiff_t>(pos + n));
        pos += n;
        if (n == 0) break;
    }
    put32(z, adler32(raw));

    std::vector<uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> ihdr;
    put32(ihdr, static_cast<uint32_t>(w));
    put32(ihdr, static_cast<uint32_t>(h));
    ihdr.insert(ihdr.end(), {8, 2, 0, 0, 0});  // 8 bits, RGB, deflate, filter 0, no interlace
    chunk(out, "IHDR", ihdr);
    chunk(out, "IDAT", z);
    chunk(out, "IEND", {});
    std::FILE* f = std::fopen(path, "wb");
    if (!f) return false;
    const bool ok = std::fwrite(out.data(), 1, out.size(), f) == out.size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace kplvc_tool
