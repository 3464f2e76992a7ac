#include <cstring>

#include "common/codec.h"

namespace kplvc::codecs {

namespace mpeg2 {
extern const Decoder kMpeg2Decoder;
}
namespace dv {
extern const Decoder kDvDecoder;
}
namespace h264 {
extern const Decoder kH264Decoder;
}
namespace h263 {
extern const Decoder kH263Decoder;
}

// Each format defines its Decoder beside its code; list it here, before the
// terminating null.
extern const Decoder kMpeg4Decoder;

static const Decoder* const kDecoders[] = {
    &mpeg2::kMpeg2Decoder, &dv::kDvDecoder, &h264::kH264Decoder, &kMpeg4Decoder, &h263::kH263Decoder, nullptr,
};

const Decoder* const* decoders(int* count) {
    int n = 0;
    while (kDecoders[n]) ++n;
    *count = n;
    return kDecoders;
}

const Decoder* find_decoder(const char* name) {
    int n = 0;
    const Decoder* const* d = decoders(&n);
    for (int i = 0; i < n; ++i)
        if (std::strcmp(d[i]->name, name) == 0) return d[i];
    return nullptr;
}

namespace {
bool has_extension(const Decoder* d, const char* path) {
    const char* dot = path ? std::strrchr(path, '.') : nullptr;
    if (!dot) return false;
    const size_t len = std::strlen(dot);
    for (const char* e = d->extensions; (e = std::strstr(e, dot)) != nullptr; e += len)
        if (e[len] == ' ' || e[len] == 0) return true;
    return false;
}
}  // namespace

const Decoder* detect_decoder(const uint8_t* data, size_t size, const char* path) {
    int n = 0;
    const Decoder* const* d = decoders(&n);
    const Decoder* best = nullptr;
    int best_score = 0;
    for (int i = 0; i < n; ++i) {
        const int score = d[i]->probe(data, size) * 2 + (has_extension(d[i], path) ? 1 : 0);
        if (score > best_score) {
            best = d[i];
            best_score = score;
        }
    }
    return best_score >= 2 ? best : nullptr;
}

}  // namespace kplvc::codecs
