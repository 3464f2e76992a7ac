// The exported word-oriented writers.
//
// A position is a pointer to the current 32-bit word (a native integer) and
// the number of bits still free in it, 1..32 (32 = empty word). Neither
// writer checks its arguments; the shifts take their count modulo 32 like the
// x86 shift instructions, which is what makes a 32-bit shift of the word a
// no-op in the first writer.
#include "core/bitstream.h"

#include "core/arith.h"
#include "kplvc.h"

using kplvc::_kplGetBitsMask;
using kplvc::load32u;
using kplvc::shl32;
using kplvc::shr32;
using kplvc::store32u;

extern "C" {

// The word collects bits at its low end and shifts the earlier ones up; a
// completed word has its first bit at bit 31.
KPLVC_API KplStatus kpliPutBitsLeftMost(Kpl32u** ppBitStream, Kpl32s* pBitOffset, Kpl32u code, Kpl32s nBits) {
    Kpl32u* p = *ppBitStream;
    const Kpl32s f = *pBitOffset;
    const uint32_t word = load32u(p);
    if (nBits < f) {
        store32u(p, shl32(word, nBits) | (code & _kplGetBitsMask[nBits & 63]));
        *pBitOffset = f - nBits;
    } else if (nBits == f) {
        store32u(p, shl32(word, nBits) | (code & _kplGetBitsMask[nBits & 63]));
        *ppBitStream = p + 1;
        *pBitOffset = 32;
    } else {
        // The first f bits of the code complete this word, the other
        // nBits - f (1..31) start the next one.
        const Kpl32s rest = nBits - f;
        store32u(p, shl32(word, f) | (shr32(code, rest) & _kplGetBitsMask[f & 63]));
        store32u(p + 1, code & _kplGetBitsMask[rest & 63]);
        *ppBitStream = p + 1;
        *pBitOffset = f - nBits + 32;
    }
    return kplStsNoErr;
}

// Bits are ORed in from bit 31 downwards; the word (and the next one, when
// a code ends exactly at a word's end) must start at zero.
KPLVC_API KplStatus kpliPutBitsRightMost(Kpl32u** ppBitStream, Kpl32s* pBitOffset, Kpl32u code,
                                         Kpl32s nBits) {
    Kpl32u* p = *ppBitStream;
    const Kpl32s f = *pBitOffset;
    const uint32_t word = load32u(p);
    if (nBits < f) {
        store32u(p, word | shl32(code & _kplGetBitsMask[nBits & 63], f - nBits));
        *pBitOffset = f - nBits;
    } else if (nBits == f) {
        store32u(p, word | (code & _kplGetBitsMask[nBits & 63]));
        *ppBitStream = p + 1;
        *pBitOffset = 32;
    } else {
        const Kpl32s rest = nBits - f;  // 1..31 bits for the next word
        store32u(p, word | (shr32(code, rest) & _kplGetBitsMask[f & 63]));
        store32u(p + 1, shl32(code & _kplGetBitsMask[rest & 63], 32 - rest));
        *ppBitStream = p + 1;
        *pBitOffset = f - nBits + 32;
    }
    return kplStsNoErr;
}

}  // extern "C"
