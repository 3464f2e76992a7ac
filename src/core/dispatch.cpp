#include "core/dispatch.h"

#include <cstring>

namespace kplvc {

cpu::Isa entry_level(const void* active, const void* tables, std::size_t size, int top, std::size_t first,
                     std::size_t last) {
    constexpr std::size_t kEntry = sizeof(void (*)());
    const auto* in_use = static_cast<const unsigned char*>(active);
    const auto* by_level = static_cast<const unsigned char*>(tables);
    int level = 0;
    for (std::size_t e = first; e + kEntry <= last && e + kEntry <= size; e += kEntry) {
        int l = 0;
        while (l < top && std::memcmp(by_level + l * size + e, in_use + e, kEntry) != 0) ++l;
        if (l > level) level = l;
    }
    return static_cast<cpu::Isa>(level);
}

}  // namespace kplvc
