#include "common/encoder.h"

#include <cstring>

namespace kplvc::codecs {

namespace h263 {
extern const EncoderInfo kH263Encoder;
}
namespace mpeg4 {
extern const EncoderInfo kMpeg4Encoder;
}

// Each format defines its EncoderInfo beside its code; list it here, before
// the terminating null.
static const EncoderInfo* const kEncoders[] = {
    &h263::kH263Encoder,
    &mpeg4::kMpeg4Encoder,
    nullptr,
};

const EncoderInfo* const* encoders(int* count) {
    int n = 0;
    while (kEncoders[n]) ++n;
    *count = n;
    return kEncoders;
}

const EncoderInfo* find_encoder(const char* name) {
    int n = 0;
    const EncoderInfo* const* e = encoders(&n);
    for (int i = 0; i < n; ++i)
        if (std::strcmp(e[i]->name, name) == 0) return e[i];
    return nullptr;
}

}  // namespace kplvc::codecs
