// The MPEG-4 decoder's display post-filters (`kplvc decode --postfilter`):
// a picture handed out is copied, deblocked (horizontal edges, then
// vertical ones) and deringed with the QP of each of its macroblocks, as
// ISO/IEC 14496-2 Annex F.3 describes for display. The references the
// decoder predicts from are never filtered.
#include <cstring>

#include "decoder.h"

namespace kplvc::codecs::mpeg4 {

const Frame& Mpeg4Decoder::postfiltered(const Frame& f) {
    if (post_[0].empty() || post_[0].width() != f.width() || post_[0].height() != f.height())
        for (Frame& p : post_) p = Frame(f.width(), f.height(), Chroma::c420, 16);
    // The filters work on whole macroblocks: the decoded area, up to 15
    // samples past the picture, lies within both frames' padding.
    const std::vector<uint8_t>& qp = qp_map_[&f - pool_.data()];
    for (int p = 0; p < 3; ++p) {
        const int n = p ? 8 : 16;
        const KpliSize roi = {mb_w_ * n, mb_h_ * n};
        Frame &a = post_[0], &b = post_[1];
        for (int y = 0; y < roi.height; ++y)
            std::memcpy(a.data(p) + static_cast<intptr_t>(y) * a.stride(p),
                        f.data(p) + static_cast<intptr_t>(y) * f.stride(p), static_cast<size_t>(roi.width));
        kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR(a.data(p), a.stride(p), roi, qp.data(), mb_w_, n);
        kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR(a.data(p), a.stride(p), roi, qp.data(), mb_w_, n);
        kpliFilterDeringing_MPEG4_8u_C1R(a.data(p), a.stride(p), b.data(p), b.stride(p), roi, qp.data(),
                                         mb_w_, n);
    }
    return post_[1];
}

}  // namespace kplvc::codecs::mpeg4
