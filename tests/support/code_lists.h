// The MPEG-1/MPEG-2 callers' code lists, read from the standards' tables in
// tests/data and put into the generic VLC description format.
// Used by the tests, the fuzz targets and the benchmarks alike (no GoogleTest
// here); KPLVC_TEST_DATA_DIR names that folder.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kplvc.h"

namespace kplvc::codelists {

struct Code {
    std::string bits;  // first transmitted bit first
    int32_t v1, v2;    // value (size, or run), second value (level)
};

inline std::string table_path(const std::string& name) {
    return std::string(KPLVC_TEST_DATA_DIR) + "/" + name;
}

// The whitespace-separated fields of each line of a table file, blank lines
// and '#' comments left out. Empty when the file is missing.
inline std::vector<std::vector<std::string>> read_rows(const std::string& name) {
    std::ifstream in(table_path(name));
    std::vector<std::vector<std::string>> out;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream s(line);
        std::vector<std::string> f;
        for (std::string w; s >> w;) f.push_back(w);
        if (!f.empty()) out.push_back(f);
    }
    return out;
}

// A run-level table file: numbered rows, EOB and ESCAPE (FIRST is the
// coders' own rule and not listed). Empty when the file is missing.
inline std::vector<Code> read_rl(const char* name) {
    std::vector<Code> out;
    for (const auto& f : read_rows(name)) {
        if (f[0] == "EOB")
            out.push_back({f[1], KPLVC_RL_EOB, 0});
        else if (f[0] == "ESCAPE")
            out.push_back({f[1], KPLVC_RL_ESCAPE, 0});
        else if (f[0] != "FIRST")
            out.push_back({f[1], std::stoi(f[2]), std::stoi(f[3])});
    }
    return out;
}

// The dct_dc_size codes of "B12" or "B13" (v1 = size).
inline std::vector<Code> read_dc(const char* which) {
    std::vector<Code> out;
    for (const auto& f : read_rows("mpeg2_dc_size.txt"))
        if (f[0] == which) out.push_back({f[1], std::stoi(f[2]), 0});
    return out;
}

// A description in the generic VLC format: [0] unused, L, the level bits,
// then per code length a count and the records, then -1.
inline std::vector<Kpl32s> make_list(const std::vector<Code>& codes, bool rl,
                                     const std::vector<Kpl32s>& levels) {
    std::vector<Kpl32s> d = {0, static_cast<Kpl32s>(levels.size())};
    d.insert(d.end(), levels.begin(), levels.end());
    size_t maxlen = 0;
    for (const Code& c : codes) maxlen = std::max(maxlen, c.bits.size());
    for (size_t len = 1; len <= maxlen; ++len) {
        const size_t at = d.size();
        d.push_back(0);
        for (const Code& c : codes) {
            if (c.bits.size() != len) continue;
            ++d[at];
            d.push_back(static_cast<Kpl32s>(std::stoul(c.bits, nullptr, 2)));
            d.push_back(c.v1);
            if (rl) d.push_back(c.v2);
        }
    }
    d.push_back(-1);
    return d;
}

// The DC size codes as the encoders take them: (code << 8) | length, by size.
inline void dc_codes(const std::vector<Code>& codes, Kpl32s* out) {
    for (const Code& c : codes)
        out[c.v1] = static_cast<Kpl32s>((std::stoul(c.bits, nullptr, 2) << 8) | c.bits.size());
}

}  // namespace kplvc::codelists
