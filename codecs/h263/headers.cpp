// Picture, GOB and slice headers of H.263 and H.263+ (PLUSPTYPE).
#include "headers.h"

#include <cstdio>

namespace kplvc::codecs::h263 {

namespace {

void fail(char* why, size_t n, const char* text) { std::snprintf(why, n, "%s", text); }

}  // namespace

// PSC (22 bits) is already consumed.
HeaderStatus parse_picture_header(Bits& b, HeaderState& state, PictureHeader* h, char* why, size_t why_size) {
    PictureHeader ph;
    ph.tr = static_cast<int>(b.get(8));
    // PTYPE: '1', '0', split screen, document camera, freeze release, format.
    if (!b.bit() || b.bit()) {
        fail(why, why_size, "damaged picture header (PTYPE marker bits)");
        return HeaderStatus::damaged;
    }
    b.skip(3);
    const int format = static_cast<int>(b.get(3));
    if (format == 0 || format == 6) {
        fail(why, why_size, "reserved source format");
        return HeaderStatus::damaged;
    }
    if (format != 7) {
        // H.263 (1996) header.
        ph.format = format;
        format_size(format, &ph.width, &ph.height);
        ph.type = b.bit() ? 1 : 0;
        ph.modes.umv = b.bit();
        ph.modes.sac = b.bit();
        ph.modes.ap = b.bit();
        ph.modes.pb = b.bit();
        ph.quant = static_cast<int>(b.get(5));
        ph.cpm = b.bit();
        if (ph.cpm) b.skip(2);           // PSBI
        if (ph.modes.pb) b.skip(3 + 2);  // TRB, DBQUANT
    } else {
        // PLUSPTYPE: UFEP, then OPPTYPE when UFEP is 001, then MPPTYPE.
        ph.modes.plus = true;
        const uint32_t ufep = b.get(3);
        if (ufep != 0 && ufep != 1) {
            fail(why, why_size, "damaged picture header (UFEP)");
            return HeaderStatus::damaged;
        }
        if (ufep == 1) {
            const uint32_t op = b.get(18);
            Modes m;
            m.plus = true;
            const int f = static_cast<int>(op >> 15);
            m.pcf = (op >> 14) & 1;
            m.umv = (op >> 13) & 1;
            m.sac = (op >> 12) & 1;
            m.ap = (op >> 11) & 1;
            m.aic = (op >> 10) & 1;
            m.df = (op >> 9) & 1;
            m.ss = (op >> 8) & 1;
            m.rps = (op >> 7) & 1;
            m.isd = (op >> 6) & 1;
            m.aiv = (op >> 5) & 1;
            m.mq = (op >> 4) & 1;
            if ((op & 15) != 8 || f == 0 || f == 7) {
                fail(why, why_size, "damaged picture header (OPPTYPE)");
                return HeaderStatus::damaged;
            }
            state.modes = m;
            state.format = f;
            state.have_opptype = true;
        } else if (!state.have_opptype) {
            fail(why, why_size, "H.263+ picture header refers to options never sent");
            return HeaderStatus::damaged;
        }
        ph.modes = state.modes;
        ph.format = state.format;
        const uint32_t mp = b.get(9);
        ph.type = static_cast<int>(mp >> 6);
        const bool rpr = (mp >> 5) & 1, rru = (mp >> 4) & 1;
        ph.rtype = static_cast<int>((mp >> 3) & 1);
        if ((mp & 7) != 1) {
            fail(why, why_size, "damaged picture header (MPPTYPE)");
            return HeaderStatus::damaged;
        }
        if (rpr || rru) {
            fail(why, why_size,
                 "reference picture resampling and reduced-resolution update are not supported");
            return HeaderStatus::unsupported;
        }
        ph.cpm = b.bit();
        if (ph.cpm) b.skip(2);  // PSBI
        if (ufep == 1 && ph.format == kCustom) {
            // CPFMT: PAR (4), width indication (9), '1', height indication (9).
            ph.par = static_cast<int>(b.get(4));
            const int pwi = static_cast<int>(b.get(9));
            if (!b.bit()) {
                fail(why, why_size, "damaged picture header (CPFMT marker)");
                return HeaderStatus::damaged;
            }
            const int phi = static_cast<int>(b.get(9));
            if (phi == 0) {
                fail(why, why_size, "damaged picture header (height 0)");
                return HeaderStatus::damaged;
            }
            if (ph.par == 15) b.skip(16);  // EPAR
            state.width = (pwi + 1) * 4;
            state.height = phi * 4;
            state.par = ph.par;
        }
        if (ph.format == kCustom) {
            if (state.width == 0) {
                fail(why, why_size, "custom picture format never sent");
                return HeaderStatus::damaged;
            }
            ph.width = state.width;
            ph.height = state.height;
            ph.par = state.par;
        } else {
            format_size(ph.format, &ph.width, &ph.height);
        }
        if (ph.modes.pcf) {
            if (ufep == 1) {
                state.clock_code = static_cast<int>(b.get(1));
                state.clock_div = static_cast<int>(b.get(7));
            }
            ph.clock_code = state.clock_code;
            ph.clock_div = state.clock_div;
            ph.tr |= static_cast<int>(b.get(2)) << 8;  // ETR
        }
        if (ufep == 1 && ph.modes.umv) {
            // UUI: '1' limited range, '01' unlimited.
            state.modes.uui = b.bit() ? 1 : (b.bit() ? 2 : 0);
            if (state.modes.uui == 0) {
                fail(why, why_size, "damaged picture header (UUI)");
                return HeaderStatus::damaged;
            }
            ph.modes.uui = state.modes.uui;
        }
        if (ufep == 1 && ph.modes.ss) {
            state.modes.sss = static_cast<int>(b.get(2));
            ph.modes.sss = state.modes.sss;
        }
        if (ph.type >= 2) {
            fail(why, why_size,
                 ph.type == 2 ? "improved PB-frames (Annex M) are not supported"
                              : "B, EI and EP pictures (Annex O scalability) are not supported");
            return HeaderStatus::unsupported;
        }
        ph.quant = static_cast<int>(b.get(5));
    }
    // PEI / PSUPP
    int extra = 0;
    while (b.bit()) {
        b.skip(8);
        if (++extra > 256) {
            fail(why, why_size, "damaged picture header (PSUPP)");
            return HeaderStatus::damaged;
        }
    }
    if (ph.modes.sac) {
        fail(why, why_size, "syntax-based arithmetic coding (Annex E) is not supported");
        return HeaderStatus::unsupported;
    }
    if (ph.modes.pb) {
        fail(why, why_size, "PB-frames (Annex G) are not supported");
        return HeaderStatus::unsupported;
    }
    if (ph.modes.rps || ph.modes.isd) {
        fail(why, why_size,
             "reference picture selection (Annex N) and independent segments (Annex R) are not supported");
        return HeaderStatus::unsupported;
    }
    if (ph.modes.ss && (ph.modes.sss & 1)) {
        fail(why, why_size, "rectangular slices (Annex K) are not supported");
        return HeaderStatus::unsupported;
    }
    if (ph.quant < 1 || ph.width < 4 || ph.height < 4) {
        fail(why, why_size, "damaged picture header (PQUANT or size)");
        return HeaderStatus::damaged;
    }
    *h = ph;
    return HeaderStatus::ok;
}

}  // namespace kplvc::codecs::h263
