/*
 * kplvc - bit-exact video-coding primitives.
 *
 * The one public header of the library (libkplvca6.so). Usable from C (C99 and later) and C++.
 * Every function returns a KplStatus (0 success, negative error, +11 warning)
 * unless its comment says otherwise. Arguments are checked before any output is
 * touched: a failing call leaves every buffer, stream pointer and result cell as
 * it was. Row steps are in bytes. Coefficient blocks are 64 Kpl16s in row-major
 * order (index 8*row + column) unless a comment says otherwise.
 */
#ifndef KPLVC_H
#define KPLVC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(KPLVC_BUILDING)
#define KPLVC_API __attribute__((visibility("default")))
#else
#define KPLVC_API
#endif

/* The library's version: the one place it is written. The build takes the
 * package version (major.minor.majorBuild) and the shared object's name
 * (libkplvc<target>.so) from these lines, and kplvcGetLibVersion() returns a
 * record made from them. */
#define KPLVC_VERSION_MAJOR 4
#define KPLVC_VERSION_MINOR 1
#define KPLVC_VERSION_MAJOR_BUILD 10
#define KPLVC_VERSION_BUILD 38
#define KPLVC_VERSION_TARGET "a6"
#define KPLVC_VERSION_DATE "Jul 22 2004"

/* ------------------------------------------------------------------------ */
/* Scalar types                                                              */
/* ------------------------------------------------------------------------ */
typedef uint8_t Kpl8u;
typedef int16_t Kpl16s;
typedef uint16_t Kpl16u;
typedef int32_t Kpl32s;
typedef uint32_t Kpl32u;
typedef float Kpl32f;

/* Result of every checking function. */
typedef int32_t KplStatus;

/* ------------------------------------------------------------------------ */
/* Status codes                                                              */
/* ------------------------------------------------------------------------ */
enum {
    kplStsNoErr = 0,             /* success */
    kplStsNoNeighbourWrn = 11,   /* H.264 4x4 intra: 128 used for an absent neighbour */
    kplStsErr = -2,              /* no specific status */
    kplStsBadArgErr = -5,        /* argument outside its allowed set */
    kplStsSizeErr = -6,          /* length, width, height or count below 1 */
    kplStsNullPtrErr = -8,       /* a required pointer is null */
    kplStsMemAllocErr = -9,      /* the system allocator failed */
    kplStsDivByZeroErr = -10,    /* zero quantiser given to an MPEG-2 quantiser */
    kplStsOutOfRangeErr = -11,   /* H.264 parameter outside the standard's range */
    kplStsLevelRangeErr = -13,   /* H.264 level magnitude above 2063 */
    kplStsStepErr = -14,         /* row step too small or below 1 */
    kplStsCoefCountErr = -72,    /* coefficient position beyond 63 / count outside 1..64 */
    kplStsIntraDCErr = -73,      /* H.263 fixed-length intra DC equal to 0 or 128 */
    kplStsVLCErr = -74,          /* illegal variable-length code */
    kplStsH263MVCodeErr = -75,   /* no H.263 MVD code matches */
    kplStsH263QPErr = -76,       /* H.263 quantiser outside 1..31 */
    kplStsFrameStepErr = -77,    /* frame step smaller than the expanded width */
    kplStsFrameExpandErr = -78,  /* frame expansion size below 8 */
    kplStsFrameHeightErr = -79,  /* frame height below 1 */
    kplStsFrameWidthErr = -80,   /* frame width below 8 */
    kplStsMBStepErr = -81,       /* macroblock row step below 16 (8 for chroma) */
    kplStsBlockStepErr = -82,    /* 8x8 block row step below 8 */
    kplStsAdvIntraModeErr = -83, /* H.263 advanced-intra mode not 1, 2 or 3 */
    kplStsModeErr = -90,         /* two-valued mode neither 0 nor 1 */
    kplStsMode2Err = -91,        /* second two-valued mode neither 0 nor 1 */
    kplStsBitsPerPixelErr = -92, /* bits per pixel outside 4..12 */
    kplStsPredDirErr = -93,      /* AC/DC prediction direction not 0, 1 or 2 */
    kplStsPadErr = -94,          /* padding helper given a zero count */
    kplStsBlockSizeErr = -95,    /* unsupported block size */
    kplStsTimeDistErr = -96,     /* temporal distance below 1 */
    kplStsAlignErr = -97,        /* pointer not aligned to 4 bytes */
    kplStsFcodeErr = -98,        /* f_code outside 1..7 */
    kplStsMarkerErr = -99,       /* marker bit is 0 */
    kplStsTextureVLCErr = -100,  /* illegal MPEG-4 texture code */
    kplStsMVCodeErr = -101,      /* illegal MPEG-4 motion-vector code */
    kplStsBlockIndexErr = -103,  /* MPEG-4 block index outside 0..9 */
    kplStsMPEG4QPErr = -104,     /* MPEG-4 quantiser outside 1..31 */
    kplStsShapeArgErr = -105,    /* bit offset outside 0..7 / shape argument */
    kplStsMCBPCIntraErr = -109,  /* no intra MCBPC code matches */
    kplStsMCBPCInterErr = -110,  /* no inter MCBPC code matches */
    kplStsCBPYErr = -111,        /* no CBPY code matches */
    kplStsNeighbourErr = -117,   /* H.264 intra mode needs an absent neighbour */
    kplStsStep16x16Err = -168,   /* step below 16 for kpliCopyBlock_16x16_8u */
    kplStsStep8x8Err = -169      /* step below 8 for an 8x8 copy/reconstruction */
};

/* ------------------------------------------------------------------------ */
/* Records                                                                   */
/* ------------------------------------------------------------------------ */
typedef struct {
    Kpl32s width;
    Kpl32s height;
} KpliSize;

typedef struct {
    Kpl32s x;
    Kpl32s y;
    Kpl32s width;
    Kpl32s height;
} KpliRect;

/* Half-sample units unless a function says quarter-sample. */
typedef struct {
    Kpl16s dx;
    Kpl16s dy;
} KplMotionVector;

/* The version record (KPLVC_VERSION_* above). */
typedef struct {
    Kpl32s major;          /* KPLVC_VERSION_MAJOR */
    Kpl32s minor;          /* KPLVC_VERSION_MINOR */
    Kpl32s majorBuild;     /* KPLVC_VERSION_MAJOR_BUILD */
    Kpl32s build;          /* KPLVC_VERSION_BUILD */
    char targetCpu[4];     /* KPLVC_VERSION_TARGET, zero-filled */
    const char* Name;      /* "libkplvc" KPLVC_VERSION_TARGET ".so" */
    const char* Version;   /* "v<major>.<minor>" */
    const char* BuildDate; /* KPLVC_VERSION_DATE */
} KplLibraryVersion;

/* Sub-sample position codes (mcType). Only bits 2 and 3 are read:
 * FF full/full, FH full horizontally and half vertically, HF half
 * horizontally and full vertically, HH half/half. */
#define KPLVC_MC_APX_FF 0
#define KPLVC_MC_APX_FH 4
#define KPLVC_MC_APX_HF 8
#define KPLVC_MC_APX_HH 12

/* ------------------------------------------------------------------------ */
/* Library                                                                   */
/* ------------------------------------------------------------------------ */

/* Returns the library's constant version record (never null, never freed;
 * every call returns the same pointer). */
KPLVC_API const KplLibraryVersion* kplvcGetLibVersion(void);

/* ------------------------------------------------------------------------ */
/* Memory and vector functions                                               */
/* ------------------------------------------------------------------------ */

/* Allocates len bytes aligned to 32. Returns null when len < 1 (the system
 * allocator is then not called) or when the allocator fails. Free with
 * kplsFree. */
KPLVC_API Kpl8u* kplsMalloc_8u(Kpl32s len);

/* Releases a block from kplsMalloc_8u; a null ptr is ignored. */
KPLVC_API void kplsFree(void* ptr);

/* pDst[i] = val for i < len. Statuses: -8 pDst null; -6 len < 1. */
KPLVC_API KplStatus kplsSet_8u(Kpl8u val, Kpl8u* pDst, Kpl32s len);

/* pDst[i] = val for i < len (16-bit elements). Statuses: -8, -6. */
KPLVC_API KplStatus kplsSet_16s(Kpl16s val, Kpl16s* pDst, Kpl32s len);

/* Sets len 16-bit elements to zero. Statuses: -8 pDst null; -6 len < 1. */
KPLVC_API KplStatus kplsZero_16s(Kpl16s* pDst, Kpl32s len);

/* Copies len bytes; overlapping ranges are not supported.
 * Statuses: -8 either pointer null; -6 len < 1. */
KPLVC_API KplStatus kplsCopy_8u(const Kpl8u* pSrc, Kpl8u* pDst, Kpl32s len);

/* In place x = sat(x * val * 2^-scaleFactor), rounding to nearest with ties
 * to even for scaleFactor > 0; val 0 zeroes the vector; scaleFactor > 30
 * zeroes it; scaleFactor < 0 scales up with saturation.
 * Statuses: -8 pSrcDst null; -6 len < 1. */
KPLVC_API KplStatus kplsMulC_16s_ISfs(Kpl16s val, Kpl16s* pSrcDst, Kpl32s len, Kpl32s scaleFactor);

/* relOp 4 (greater): elements above level become level; any other relOp
 * (less): elements below level become level.
 * Statuses: -8 pSrcDst null; -6 len < 1. */
KPLVC_API KplStatus kplsThreshold_16s_I(Kpl16s* pSrcDst, Kpl32s len, Kpl16s level, Kpl32s relOp);

/* Fills roiSize.height rows of roiSize.width bytes, rows dstStep apart (any
 * step >= 1; rows may overlap, later rows win).
 * Statuses: -8 pDst null; -6 width or height < 1; -14 dstStep < 1. */
KPLVC_API KplStatus kpliSet_8u_C1R(Kpl8u val, Kpl8u* pDst, Kpl32s dstStep, KpliSize roiSize);

/* ------------------------------------------------------------------------ */
/* Bit-stream writers (word-oriented)                                        */
/* ------------------------------------------------------------------------ */
/* @bitstream-begin */
/* Word-oriented writers. The position is *ppBitStream, the current 32-bit
 * word (a native integer), and *pBitOffset, the bits still free in it (1..32,
 * 32 = empty word). nBits (1..32) low bits of code are written; the position
 * advances by nBits, moving to the next word when the current one fills.
 * Nothing is checked (null pointers or nBits outside 1..32 are undefined);
 * both always return kplStsNoErr.
 *
 * kpliPutBitsLeftMost: the word collects bits at its low end and shifts the
 * earlier ones up (shift counts are taken modulo 32, so a 32-bit code written
 * into an empty word is ORed into it unshifted); a completed word has its
 * first bit at bit 31. Start from an empty, zeroed word. The word that
 * receives the rest of a code that crosses a word end is overwritten. */
KPLVC_API KplStatus kpliPutBitsLeftMost(Kpl32u** ppBitStream, Kpl32s* pBitOffset, Kpl32u code, Kpl32s nBits);

/* kpliPutBitsRightMost: bits are ORed in from bit 31 downwards. The current
 * word must start at zero, and so must the next one when a code ends exactly
 * at the word's end (it is not touched then); a code crossing the end
 * overwrites the next word with its remaining bits. */
KPLVC_API KplStatus kpliPutBitsRightMost(Kpl32u** ppBitStream, Kpl32s* pBitOffset, Kpl32u code, Kpl32s nBits);
/* @bitstream-end */

/* ------------------------------------------------------------------------ */
/* Generic VLC tables                                                        */
/* ------------------------------------------------------------------------ */
/* @vlc-begin */
/* Generic VLC tables.
 *
 * Description (pInputTable): [0] not read; [1] L, the number of lookup levels;
 * [2 .. L+1] the bits each level looks up; then, for code lengths 1, 2, 3, ...
 * in turn, a count n (0 allowed) followed by n records (code, value) -- or
 * (code, value1, value2) for the RL form -- with the code right-aligned; a
 * negative count ends the list.
 *
 * The table is one kplsMalloc_8u block of 16384 words (RL form: 262144),
 * every word first set to the invalid entry 0x00F0F101; word 0 holds the
 * first level's bit count, then its entries; sub-tables (a bit-count word and
 * 2^b entries) follow in the order they are first needed. Leaves are
 * value << 8 | u (RL: value2 << 16 | (value1 & 0xFF) << 8 | u), u being the
 * looked-up bits to give back; links are w << 8 | 0x80.
 *
 * Not detected (no status): a description that is not prefix-free (a longer
 * code replaces the entries of the shorter one it extends), or one that needs
 * more sub-table space than the block holds, more levels than L, or a level
 * wider than the block. The parts that do not fit are left out of the table
 * (those codes then decode as invalid, and a first level wider than the block
 * gives a table that matches nothing); nothing is written outside the block.
 *
 * Statuses: -8 pInputTable or ppDstSpec null; -9 the allocation failed. */
KPLVC_API KplStatus kpliVCHuffmanInitAlloc_32s(const Kpl32s* pInputTable, Kpl32s** ppDstSpec);

/* As kpliVCHuffmanInitAlloc_32s, for three-value records (run-level codes);
 * value1 is kept to 8 bits. Statuses: -8, -9. */
KPLVC_API KplStatus kpliVCHuffmanInitAllocRL_32s(const Kpl32s* pInputTable, Kpl32s** ppDstSpec);

/* Decodes one code word. Position: *ppBitStream, the current 32-bit word (a
 * native integer read from bit 31 down), and *pOffset, the index of the next
 * bit in it (31 = most significant; 0..31). Words are read only as far as the
 * code needs, plus the rest of the last level looked up. On success stores
 * the value (entry >> 8) in *pDst, leaves the position just after the code
 * and returns 0. A bit pattern that begins no code stores 0xF0F1 in *pDst,
 * returns -74 and leaves the position after the looked-up bits (save it
 * beforehand to resynchronise). pOffset and pDst are not checked.
 * Statuses: -8 ppBitStream, *ppBitStream or pDecodeTable null; -74. */
KPLVC_API KplStatus kpliVCHuffmanDecodeOne_1u32s(Kpl32u** ppBitStream, Kpl32s* pOffset, Kpl32s* pDst,
                                                 const Kpl32s* pDecodeTable);

/* Frees a table built above and sets *ppSpec to null; a null *ppSpec is left
 * alone (freeing twice through the same pointer is harmless).
 * Statuses: -8 ppSpec null. */
KPLVC_API KplStatus kpliVCHuffmanFree_32s(Kpl32s** ppSpec);
/* @vlc-end */

/* ------------------------------------------------------------------------ */
/* Block copy, set and difference                                            */
/* ------------------------------------------------------------------------ */
/* @block-begin */
/* Copies an 8x8 block, row starts advancing by srcStep and dstStep.
 * Statuses: -8 pSrc or pDst null; -169 srcStep or dstStep below 8. */
KPLVC_API KplStatus kpliCopyBlock_8x8_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep);
/* Copies a 16x16 block.
 * Statuses: -8 pSrc or pDst null; -168 srcStep or dstStep below 16. */
KPLVC_API KplStatus kpliCopyBlock_16x16_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep);
/* 8x8 motion compensation without residual: kpliMC8x8_8u_C1 with a zero
 * residual and mcType 0, 4, 8 for predType 0, 1, 2 (12 for any other value),
 * roundControl 0 (so half-sample averages round up). Returns the status of
 * kpliMC8x8_8u_C1 (-8 when pSrc or pDst is null). */
KPLVC_API KplStatus kpliMCBlock_RoundOff_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep,
                                            Kpl32s predType);
/* As kpliMCBlock_RoundOff_8u with roundControl 1 (half-sample averages
 * truncate). */
KPLVC_API KplStatus kpliMCBlock_RoundOn_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep,
                                           Kpl32s predType);

/* Difference between a current block and its prediction from pSrcRef at
 * position mcType & 12 (FF, FH, HF, HH as for kpliMC16x16_8u_C1) with
 * rc = roundControl: pDstDiff(x, y) = cur(x, y) - p as Kpl16s; when
 * pDstPredictor is not null, pDstPredictor(x, y) = p. All steps in bytes.
 * roundControl is meant to be 0 or 1; any non-zero value acts as 1.
 * Statuses: -8 when pSrcCur, pSrcRef or pDstDiff is null; steps, mcType and
 * roundControl are not checked; pDstPredictor may be null. */
KPLVC_API KplStatus kpliGetDiff16x16_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                              Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                              Kpl16s* pDstPredictor, Kpl32s dstPredictorStep, Kpl32s mcType,
                                              Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for a 16x8 block. */
KPLVC_API KplStatus kpliGetDiff16x8_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                             Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                             Kpl16s* pDstPredictor, Kpl32s dstPredictorStep, Kpl32s mcType,
                                             Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for an 8x16 block. */
KPLVC_API KplStatus kpliGetDiff8x16_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                             Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                             Kpl16s* pDstPredictor, Kpl32s dstPredictorStep, Kpl32s mcType,
                                             Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for an 8x8 block. */
KPLVC_API KplStatus kpliGetDiff8x8_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                            Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                            Kpl16s* pDstPredictor, Kpl32s dstPredictorStep, Kpl32s mcType,
                                            Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for an 8x4 block. */
KPLVC_API KplStatus kpliGetDiff8x4_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                            Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                            Kpl16s* pDstPredictor, Kpl32s dstPredictorStep, Kpl32s mcType,
                                            Kpl32s roundControl);

/* Bidirectional difference: f predicted from pSrcRefF at mcTypeF & 12, b from
 * pSrcRefB at mcTypeB & 12, both with rc = roundControl;
 * pDstDiff(x, y) = (2*cur - f - b) >> 1 (arithmetic shift), that is
 * cur - ((f + b + 1) >> 1). No prediction is returned.
 * Statuses: -8 when pSrcCur, pSrcRefF, pSrcRefB or pDstDiff is null; steps,
 * mcTypes and roundControl are not checked. */
KPLVC_API KplStatus kpliGetDiff16x16B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRefF,
                                               Kpl32s srcRefFStep, Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                               Kpl32s srcRefBStep, Kpl32s mcTypeB, Kpl16s* pDstDiff,
                                               Kpl32s dstDiffStep, Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for a 16x8 block. */
KPLVC_API KplStatus kpliGetDiff16x8B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRefF,
                                              Kpl32s srcRefFStep, Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                              Kpl32s srcRefBStep, Kpl32s mcTypeB, Kpl16s* pDstDiff,
                                              Kpl32s dstDiffStep, Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for an 8x16 block. */
KPLVC_API KplStatus kpliGetDiff8x16B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRefF,
                                              Kpl32s srcRefFStep, Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                              Kpl32s srcRefBStep, Kpl32s mcTypeB, Kpl16s* pDstDiff,
                                              Kpl32s dstDiffStep, Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for an 8x8 block. */
KPLVC_API KplStatus kpliGetDiff8x8B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRefF,
                                             Kpl32s srcRefFStep, Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                             Kpl32s srcRefBStep, Kpl32s mcTypeB, Kpl16s* pDstDiff,
                                             Kpl32s dstDiffStep, Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for an 8x4 block. */
KPLVC_API KplStatus kpliGetDiff8x4B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRefF,
                                             Kpl32s srcRefFStep, Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                             Kpl32s srcRefBStep, Kpl32s mcTypeB, Kpl16s* pDstDiff,
                                             Kpl32s dstDiffStep, Kpl32s roundControl);
/* pDstDiff(x, y) = cur(x, y) - ref(x, y) for a 4x4 block at full-sample
 * position. Statuses: -8 when pSrcCur, pSrcRef or pDstDiff is null. */
KPLVC_API KplStatus kpliGetDiff4x4_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                            Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep);
/* @block-end */

/* ------------------------------------------------------------------------ */
/* Block matching metrics                                                    */
/* ------------------------------------------------------------------------ */
/* @metrics-begin */
/* Block-matching metrics. Sub-sample positions take the KPLVC_MC_APX_*
 * values; a half position predicts (a + b + 1) >> 1 and the centre of four
 * (a + b + c + d + 2) >> 2 (no rounding control). A half position reads one
 * more column and/or row of the reference than the block. Steps and mcType
 * are never checked. Every function returns 0 after its work. */

/* *pSAD = sum of |cur - pred| over 16x16, pred at position mcType >> 2
 * (mcType 0..15; larger values are a caller error and are reduced modulo 4).
 * Statuses: -8 pSrc or pRef null. pSAD is not checked: when it is null
 * nothing is written and 0 is returned. */
KPLVC_API KplStatus kpliSAD16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                                       Kpl32s* pSAD, Kpl32s mcType);

/* As kpliSAD16x16_8u32s over 8x8, with the position chosen by exact value:
 * 0 full, 8 horizontal half, 4 vertical half, any other value (1, 2, 12,
 * ...) the centre of four. Statuses: -8 pSrc or pRef null; a null pSAD is
 * not checked (nothing written, 0 returned). */
KPLVC_API KplStatus kpliSAD8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                                         Kpl32s* pSAD, Kpl32s mcType);

/* *pSAD = full-sample SAD over 4x4. Statuses: -8 pSrc, pRef or pSAD null. */
KPLVC_API KplStatus kpliSAD4x4_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                                     Kpl32s* pSAD);

/* pDstSAD[0..3] = full-sample SADs of the four 8x8 quarters of a 16x16
 * block, raster order. Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliSAD16x16Blocks8x8_8u16u(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, Kpl16u* pDstSAD);

/* pDstSAD[0..15] = full-sample SADs of the sixteen 4x4 sub-blocks of a
 * 16x16 block, raster order. Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliSAD16x16Blocks4x4_8u16u(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, Kpl16u* pDstSAD);

/* *pSqrDiff = sum of (cur - pred)^2 over 16x16, pred at position mcType & 12.
 * Statuses: -8 pSrc, pRef or pSqrDiff null. */
KPLVC_API KplStatus kpliSqrDiff16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                           Kpl32s refStep, Kpl32s mcType, Kpl32s* pSqrDiff);

/* *pSqrDiff = sum of ((pF + pB + 1) >> 1 - cur)^2 over 16x16, pF from pRefF
 * at mcTypeF & 12, pB from pRefB at mcTypeB & 12.
 * Statuses: -8 pSrc, pRefF, pRefB or pSqrDiff null. */
KPLVC_API KplStatus kpliSqrDiff16x16B_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRefF,
                                            Kpl32s refFStep, Kpl32s mcTypeF, const Kpl8u* pRefB,
                                            Kpl32s refBStep, Kpl32s mcTypeB, Kpl32s* pSqrDiff);

/* With S = sum x and Q = sum x^2 over 16x16: *pVar = Q - (S * S) / 256, the
 * product taken modulo 2^32 as a signed value (it wraps for bright blocks)
 * and the quotient truncated toward zero. 256 times the variance.
 * Statuses: -8 pSrc or pVar null. */
KPLVC_API KplStatus kpliVariance16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pVar);

/* Over 8x8: *pVar = (64 Q - S * S) / 4096 truncated toward zero (the
 * variance), *pMean = S (the plain sum). Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliVarMean8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pVar, Kpl32s* pMean);

/* As kpliVarMean8x8_8u32s_C1R on signed 16-bit samples (srcStep in bytes):
 * S and Q are 32-bit sums (Q wraps modulo 2^32 and is read as signed), the
 * variance is formed in 64 bits. Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliVarMean8x8_16s32s_C1R(const Kpl16s* pSrc, Kpl32s srcStep, Kpl32s* pVar,
                                              Kpl32s* pMean);

/* Per 8x8 quarter k (raster order) of the prediction error d = cur - pred,
 * pred at mcType & 12: pMean[k] = (pSrcSum[k] - sum pred) / 8 and
 * pVar[k] = (sum d^2 - pMean[k]^2) / 64, or 0 when that is not positive
 * (divisions truncate toward zero). pSrcSum[k] is the caller's sum of the
 * current samples of quarter k. Four quarters. Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliVarMeanDiff16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                   Kpl32s refStep, const Kpl32s* pSrcSum, Kpl32s* pVar,
                                                   Kpl32s* pMean, Kpl32s mcType);

/* As kpliVarMeanDiff16x16_8u32s_C1R for a 16x8 block (two quarters). */
KPLVC_API KplStatus kpliVarMeanDiff16x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const Kpl32s* pSrcSum, Kpl32s* pVar,
                                                  Kpl32s* pMean, Kpl32s mcType);

/* *pDst = sum over 16x16 of |x - m|, m = (sum x + 128) >> 8.
 * Statuses: -8 pSrc null. pDst is not checked: when it is null nothing is
 * written and 0 is returned. */
KPLVC_API KplStatus kpliMeanAbsDev16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pDst);

/* *pRes = 1 when the block has more edge samples than EdgePelCount, else 0.
 * Rows 0..14 are scanned in order; sample (x, y), x < 15, is an edge sample
 * when min(|p(x,y) - p(x+1,y)|, 127) or min(|p(x,y) - p(x,y+1)|, 127)
 * exceeds EdgePelDifference compared as signed bytes (128..255 count every
 * sample). After each row, with n the edges so far, the scan stops with 1
 * when (255 n) mod 256 < (-EdgePelCount) mod 256 as unsigned bytes, so a
 * first row without edges yields 1 for any non-zero EdgePelCount.
 * Statuses: -8 pSrc or pRes null. */
KPLVC_API KplStatus kpliEdgesDetect16x16_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u EdgePelDifference,
                                                Kpl8u EdgePelCount, Kpl8u* pRes);

/* pSums[k] = sum of pSrc - pPred over 4x4 sub-block k (raster order, 16
 * sub-blocks). When pDiff is not null it receives the differences sub-block
 * by sub-block: pDiff[16k + 4 row + column]. Statuses: -8 pSrc, pPred or
 * pSums null. */
KPLVC_API KplStatus kpliSumsDiff16x16Blocks4x4_8u16s_C1(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pPred,
                                                        Kpl32s predStep, Kpl16s* pSums, Kpl16s* pDiff);

/* As kpliSumsDiff16x16Blocks4x4_8u16s_C1 for an 8x8 block (4 sub-blocks). */
KPLVC_API KplStatus kpliSumsDiff8x8Blocks4x4_8u16s_C1(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pPred,
                                                      Kpl32s predStep, Kpl16s* pSums, Kpl16s* pDiff);

/* *pCount = number of the 64 coefficients equal to 0.
 * Statuses: -8 pSrc or pCount null. */
KPLVC_API KplStatus kpliCountZeros8x8_16s_C1(const Kpl16s* pSrc, Kpl32s* pCount);

/* pDst[8y + x] = src(x, y) - pRef[8y + x] over 8x8 (pRef packed, 8 bytes a
 * row), *pDstSAD = sum of |pDst[i]|. Statuses: -5 (not -8) any pointer null. */
KPLVC_API KplStatus kpliComputeTextureErrorBlock_SAD_8u16s(const Kpl8u* pSrc, Kpl32s srcStep,
                                                           const Kpl8u* pRef, Kpl16s* pDst, Kpl32s* pDstSAD);

/* As kpliComputeTextureErrorBlock_SAD_8u16s without the SAD.
 * Statuses: -5 (not -8) any pointer null. */
KPLVC_API KplStatus kpliComputeTextureErrorBlock_8u16s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                       Kpl16s* pDst);
/* @metrics-end */

/* ------------------------------------------------------------------------ */
/* 8x8 DCT family                                                            */
/* ------------------------------------------------------------------------ */
/* @dct-begin */
/* Coefficient blocks are 64 Kpl16s, row-major (index 8*row + column, row =
 * vertical frequency), except the AANTransposed inputs (index 8*column + row).
 * All return kplStsNoErr on success. */

/* Full 8x8 inverse transform, in place. kplStsNullPtrErr if pSrcDst is null. */
KPLVC_API KplStatus kpliDCT8x8Inv_16s_C1I(Kpl16s* pSrcDst);
/* Full 8x8 inverse transform from pSrc into pDst (they may be the same block).
 * kplStsNullPtrErr if either pointer is null. */
KPLVC_API KplStatus kpliDCT8x8Inv_16s_C1(const Kpl16s* pSrc, Kpl16s* pDst);
/* Inverse of a block whose non-zero coefficients lie in rows 0..3, columns
 * 0..3 (others are ignored), in place; equal to the full inverse on such
 * blocks. kplStsNullPtrErr if pSrcDst is null. */
KPLVC_API KplStatus kpliDCT8x8Inv_4x4_16s_C1I(Kpl16s* pSrcDst);
/* The same for rows 0..1, columns 0..1. kplStsNullPtrErr if pSrcDst is null. */
KPLVC_API KplStatus kpliDCT8x8Inv_2x2_16s_C1I(Kpl16s* pSrcDst);
/* Full inverse, results saturated to 0..255, row k written to pDst + k*dstStep.
 * kplStsNullPtrErr if a pointer is null; kplStsStepErr if dstStep < 1. */
KPLVC_API KplStatus kpliDCT8x8Inv_16s8u_C1R(const Kpl16s* pSrc, Kpl8u* pDst, Kpl32s dstStep);
/* Full inverse, then each value clamped to 0..255 (same bytes as above).
 * Checks in this order: pDst null kplStsNullPtrErr; dstStep < 8
 * kplStsBlockStepErr; pSrc null kplStsNullPtrErr. */
KPLVC_API KplStatus kpliDCTInv_8x8_16s8u(const Kpl16s* pSrc, Kpl8u* pDst, Kpl32s dstStep);
/* Forward transform of 8 rows of 8 samples at pSrc + k*srcStep (no level
 * shift). kplStsNullPtrErr if a pointer is null; kplStsStepErr if srcStep < 1. */
KPLVC_API KplStatus kpliDCT8x8Fwd_8u16s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl16s* pDst);
/* Forward transform of 64 16-bit samples. kplStsNullPtrErr if a pointer is null. */
KPLVC_API KplStatus kpliDCT8x8Fwd_16s_C1(const Kpl16s* pSrc, Kpl16s* pDst);
/* Integer inverse of a transposed block, results clamped to -256..255, row i
 * at pDst + i*dstStep bytes. count = scan index of the last non-zero
 * coefficient + 1: 0 writes zeros, 1 uses the DC only (dc / 8 toward zero),
 * 2..8 reads the top-left 4x4 corner, other values (negative ones included)
 * the whole block. Step and count are not checked. kplStsNullPtrErr if a
 * pointer is null. */
KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s_C1R(const Kpl16s* pSrc, Kpl16s* pDst, Kpl32s dstStep,
                                                        Kpl32s count);
/* The same, results clamped to 0..255 and written as bytes. */
KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s8u_C1R(const Kpl16s* pSrc, Kpl8u* pDst, Kpl32s dstStep,
                                                          Kpl32s count);
/* Two blocks written interleaved: pSrcU (countU) to the even elements of each
 * output row, pSrcV (countV) to the odd ones. kplStsNullPtrErr if a pointer
 * is null. */
KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s_P2C2R(const Kpl16s* pSrcU, const Kpl16s* pSrcV,
                                                          Kpl16s* pDst, Kpl32s dstStep, Kpl32s countU,
                                                          Kpl32s countV);
/* The same with bytes (0..255). */
KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s8u_P2C2R(const Kpl16s* pSrcU, const Kpl16s* pSrcV,
                                                            Kpl8u* pDst, Kpl32s dstStep, Kpl32s countU,
                                                            Kpl32s countV);
/* Forward 2-4-8 (field) transform, in place. kplStsNullPtrErr if null. */
KPLVC_API KplStatus kpliDCT2x4x8Frw_16s_C1I(Kpl16s* pSrcDst);
/* Inverse 2-4-8 (field) transform, in place. kplStsNullPtrErr if null. */
KPLVC_API KplStatus kpliDCT2x4x8Inv_16s_C1I(Kpl16s* pSrcDst);
/* @dct-end */

/* ------------------------------------------------------------------------ */
/* Scan orders and inverse zigzag                                            */
/* ------------------------------------------------------------------------ */
/* @scan-begin */
/* Inverse scans: pDst[scan[i]] = pSrc[i]. pSrc holds coefficients in scan
 * order; pDst is an 8x8 block in raster order. pSrc and pDst must not
 * overlap. The full forms write all 64 positions.
 * Statuses: -8 either pointer null. */
/* Alternate-horizontal scan. */
KPLVC_API KplStatus kpliZigzagInv_Horizontal_16s(const Kpl16s* pSrc, Kpl16s* pDst);
/* Alternate-vertical scan (the MPEG-2 alternate scan). */
KPLVC_API KplStatus kpliZigzagInv_Vertical_16s(const Kpl16s* pSrc, Kpl16s* pDst);

/* Compact forms: only the first len coefficients of the scan (1..64) are
 * placed; the other positions of pDst are not touched (clear it first).
 * Statuses: -8 pSrc or pDst null; -72 len outside 1..64. */
/* Classical zigzag. */
KPLVC_API KplStatus kpliZigzagInvClassical_Compact_16s(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst);
/* Alternate-horizontal scan. */
KPLVC_API KplStatus kpliZigzagInvHorizontal_Compact_16s(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst);
/* Alternate-vertical scan. */
KPLVC_API KplStatus kpliZigzagInvVertical_Compact_16s(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst);
/* @scan-end */

/* ------------------------------------------------------------------------ */
/* Motion compensation                                                       */
/* ------------------------------------------------------------------------ */
/* @mc-begin */
/* Motion compensation with residual. For every sample (x, y) of the W x H
 * block, with a = R(x, y), b = R(x+1, y), c = R(x, y+1), d = R(x+1, y+1) of
 * the reference and rc = roundControl (0 or 1), the prediction p is
 *   mcType & 12 == 0  (FF): a
 *   mcType & 12 == 4  (FH): (a + c + 1 - rc) >> 1
 *   mcType & 12 == 8  (HF): (a + b + 1 - rc) >> 1
 *   mcType & 12 == 12 (HH): (a + b + c + d + 2 - rc) >> 2
 * and pDst(x, y) = clip(p + r), r the Kpl16s residual sample (pSrcYData,
 * srcYDataStep in bytes); the sum is exact, then saturated to 0..255. Half
 * positions read one more column and/or row of the reference.
 * Single-reference functions: pSrcRef/srcStep reference, pSrcYData/srcYDataStep
 * residual, pDst/dstStep output, mcType, roundControl.
 * roundControl is meant to be 0 or 1; any non-zero value acts as 1.
 * Statuses: -8 when pSrcRef, pSrcYData or pDst is null. Steps, mcType and
 * roundControl are not checked. */
KPLVC_API KplStatus kpliMC16x16_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                      Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                      Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 16x8 block. */
KPLVC_API KplStatus kpliMC16x8_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                     Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                     Kpl32s roundControl);
/* Interleaved chroma, 8 pairs of samples per row and 8 rows: the horizontal
 * neighbour of a sample is two bytes to the right (b = R(x+2, y),
 * d = R(x+2, y+1)), so HF and HH read two extra columns. Otherwise as
 * kpliMC16x16_8u_C1. */
KPLVC_API KplStatus kpliMC16x8UV_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                       Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                       Kpl32s roundControl);
/* Interleaved chroma as kpliMC16x8UV_8u_C1, 4 rows. */
KPLVC_API KplStatus kpliMC16x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                     Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                     Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for an 8x16 block. */
KPLVC_API KplStatus kpliMC8x16_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                     Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                     Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for an 8x8 block. */
KPLVC_API KplStatus kpliMC8x8_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for an 8x4 block. */
KPLVC_API KplStatus kpliMC8x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 4x8 block. */
KPLVC_API KplStatus kpliMC4x8_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 4x4 block. */
KPLVC_API KplStatus kpliMC4x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 4x2 block. */
KPLVC_API KplStatus kpliMC4x2_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 2x4 block. */
KPLVC_API KplStatus kpliMC2x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 2x2 block. */
KPLVC_API KplStatus kpliMC2x2_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep, Kpl32s mcType,
                                    Kpl32s roundControl);

/* Two-reference motion compensation: pF is predicted from the forward
 * reference (pSrcRefF, srcStepF, mcTypeF), pB from the backward one
 * (pSrcRefB, srcStepB, mcTypeB), both with rc = roundControl, and
 * pDst(x, y) = clip((2*r + pF + pB + 1) >> 1): the average of the two
 * predictions rounds half up whatever rc is.
 * kpliMC16x8B_8u_C1, the interleaved-chroma forms and the 4- and 2-wide forms
 * use the exact interpolations of kpliMC16x16_8u_C1.
 * kpliMC16x16B_8u_C1, kpliMC8x16B_8u_C1, kpliMC8x8B_8u_C1 and
 * kpliMC8x4B_8u_C1 build an HH prediction from rounding byte averages,
 * avg(x, y) = (x + y + 1) >> 1, with a saturating decrement
 * dec(x) = max(x - 1, 0), top = avg(a, b), bottom = avg(c, d):
 *   rc 0: pF = avg(topF, dec(bottomF)),      pB = avg(dec(topB), bottomB)
 *   rc 1: pF = avg(dec(bottomF), dec(topF)), pB = avg(topB, dec(bottomB))
 * whatever the other reference's type. An FF prediction is a; FH and HF are
 * the exact interpolations (a + c + 1 - rc) >> 1 and (a + b + 1 - rc) >> 1,
 * which at rc 0 are avg(a, c) and avg(a, b) and at rc 1 are the truncating
 * averages (a + c) >> 1 and (a + b) >> 1 (no decrement).
 * Statuses: -8 when pSrcRefF, pSrcRefB, pSrcYData or pDst is null. Steps,
 * mcTypes and roundControl are not checked. */
KPLVC_API KplStatus kpliMC16x16B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                       const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                       const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                       Kpl32s dstStep, Kpl32s roundControl);
/* 16x8, exact interpolations. */
KPLVC_API KplStatus kpliMC16x8B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                      const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                      const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                      Kpl32s dstStep, Kpl32s roundControl);
/* Interleaved chroma, 8 rows (neighbour two bytes away), exact interpolations. */
KPLVC_API KplStatus kpliMC16x8BUV_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                        const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                        const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                        Kpl32s dstStep, Kpl32s roundControl);
/* Interleaved chroma, 4 rows (neighbour two bytes away), exact interpolations. */
KPLVC_API KplStatus kpliMC16x4B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                      const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                      const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                      Kpl32s dstStep, Kpl32s roundControl);
/* 8x16, byte-average construction as kpliMC16x16B_8u_C1. */
KPLVC_API KplStatus kpliMC8x16B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                      const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                      const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                      Kpl32s dstStep, Kpl32s roundControl);
/* 8x8, byte-average construction as kpliMC16x16B_8u_C1. */
KPLVC_API KplStatus kpliMC8x8B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* 8x4, byte-average construction as kpliMC16x16B_8u_C1. */
KPLVC_API KplStatus kpliMC8x4B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* 4x8, exact interpolations. */
KPLVC_API KplStatus kpliMC4x8B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* 4x4, exact interpolations. */
KPLVC_API KplStatus kpliMC4x4B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* 4x2, exact interpolations. */
KPLVC_API KplStatus kpliMC4x2B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* 2x4, exact interpolations. */
KPLVC_API KplStatus kpliMC2x4B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* 2x2, exact interpolations. */
KPLVC_API KplStatus kpliMC2x2B_8u_C1(const Kpl8u* pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF,
                                     const Kpl8u* pSrcRefB, Kpl32s srcStepB, Kpl32s mcTypeB,
                                     const Kpl16s* pSrcYData, Kpl32s srcYDataStep, Kpl8u* pDst,
                                     Kpl32s dstStep, Kpl32s roundControl);
/* @mc-end */

/* ------------------------------------------------------------------------ */
/* MPEG-1/MPEG-2 block decoding and encoding                                 */
/* ------------------------------------------------------------------------ */
/* @mpeg2block-begin */
/* MPEG-1/MPEG-2 block decoding with reconstruction, and block encoding.
 *
 * Decoders read 32-bit native words from their most significant bit:
 * *ppBitStream is the word holding the next bit, *pOffset (0..31) its index
 * (31 = most significant). They may read up to the second word after the
 * word of the last bit consumed. Tables are those built by
 * kpliVCHuffmanInitAllocRL_32s (run-level codes: value1 = run, value2 =
 * |level|, KPLVC_RL_EOB / KPLVC_RL_ESCAPE with value2 0) and
 * kpliVCHuffmanInitAlloc_32s (dct_dc_size). The block is written transposed
 * (raster position 8*row + column at index 8*column + row), with the count
 * that the AANTransposed inverse DCTs take. Nothing is written on failure.
 * Checks, in order: null ppBitStream, pOffset, *ppBitStream, then the other
 * pointers in argument order (kplStsNullPtrErr; pQMatrix may be null for
 * non-intra blocks: flat 16); *pOffset outside 0..31, QP outside 1..31
 * (MPEG-1) or 1..112 (MPEG-2), intraDCPrecision outside 0..3
 * (kplStsBadArgErr). Stream errors: kplStsVLCErr (no code word, DC size out
 * of range, forbidden escape level, EOB first in a non-intra block, unknown
 * leaf), kplStsCoefCountErr (a coefficient beyond scan index 63). */
#define KPLVC_RL_EOB 64
#define KPLVC_RL_ESCAPE 65
#define KPLVC_RL_ENCODE_TABLE_SIZE 4098

/* Non-intra MPEG-1 block: run-level codes (first-coefficient code 1s),
 * 8/16-bit escapes, reconstruction with oddification. */
KPLVC_API KplStatus kpliReconstructDCTBlock_MPEG1_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                      Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                      const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                      Kpl32s QP, const Kpl16s* pQMatrix);
/* Intra MPEG-1 block: DC size and differential added to *pDCPred (the
 * predictor in quantised units, left holding the block's DC level), DC
 * multiplier 8, then the AC codes as above. */
KPLVC_API KplStatus kpliReconstructDCTBlockIntra_MPEG1_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                           Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                           Kpl16s* pDCPred, const Kpl32s* pDCSizeTable,
                                                           const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                           Kpl32s QP, const Kpl16s* pQMatrix);
/* Non-intra MPEG-2 block: 12-bit escapes, saturation to -2048..2047 and
 * mismatch control on coefficient (7, 7). */
KPLVC_API KplStatus kpliReconstructDCTBlock_MPEG2_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                      Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                      const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                      Kpl32s QP, const Kpl16s* pQMatrix);
/* Intra MPEG-2 block; DC multiplier 8 >> intraDCPrecision (0..3). */
KPLVC_API KplStatus kpliReconstructDCTBlockIntra_MPEG2_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                           Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                           Kpl16s* pDCPred, const Kpl32s* pDCSizeTable,
                                                           const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                           Kpl32s QP, const Kpl16s* pQMatrix,
                                                           Kpl32s intraDCPrecision);

/* Fills the KPLVC_RL_ENCODE_TABLE_SIZE words of pDstTable from a run-level
 * code list (the format read by kpliVCHuffmanInitAllocRL_32s): word 0 EOB,
 * word 1 ESCAPE, word 2 + 64*run + level - 1 (run 0..63, level 1..64) the
 * code of that pair or 0; each word (code << 8) | length. Records longer
 * than 24 bits are ignored. kplStsNullPtrErr for a null pointer;
 * kplStsBadArgErr (nothing written) when EOB or ESCAPE is missing. */
KPLVC_API KplStatus kpliCreateRLEncodeTable(const Kpl32s* pSrcTable, Kpl32s* pDstTable);

/* Encoders write in the convention of kpliPutBitsLeftMost: *ppBitStream is
 * the current word, *pBitOffset (1..32) its free bits. pSrcBlock holds 64
 * levels in raster order; mpegVersion is 1 or 2 (escape format and level
 * range). Checks, in order: null pSrcBlock, ppBitStream, pBitOffset,
 * *ppBitStream, then the other pointers (kplStsNullPtrErr); *pBitOffset
 * outside 1..32, mpegVersion not 1 or 2 (kplStsBadArgErr); a scanned level
 * (or intra DC difference) outside -255..255 (version 1) or -2047..2047
 * (version 2): kplStsLevelRangeErr. The block is checked whole before any
 * bit is written. */

/* Intra block: DC size code (pDCSizeCodes[size] = (code << 8) | length) and
 * differential from *pDCPred, then scan indices 1..63 and EOB; *pDCPred
 * becomes pSrcBlock[0]. */
KPLVC_API KplStatus kpliPutIntraBlock(const Kpl16s* pSrcBlock, Kpl32u** ppBitStream, Kpl32s* pBitOffset,
                                      Kpl16s* pDCPred, const Kpl32s* pDCSizeCodes,
                                      const Kpl32s* pRLEncodeTable, const Kpl32s* pScanTable,
                                      Kpl32s mpegVersion);
/* Non-intra block: scan indices 0..63 (first coefficient +-1 as 1s), EOB. A
 * block without a non-zero level writes nothing. */
KPLVC_API KplStatus kpliPutNonIntraBlock(const Kpl16s* pSrcBlock, Kpl32u** ppBitStream, Kpl32s* pBitOffset,
                                         const Kpl32s* pRLEncodeTable, const Kpl32s* pScanTable,
                                         Kpl32s mpegVersion);
/* @mpeg2block-end */

/* ------------------------------------------------------------------------ */
/* MPEG-2 quantisation                                                       */
/* ------------------------------------------------------------------------ */
/* @mpeg2quant-begin */
/* Inverse quantisation of an 8x8 intra block in place (row-major, 64
 * coefficients), in 16-bit wrapping arithmetic: (c·QP·W[i] + (c <= 0 ? 15 :
 * 0)) >> 4, clamped to -2048..2047, with mismatch control on pSrcDst[63]. The
 * DC pSrcDst[0] is left unchanged. QP is not range-checked (its low 16 bits
 * are used). Returns kplStsNullPtrErr if pSrcDst or pQPMatrix is null. */
KPLVC_API KplStatus kpliQuantInvIntra_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl16s* pQPMatrix);

/* Inverse quantisation of an 8x8 non-intra block in place, in 16-bit
 * wrapping arithmetic: ((2c + sgn c)·QP·W[i] + (c < 0 ? 31 : 0)) >> 5, or
 * without a matrix (pQPMatrix null) ((2c + sgn c)·QP + (c < 0)) >> 1; clamped
 * to -2048..2047, mismatch control on pSrcDst[63]. Returns kplStsNullPtrErr if
 * pSrcDst is null. */
KPLVC_API KplStatus kpliQuantInv_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl16s* pQPMatrix);

/* Forward quantisation of an 8x8 intra block in place, single precision:
 * pSrcDst[i] = trunc(((16·c)·(1/QP))·M[i]) clamped to -2047..2047 for i =
 * 1..63 (the DC is left unchanged). M is pQPMatrix (64 reciprocal weights) or,
 * if null, the reciprocals of the default intra matrix. *pCount receives the
 * number of non-zero levels stored. Returns kplStsNullPtrErr (pSrcDst or
 * pCount null), then kplStsDivByZeroErr (QP 0); nothing is written on
 * failure. */
KPLVC_API KplStatus kpliQuantIntra_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl32f* pQPMatrix,
                                                 Kpl32s* pCount);

/* Forward quantisation of an 8x8 non-intra block in place, all 64
 * coefficients: as the intra form with the matrix pQPMatrix, or with the
 * constant 0.0625 when pQPMatrix is null. *pCount receives the number of
 * non-zero levels. Returns kplStsNullPtrErr (pSrcDst or pCount null), then
 * kplStsDivByZeroErr (QP 0); nothing is written on failure. */
KPLVC_API KplStatus kpliQuant_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl32f* pQPMatrix,
                                            Kpl32s* pCount);
/* @mpeg2quant-end */

/* ------------------------------------------------------------------------ */
/* H.263                                                                     */
/* ------------------------------------------------------------------------ */
/* @h263-begin */
/* Macroblock-layer symbols. Each takes the caller's byte pointer and bit
 * offset (0..7 from the most significant bit), reads one code word, writes
 * the value and advances past exactly that code. They may look at up to two
 * bytes beyond the last bit they consume (three for a vector code). Checks:
 * -8 when ppBitStream, pBitOffset, *ppBitStream or the output is null. On
 * any failure the position and the output are unchanged. */

/* MCBPC of an I-picture: low 4 bits macroblock type (3 INTRA, 4 INTRA+Q),
 * bit 5 Cb coded, bit 4 Cr coded; 255 for stuffing. -109 on an illegal code. */
KPLVC_API KplStatus kpliDecodeMCBPCIntra_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pMCBPC);

/* MCBPC of a P-picture (types 0..4 as in H.263; 255 stuffing). Every code
 * beginning with nine zeros, the INTER4V+Q codes included, gives -110. */
KPLVC_API KplStatus kpliDecodeMCBPCInter_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pMCBPC);

/* MODB: 0 (code 0), 2 (code 10) or 3 (code 11); never fails on the stream. */
KPLVC_API KplStatus kpliDecodeMODB_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pMODB);

/* CBPY in its inter meaning (bit 3 = block 1 ... bit 0 = block 4; an intra
 * macroblock's pattern is 15 minus it). -111 on an illegal code. */
KPLVC_API KplStatus kpliDecodeCBPY_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pCBPY);

/* Motion vector: pMotionVector holds three (dx, dy) pairs in half-sample
 * units: [0] left, [1] above, [2] above-right candidate. Both difference
 * codes are decoded, then [1] = median prediction + difference, each
 * component wrapped into -32..31; [0] and [2] are not written. -75 on an
 * illegal code (nothing written, also when the vertical code fails). */
KPLVC_API KplStatus kpliDecodeMV_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pMotionVector);

/* As kpliDecodeMV_H263 for a macroblock whose above neighbours are outside
 * the picture: the prediction is the left candidate [0] alone. */
KPLVC_API KplStatus kpliDecodeMV_TopBorder_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pMotionVector);

/* Modified-quantisation DQUANT (Annex T): code 1x changes *pQuant by the
 * Table T.1 step for the current quantiser; code 0 followed by five bits sets
 * it to that value (0..31 as read). The caller keeps *pQuant in 0..31. */
KPLVC_API KplStatus kpliUpdateQuant_MQ_H263_1u32s_I(Kpl8u** ppBitStream, int* pBitOffset, Kpl32s* pQuant);

/* Block decoders. Each reads one block's codes at the caller's byte pointer
 * and bit offset (they may look up to eight bytes past the current byte),
 * and writes the position back only when the whole block decoded. Common
 * statuses: -8 a pointer (or *ppBitStream) null; -76 QP outside 1..31; -74
 * an illegal TCOEF code; -72 a run past coefficient 63; -73 an INTRADC code
 * of 0 or 128. */

/* Intra block: 8-bit INTRADC, TCOEF codes (first AC at RUN + 1), inverse
 * quantisation, classical inverse zigzag and the 8x8 inverse DCT to pixels
 * at pDst. Statuses in order: -8, -82 step < 8, -76, then the stream's. */
KPLVC_API KplStatus kpliDecodeBlockCoef_Intra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pDst,
                                                        int step, int QP);

/* Inter block: the 64-value residual (row-major). After the checks the
 * destination is cleared, so it holds zeros after a stream error. A block
 * whose only coefficient is at scan position 0 is filled with
 * (rec + 4) >> 3; otherwise the smallest inverse DCT (2x2, 4x4 or full) that
 * covers the coded positions runs. Statuses: -8, -76, then the stream's. */
KPLVC_API KplStatus kpliDecodeBlockCoef_Inter_H263_1u16s(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pDst,
                                                         int QP);

/* Intra block without AC codes: fills 8x8 with the INTRADC value (128 for
 * 255). The byte pointer advances by one byte before the value is checked,
 * so after -73 the position has moved. Statuses: -8, -82 step < 8, -73. */
KPLVC_API KplStatus kpliDecodeBlockCoef_IntraDCOnly_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset,
                                                              Kpl8u* pDst, int step);

/* Advanced intra coding (Annex I): INTRADC, TCOEF codes of the Annex I
 * table, AC levels times 2QP (clamped), the scan of the mode (1: alternate
 * horizontal with the column predictor, 2: alternate vertical with the row
 * predictor, 3: classical zigzag, DC predicted from both), the DC made odd
 * and kept in 0..2047; pCoefRow / pCoefCol (8 values each, element 0
 * negative = unavailable) are updated with this block's first row and
 * column. Statuses in order: -8 stream pointers; -8 pDst; -82 step < 8;
 * -8 a predictor; -76 QP; -83 mode not 1, 2 or 3; then the stream's. */
KPLVC_API KplStatus kpliDecodeBlockCoef_AdvIntra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pDst,
                                                           int step, Kpl16s* pCoefRow, Kpl16s* pCoefCol,
                                                           int QP, int mode);

/* Writes the 8-bit INTRADC level (128 is written as 255). The current
 * byte keeps its bits before the offset; the position advances 8 bits.
 * Statuses: -8 null; -105 bit offset outside 0..7. */
KPLVC_API KplStatus kpliEncode_IntraDCVLC_H263_16s1u(Kpl16s qDC, Kpl8u** ppBitStream, int* pBitOffset);

/* Writes the TCOEF codes of a quantised block (row-major, read through the
 * classical zigzag) from scan position 1 (intra != 0) or 0, LAST on the final
 * non-zero one; events outside the run-level table use the 22-bit escape
 * (levels keep their low 8 bits). An all-zero block writes nothing.
 * Statuses: -8 null; -105 bit offset outside 0..7. */
KPLVC_API KplStatus kpliEncode_ACVLC_H263_16s1u(const Kpl16s* pQCoef, Kpl8u** ppBitStream, int* pBitOffset,
                                                int intra);

/* Inverse quantisation (H.263): a non-zero level L becomes
 * sign(L) * (2*QP*|L| + QP) for odd QP, sign(L) * (2*QP*|L| + QP - 1) for even
 * QP, clamped to -2048..2047. The full-block forms work in 16-bit lanes: the
 * product 2*QP*|L| keeps its low 16 bits (a product that wraps to 0 gives 0)
 * before the offset and the clamp; they check only the pointer (-8), not QP.
 * The intra form leaves coefficient 0 (the DC) as it is. */
KPLVC_API KplStatus kpliQuantInvIntra_H263_C1I(Kpl16s* pSrcDst, int QP);
KPLVC_API KplStatus kpliQuantInv_H263_C1I(Kpl16s* pSrcDst, int QP);

/* Compact forms: coefficients in scan order, count = last coded index + 1;
 * products in 32 bits. The intra form dequantises 1..count-1 and turns the
 * INTRADC code in element 0 into 8 times its value (1024 for 255).
 * Statuses: -8 null; -6 count < 1; -76 QP outside 1..31. */
KPLVC_API KplStatus kpliQuantInvIntra_Compact_H263_16s_I(Kpl16s* pSrcDst, int count, int QP);
KPLVC_API KplStatus kpliQuantInvInter_Compact_H263_16s_I(Kpl16s* pSrcDst, int count, int QP);

/* Forward quantisation in single precision with m = (float)(0.5 / QP):
 * kpliQuant_H263_C1I maps x > 0 to trunc(x*m - 0.25) and x < 0 to
 * trunc(x*m + 0.25) over all 64 coefficients; kpliQuantIntra_H263_C1I maps
 * x to trunc(x*m) over 1..63 (the DC is not touched). Results are clamped to
 * -2047..2047; *pCount receives the highest index with a non-zero result, or
 * -1. Statuses: -8 pSrcDst or pCount null; -76 QP < 1 (no upper bound). */
KPLVC_API KplStatus kpliQuant_H263_C1I(Kpl16s* pSrcDst, int QP, int* pCount);
KPLVC_API KplStatus kpliQuantIntra_H263_C1I(Kpl16s* pSrcDst, int QP, int* pCount);

/* Block copies with one step for source and destination. The half-sample
 * forms (rounding type 0) read one more column (H), row (V) or both (HV):
 * H (a + b + 1) >> 1 with the right neighbour, V with the one below, HV
 * (a + b + c + d + 2) >> 2. Statuses: -8 a pointer null; a step below 16
 * (macroblock) or 8 (block): -81 for kpliCopyMB_H263_8u, -82 for all others. */
KPLVC_API KplStatus kpliCopyMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyApproxHMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyApproxHBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyApproxVMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyApproxVBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyApproxHVMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliCopyApproxHVBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step);

/* Reconstruction: dst = saturate_0..255(pred + residual), the sum formed
 * as a wrapping 16-bit add. The residual holds 16 values per row (256) for a
 * macroblock, 8 per row (64) for a block; one step for prediction and
 * destination. Statuses: -8 a pointer null; -81 (MB) / -82 (block) step too
 * small. The _I forms write over the prediction. */
KPLVC_API KplStatus kpliReconMB_H263(const Kpl8u* pSrc, const Kpl16s* pResidual, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliReconMB_H263_I(Kpl8u* pSrcDst, const Kpl16s* pResidual, int step);
KPLVC_API KplStatus kpliReconBlock_H263(const Kpl8u* pSrc, const Kpl16s* pResidual, Kpl8u* pDst, int step);
KPLVC_API KplStatus kpliReconBlock_H263_I(Kpl8u* pSrcDst, const Kpl16s* pResidual, int step);

/* Overlapped block motion compensation (Annex F) of one 8x8 luminance block.
 * pSrc is the reference at the block's position; each vector is (dx, dy) in
 * half-sample units (rounding type 0). Output = (q*H0 + r*H1 + s*H2 + 4) >> 3
 * with q the own prediction, r the above (rows 0-3) or below (rows 4-7)
 * prediction, s the left (columns 0-3) or right (columns 4-7) prediction.
 * Choosing neighbour vectors (outside the picture, not coded) is the
 * caller's job. Statuses: -8 pSrc, pDst or pMVCur null, then right or left,
 * then below or above null; -82 step < 8. */
KPLVC_API KplStatus kpliPredictBlock_OBMC_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step, const Kpl16s* pMVCur,
                                             const Kpl16s* pMVLeft, const Kpl16s* pMVRight,
                                             const Kpl16s* pMVAbove, const Kpl16s* pMVBelow);

/* Extends a picture's borders by expandPels samples on every side. The
 * buffer starts at the top-left corner of the expanded area; the picture
 * starts expandPels rows and columns into it. Left/right borders repeat each
 * row's first/last sample; the rows above/below copy the first/last
 * extended row. Statuses in order: -8 null; -80 width < 8; -79 height < 1;
 * -78 expandPels < 8; -82 step < 8; -77 step < width + 2*expandPels. */
KPLVC_API KplStatus kpliExpandFrame_H263_8u(Kpl8u* pSrcDstPlane, int frameWidth, int frameHeight,
                                            int expandPels, int step);

/* Annex J deblocking across a horizontal edge (pSrcDst: the first of eight
 * samples in the row below the edge) or a vertical edge (pSrcDst: the first
 * sample right of the edge, eight rows). Two samples on each side change.
 * Statuses: -8 null; -82 step < 8; -76 QP outside 1..31. */
KPLVC_API KplStatus kpliFilterDeblocking_HorEdge_H263_8u_I(Kpl8u* pSrcDst, int step, int QP);
KPLVC_API KplStatus kpliFilterDeblocking_VerEdge_H263_8u_I(Kpl8u* pSrcDst, int step, int QP);
/* @h263-end */

/* ------------------------------------------------------------------------ */
/* H.263 as ITU-T H.263 (2005) codes it                                     */
/* ------------------------------------------------------------------------ */
/* @h263ex-begin */
/* Companions of the H.263 functions above for the places where a standard
 * H.263+ stream needs more than they give: the Annex T extended escape, the
 * Annex S alternative inter table, Annex I advanced intra coding as the
 * standard defines it, Annex D vector codes and ranges, and OBMC with the
 * rounding type of H.263+ pictures. The functions above keep their own
 * contracts. Stream positions are the byte pointer and bit offset (0..7)
 * of the block decoders; the block decoders look at most eight bytes past
 * the current byte and write the position back only on success. */

/* Flags of the Ex block decoders and of kpliEncode_TCOEFEx_H263_16s1u. */
/* Annex T: an escape whose 8-bit LEVEL is 10000000 is followed by an 11-bit
 * EXTENDED-LEVEL: its first five bits are the low five bits of the level,
 * the next six the upper bits in two's complement (-1024..1023). Without
 * the flag such an escape is -74. */
#define KPLVC_H263_EXT_ESCAPE 1
/* Annex S (inter blocks): codes read with the TCOEF table that run past
 * coefficient 63 mean the block was coded with the Annex I intra table,
 * and it is read again with that table. (In the same mode an inter
 * macroblock whose CBPC is 11 reads its CBPY in the intra meaning; that
 * is the caller's.) */
#define KPLVC_H263_ALT_INTER_VLC 2
/* Annex I (advanced intra): the block above / to the left is available for
 * prediction (inside the picture and the same slice or GOB, and intra). */
#define KPLVC_H263_AIC_ABOVE 4
#define KPLVC_H263_AIC_LEFT 8
/* Annex I: the block has coefficients (its coded-block-pattern bit is 1);
 * without it nothing is read and the block is its prediction alone. */
#define KPLVC_H263_AIC_CODED 16

/* Annex I prediction modes (INTRA_MODE 0, 10, 11). */
#define KPLVC_H263_AIC_DC 0         /* DC from the blocks above and left, zigzag scan */
#define KPLVC_H263_AIC_VERTICAL 1   /* first row from the block above, alternate-horizontal scan */
#define KPLVC_H263_AIC_HORIZONTAL 2 /* first column from the block left, alternate-vertical scan */

/* Intra block of H.263 without advanced intra coding: the 8-bit INTRADC
 * (0 and 128 are -73; 255 is 1024, others 8 times the code), then, unless
 * flags has KPLVC_H263_INTRA_DC_ONLY, the TCOEF codes from coefficient 1;
 * levels reconstructed as |rec| = 2QP|L| + QP (QP odd) or 2QP|L| + QP - 1
 * (QP even) in 32 bits and clamped to -2048..2047, then the 8x8 inverse DCT
 * to pixels at pDst. flags: KPLVC_H263_EXT_ESCAPE, KPLVC_H263_INTRA_DC_ONLY.
 * Statuses in order: -8 ppBitStream, pBitOffset, *ppBitStream or pDst null;
 * -82 step < 8; -76 QP outside 1..31; -5 an unknown flag; then -73, -74
 * (illegal code), -72 (a run past coefficient 63). */
#define KPLVC_H263_INTRA_DC_ONLY 32
KPLVC_API KplStatus kpliDecodeBlockCoefEx_Intra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pDst,
                                                          int step, int QP, int flags);

/* Inter block: the 64-value residual (row-major) of the TCOEF codes from
 * coefficient 0, reconstructed as in kpliDecodeBlockCoefEx_Intra_H263_1u8u
 * and inverse-transformed: the result equals kpliQuantInv_H263_C1I (for
 * levels within -127..127) followed by kpliDCT8x8Inv_16s_C1I, also for a
 * block whose only coefficient is the first (no flat shortcut).
 * pDst is written only on success. flags:
 * KPLVC_H263_EXT_ESCAPE, KPLVC_H263_ALT_INTER_VLC. Statuses in order: -8;
 * -76; -5 an unknown flag; then -74, -72. */
KPLVC_API KplStatus kpliDecodeBlockCoefEx_Inter_H263_1u16s(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pDst,
                                                           int QP, int flags);

/* Advanced intra block (Annex I). With KPLVC_H263_AIC_CODED the block's
 * TCOEF codes, read with the Annex I intra table from coefficient 0 (the DC
 * is the first code), give RECq = 2 QP LEVEL for every coefficient. mode
 * (KPLVC_H263_AIC_DC, _VERTICAL, _HORIZONTAL) chooses the scan and the
 * prediction: DC mode adds to the DC the mean of the above and left DCs
 * (the one available, or 1024); vertical mode adds the above block's first
 * row to the first row (1024 to the DC when it is unavailable); horizontal
 * mode the left block's first column to the first column. Sums are clamped
 * to -2048..2047 and the DC is then made odd (an even DC gains 1). The
 * result goes through the 8x8 inverse DCT to pixels at pDst.
 * pPredRow: in, the above block's reconstructed first row (read with
 * KPLVC_H263_AIC_ABOVE); out, this block's first row. pPredCol: in, the left
 * block's first column (read with KPLVC_H263_AIC_LEFT); out, this block's
 * first column. Both are written only on success.
 * flags: KPLVC_H263_AIC_ABOVE, _LEFT, _CODED, KPLVC_H263_EXT_ESCAPE.
 * Statuses in order: -8 stream pointers (also without _CODED), pDst,
 * pPredRow or pPredCol null; -82 step < 8; -76 QP; -83 mode not 0, 1 or 2;
 * -5 an unknown flag; then -74, -72. */
KPLVC_API KplStatus kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset,
                                                             Kpl8u* pDst, int step, Kpl16s* pPredRow,
                                                             Kpl16s* pPredCol, int QP, int mode, int flags);

/* Writes the TCOEF codes of a quantised block (row-major levels) in the
 * given scan (0 classical zigzag, 1 alternate horizontal, 2 alternate
 * vertical) from scan position first (0 or 1), LAST on the final non-zero
 * level. table 0 is the TCOEF table, 1 the Annex I intra table. Events
 * outside the table use the escape; levels outside -127..127 use the Annex T
 * extended escape when flags has KPLVC_H263_EXT_ESCAPE (levels beyond
 * -1024..1023 are then clamped to it) and are clamped to -127..127
 * otherwise. An all-zero range writes nothing; *pCount receives the number
 * of codes written. Statuses in order: -8 a pointer null; -105 bit offset
 * outside 0..7; -5 scan, first, table or flags outside their values. */
KPLVC_API KplStatus kpliEncode_TCOEFEx_H263_16s1u(const Kpl16s* pQCoef, Kpl8u** ppBitStream, int* pBitOffset,
                                                  int scan, int first, int table, int flags, int* pCount);

/* Motion vector codes. mode:
 * KPLVC_H263_MVD_DEFAULT: the MVD code table (Table 14) of each component,
 *   vector = predictor + difference wrapped into -32..31 (half samples);
 * KPLVC_H263_MVD_UMV: Table 14 with the Annex D range of H.263 streams
 *   without PLUSPTYPE: of the two differences a code stands for, the one
 *   that keeps the vector within -31..32 around a predictor in -31..32,
 *   within -63..0 for a predictor below -31 and 0..63 above 32;
 * KPLVC_H263_MVD_UVLC: the Annex D universal code of H.263+ pictures with
 *   unrestricted vectors (1 is 0; 0 x1 1 x2 1 ... s 0 codes the magnitude
 *   1 x1 x2 ... with sign s), vector = predictor + difference without
 *   limit, and the bit '1' that follows a pair of differences (+1, +1) is
 *   consumed. A magnitude above 4095 is -75.
 * pPred and pMV are (dx, dy) pairs in half samples; both components are
 * decoded before anything is written. Statuses in order: -8 stream
 * pointers, pPred or pMV null; -5 mode unknown; -75 an illegal code. */
#define KPLVC_H263_MVD_DEFAULT 0
#define KPLVC_H263_MVD_UMV 1
#define KPLVC_H263_MVD_UVLC 2
KPLVC_API KplStatus kpliDecodeMVEx_H263(Kpl8u** ppBitStream, int* pBitOffset, const Kpl16s* pPred,
                                        Kpl16s* pMV, int mode);

/* kpliPredictBlock_OBMC_8u with the rounding type of H.263+ (RTYPE 0 or 1)
 * in the half-sample predictions: (a + b + 1 - rt) >> 1 and
 * (a + b + c + d + 2 - rt) >> 2; the weighted sum is
 * (q*H0 + r*H1 + s*H2 + 4) >> 3 as there. Statuses in order: -8 as
 * kpliPredictBlock_OBMC_8u; -82 step < 8; -90 roundType not 0 or 1. */
KPLVC_API KplStatus kpliPredictBlockEx_OBMC_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step, const Kpl16s* pMVCur,
                                               const Kpl16s* pMVLeft, const Kpl16s* pMVRight,
                                               const Kpl16s* pMVAbove, const Kpl16s* pMVBelow, int roundType);
/* @h263ex-end */

/* ------------------------------------------------------------------------ */
/* MPEG-4 inverse quantisation, chroma vectors and vector limiting           */
/* ------------------------------------------------------------------------ */
/* @mpeg4-begin */
/* Inverse quantisation of an 8x8 intra block in place, in 16-bit wrapping
 * arithmetic: (c·QP·W[i] + (c <= 0 ? 7 : 0)) >> 3, clamped to -2048..2047,
 * with mismatch control on pCoeffs[63]; pCoeffs[0] (the DC) is left
 * unchanged. QP is not range-checked. Returns kplStsNullPtrErr if pCoeffs or
 * pQMatrix is null. */
KPLVC_API KplStatus kpliQuantInvIntra_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix);

/* Inverse quantisation of an 8x8 inter block in place, in 16-bit wrapping
 * arithmetic: ((2c + sgn c)·QP·W[i] + (c < 0 ? 15 : 0)) >> 4, or without a
 * matrix (pQMatrix null) (2c + sgn c)·QP; clamped to -2048..2047, mismatch
 * control on pCoeffs[63]. Returns kplStsNullPtrErr if pCoeffs is null. */
KPLVC_API KplStatus kpliQuantInv_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix);

/* Chroma vector from one luma vector (half samples), per component:
 * r = (|v| >> 1) | (|v| mod 4 != 0), with the sign of v. Returns
 * kplStsNullPtrErr if either pointer is null. */
KPLVC_API KplStatus kpliComputeChromaMV_MPEG4(const KplMotionVector* pLumaMV, KplMotionVector* pChromaMV);

/* Chroma vector from the four 8x8 luma vectors pLumaMV[0..3]: the vectors
 * whose flag pTransparent[b] is non-zero are summed per component and
 * divided by their count with the standard's sixteenth-sample rounding.
 * Returns kplStsNullPtrErr if any pointer is null. */
KPLVC_API KplStatus kpliComputeChroma4MV_MPEG4(const KplMotionVector* pLumaMV, KplMotionVector* pChromaMV,
                                               const Kpl8u* pTransparent);

/* Limits a vector so that the size x size block at (Xcoord, Ycoord) stays
 * inside the reference rectangle: each component pointing left of / above the
 * origin, or at or beyond the last start position, is replaced by the vector
 * to that bound. Returns kplStsNullPtrErr (pSrcMV, pDstMV or pRectVOPRef
 * null), then kplStsBlockSizeErr (size not 8 or 16), then kplStsSizeErr
 * (rectangle width or height below 2·size). */
KPLVC_API KplStatus kpliLimitMVToRect_MPEG4(const KplMotionVector* pSrcMV, KplMotionVector* pDstMV,
                                            const KpliRect* pRectVOPRef, Kpl32s Xcoord, Kpl32s Ycoord,
                                            Kpl32s size);
/* ---- MPEG-4 Visual: texture, prediction, vectors, interpolation --------- */
/* docs/mpeg4.md gives the order in which a decoder calls these and the state
 * it keeps. Stream readers take the caller's byte pointer and bit offset
 * (0..7 from the most significant bit), advance them past exactly what they
 * read, and write them back only on success; they may look at up to eight
 * bytes past the current byte. Stream writers append at the position with
 * the byte-oriented convention: the current byte keeps its bits before the
 * offset, every byte touched is written whole (bits after the last one
 * written are 0), and the position advances. Checks come in the library's
 * order: -8 null pointers (a stream pointer *ppBitStream included), -105 a
 * bit offset outside 0..7, then each argument's value range in argument
 * order; nothing is written on failure. Stream statuses: -100 an illegal
 * code, -99 a marker bit that is 0, -72 a run past coefficient 63, -101 an
 * illegal motion code. */

/* Scans of kpli*Coeffs*_MPEG4 (the tables of the library's inverse scans). */
#define KPLVC_SCAN_ZIGZAG 0     /* classical zigzag */
#define KPLVC_SCAN_HORIZONTAL 1 /* alternate horizontal: AC prediction from above */
#define KPLVC_SCAN_VERTICAL 2   /* alternate vertical: AC prediction from the left, interlaced VOPs */

/* Intra prediction directions. */
#define KPLVC_PRED_LEFT 1 /* from block A (left): the first column is predicted */
#define KPLVC_PRED_TOP 2  /* from block C (above): the first row is predicted */

/* What an intra block leaves for its neighbours' DC/AC prediction (32
 * bytes). The caller keeps one per 8x8 block it may predict from (the row
 * above and the block to the left suffice) and passes them back. A neighbour
 * that is outside the VOP, in another video packet or not intra coded is a
 * record with dc = 1024 and every AC value 0 (KPLVC_MPEG4_INTRA_PRED_ABSENT). */
typedef struct {
    Kpl16s dc;     /* reconstructed DC F[0][0] = dc_scaler * QF[0][0], 0..2047 */
    Kpl16s qp;     /* quantiser of the block's macroblock */
    Kpl16s row[7]; /* QF[0][1..7]: the first row's levels after prediction */
    Kpl16s col[7]; /* QF[1..7][0]: the first column's levels after prediction */
} KplMPEG4IntraPred;
#define KPLVC_MPEG4_INTRA_PRED_ABSENT                           \
    {                                                           \
        1024, 0, {0, 0, 0, 0, 0, 0, 0}, { 0, 0, 0, 0, 0, 0, 0 } \
    }

/* Intra DC differential (dct_dc_size with its luminance or chrominance
 * table, dct_dc_differential, and the marker bit after a size above 8)
 * into *pDCDiff (-4095..4095). blockIndex 0..9: 4 and 5 are chrominance,
 * the others luminance-like (luminance, grey-scale alpha). Statuses: -8,
 * -105, -103 blockIndex, then -100 / -99 from the stream. */
KPLVC_API KplStatus kpliDecodeDCIntra_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset, Kpl16s* pDCDiff,
                                                  Kpl32s blockIndex);

/* Intra coefficients with the intra run-level table (Table B-16) and its
 * escapes (type 1: level + LMAX, type 2: run + RMAX + 1, type 3: 12-bit
 * fixed length between marker bits; the levels 0 and -2048 are rejected).
 * Levels land at their raster positions through the scan (KPLVC_SCAN_*).
 * dcVlc 1: the DC was read by kpliDecodeDCIntra_MPEG4_1u16s, so the first
 * code's run counts from scan position 1 and pCoeffs[1..63] are written
 * (pCoeffs[0] is not); dcVlc 0 (intra_dc_vlc_thr switched it off): the DC
 * is the table's first coefficient and all 64 are written. *pIndxLastNonZero
 * gets the scan index of the last coefficient. Statuses: -8, -105, -90 dcVlc
 * not 0 or 1, -5 scan not 0..2, then -100, -99, -72 from the stream. */
KPLVC_API KplStatus kpliDecodeCoeffsIntra_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                      Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero, Kpl32s dcVlc,
                                                      Kpl32s scan);

/* Inter coefficients with the inter run-level table (Table B-17, the H.263
 * TCOEF table) and the same three escapes; all 64 raster positions written.
 * Statuses: -8, -105, -5 scan, then the stream's. */
KPLVC_API KplStatus kpliDecodeCoeffsInter_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                      Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero, Kpl32s scan);

/* kpliDecodeCoeffsInter_MPEG4_1u16s with inverse quantisation as each
 * level is read, in exact 32-bit arithmetic. pQMatrix null: the second
 * (H.263) method, |F| = QP (2|L| + 1), minus 1 when QP is even. pQMatrix
 * given (the VOL's non-intra matrix, raster order): the first method,
 * F = ((2L + sign L) W QP) / 16 truncating toward zero, then mismatch
 * control (an even coefficient sum flips the lowest bit of pCoeffs[63], and
 * *pIndxLastNonZero becomes 63). Results clamped to -2048..2047. Statuses:
 * -8, -105, -5 scan, -104 QP outside 1..31, then the stream's. */
KPLVC_API KplStatus kpliReconstructCoeffsInter_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                           Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                           Kpl32s scan, Kpl32s QP, const Kpl16s* pQMatrix);

/* Intra prediction direction from the reconstructed DCs of the neighbours
 * A (left), B (above left) and C (above): KPLVC_PRED_TOP when
 * |dcA - dcB| < |dcB - dcC|, else KPLVC_PRED_LEFT. Call it before the
 * coefficients: with AC prediction on, the direction chooses the scan
 * (TOP: KPLVC_SCAN_HORIZONTAL, LEFT: KPLVC_SCAN_VERTICAL). Statuses: -8. */
KPLVC_API KplStatus kpliPredictDirIntra_MPEG4(const KplMPEG4IntraPred* pA, const KplMPEG4IntraPred* pB,
                                              const KplMPEG4IntraPred* pC, Kpl32s* pDir);

/* DC and AC prediction of one intra block, in place. In: pCoeffs holds the
 * decoded levels (raster order), pCoeffs[0] the DC differential. pPred is
 * the neighbour the direction names (A for LEFT, C for TOP). With
 * dc_scaler of QP and the block type (blockIndex as for the DC decoder):
 *   QF[0][0] = diff + dcPred // dc_scaler (// rounds half away from zero);
 *   with acPredFlag 1 the first column (LEFT) or row (TOP) gains
 *   (predAC * pPred->qp) // QP, each sum saturated to -2048..2047.
 * Out: pCoeffs[0] = F[0][0] = QF[0][0] * dc_scaler clamped to 0..2047 (the
 * reconstructed DC, ready for the intra inverse quantisers, which keep
 * element 0), the other elements the levels QF; *pCur receives this
 * block's record (pCur may be pPred). Statuses: -8; -93 predDir not 1 or 2;
 * -90 acPredFlag not 0 or 1; -104 QP outside 1..31; -103 blockIndex. */
KPLVC_API KplStatus kpliPredictReconIntra_MPEG4_16s(Kpl16s* pCoeffs, const KplMPEG4IntraPred* pPred,
                                                    KplMPEG4IntraPred* pCur, Kpl32s predDir,
                                                    Kpl32s acPredFlag, Kpl32s QP, Kpl32s blockIndex);

/* Second (H.263) method inverse quantisation in place, exact: a non-zero
 * level L becomes sign(L) (QP (2|L| + 1) - (QP even ? 1 : 0)), clamped to
 * -2048..2047; no mismatch control. The intra form keeps element 0 (the DC,
 * reconstructed by kpliPredictReconIntra_MPEG4_16s). Statuses: -8, -104. */
KPLVC_API KplStatus kpliQuantInvIntraH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP);
KPLVC_API KplStatus kpliQuantInvInterH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP);

/* Forward quantisers, in place, for an encoder; levels clamped to
 * -2047..2047 (the escape's range), *pCountNonZero gets the number of
 * non-zero levels (the DC excluded for intra). The rounding is this
 * library's encoder choice, exact in integers:
 *   intra DC (both methods): QF = F // dc_scaler (half away from zero);
 *   second method intra AC: |L| = |F| / (2 QP);
 *   second method inter:    |L| = (|F| - QP / 2) / (2 QP), 0 when negative;
 *   first method intra AC:  |L| = (16 |F| + W QP) / (2 W QP) (nearest);
 *   first method inter:     |L| = 16 |F| / (2 W QP) (toward zero),
 * each with the sign of F; W the matrix weight at the coefficient's raster
 * position (1..255). Statuses: -8; -104 QP; -103 blockIndex (intra). */
KPLVC_API KplStatus kpliQuantIntraH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, Kpl32s blockIndex,
                                                     Kpl32s* pCountNonZero);
KPLVC_API KplStatus kpliQuantInterH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, Kpl32s* pCountNonZero);
KPLVC_API KplStatus kpliQuantIntra_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix,
                                                 Kpl32s blockIndex, Kpl32s* pCountNonZero);
KPLVC_API KplStatus kpliQuantInter_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix,
                                                 Kpl32s* pCountNonZero);

/* Writes an intra DC differential (-4095..4095): the dct_dc_size code of
 * its table, the value (its one's complement when negative) and a marker
 * after a size above 8. Statuses: -8, -105, -5 dcDiff out of range, -103. */
KPLVC_API KplStatus kpliEncodeDCIntra_MPEG4_16s1u(Kpl16s dcDiff, Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                  Kpl32s blockIndex);

/* Writes the levels of a quantised block (raster order, read through the
 * scan) from scan position 1 (dcVlc 1) or 0 (dcVlc 0) to the last non-zero
 * one, with LAST on that one; a block with no non-zero level there writes
 * nothing. Each event takes the shortest legal form: its code word, else the
 * shorter of escape types 1 and 2 (type 1 on a tie), else type 3. Levels
 * must lie in -2047..2047. Statuses: -8, -105, -90 dcVlc (intra), -5 scan,
 * -5 a level out of range. */
KPLVC_API KplStatus kpliEncodeCoeffsIntra_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                      Kpl32s* pBitOffset, Kpl32s dcVlc, Kpl32s scan);
KPLVC_API KplStatus kpliEncodeCoeffsInter_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                      Kpl32s* pBitOffset, Kpl32s scan);
/* Motion vectors (half-sample units, or quarter-sample units in a VOL with
 * quarter_sample = 1: the arithmetic is the same). */

/* Reads a vector difference (horizontal, then vertical: each a motion_code
 * of Table B-12 with its sign and, for f_code > 1 and a non-zero code,
 * f_code - 1 residual bits) and adds it to *pPred; each component is brought
 * back into [-32f, 32f - 1], f = 2^(fcode - 1), by adding or subtracting
 * 64f. For a field vector pass the predictor with its vertical component
 * halved; for the direct-mode delta of a B-VOP pass (0, 0) and fcode 1.
 * Statuses: -8, -105, -98 fcode outside 1..7, -101 an illegal code. */
KPLVC_API KplStatus kpliDecodeMV_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                             const KplMotionVector* pPred, KplMotionVector* pMV,
                                             Kpl32s fcode);

/* Median prediction of block blockIndex (0..3; a one-vector macroblock
 * uses 0) of the current macroblock. The caller keeps four vectors per
 * macroblock (its 8x8 blocks in raster order; a one-vector macroblock
 * repeats its vector, intra and skipped macroblocks of a P-VOP hold zeros)
 * with macroblocks in raster order; pMVCur addresses the current
 * macroblock's first vector and mvStep is the number of vectors between two
 * macroblock rows (4 x macroblocks per row). The candidates are the left,
 * above and above-right blocks (for block 0: block 1 of the left
 * macroblock, block 2 of the one above and of the one above right). Bits of
 * `available` say which neighbour macroblocks may be read: 1 left, 2 above,
 * 4 above right (clear when outside the VOP or in an earlier video packet);
 * no other vector is read. One absent candidate counts as zero, with two
 * absent the third is the prediction, with three the prediction is zero.
 * Statuses: -8; -14 mvStep < 4; -103 blockIndex; -5 available outside 0..7. */
KPLVC_API KplStatus kpliPredictMV_MPEG4(const KplMotionVector* pMVCur, Kpl32s mvStep, Kpl32s blockIndex,
                                        Kpl32s available, KplMotionVector* pPred);

/* Direct-mode vectors of a B-VOP macroblock from the four vectors of the
 * co-located macroblock of the next reference VOP (a one-vector macroblock
 * repeated, intra ones zero) and the decoded delta, per block and
 * component with "/" truncating toward zero:
 *   forward  = TRB * col / TRD + delta
 *   backward = delta == 0 ? (TRB - TRD) * col / TRD : forward - col
 * TRB and TRD are the temporal distances of the standard (for field
 * vectors, the field distances). Statuses: -8; -96 TRD < 1 or TRB outside
 * 0..TRD. */
KPLVC_API KplStatus kpliDirectMV_MPEG4(const KplMotionVector* pColocated, const KplMotionVector* pDelta,
                                       Kpl32s TRB, Kpl32s TRD, KplMotionVector* pForward,
                                       KplMotionVector* pBackward);

/* Quarter-sample luminance prediction (Advanced Simple Profile) of a
 * 16x16, 16x8 (a field with a doubled step) or 8x8 block. pSrc is the
 * reference at the vector's integer part (v >> 2), qpelPos = (vx & 3) |
 * (vy & 3) << 2. Half-sample values come from the 8-tap filter
 * (-1, 3, -6, 20, 20, -6, 3, -1) / 32 with (sum + 16 - rc) >> 5, whose taps
 * beyond the block's W+1 x H+1 reference samples are mirrored back into
 * them; quarter values average the two nearest integer and half values with
 * (a + b + 1 - rc) >> 1; rows first, then columns of the row results. At
 * most W+1 x H+1 samples are read. Statuses: -8; -95 size not 16x16,
 * 16x8 or 8x8; -14 a step below the width; -5 qpelPos outside 0..15; -90
 * roundControl not 0 or 1. */
KPLVC_API KplStatus kpliInterpolateQPel_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                     Kpl32s dstStep, KpliSize blockSize, Kpl32s qpelPos,
                                                     Kpl32s roundControl);

/* Two references (a B-VOP's interpolated macroblock): each predicted as
 * above, then (f + b + 1) >> 1. Statuses as above, pointers and steps in
 * argument order. */
KPLVC_API KplStatus kpliInterpolateQPelBi_MPEG4_8u_C1R(const Kpl8u* pSrcF, Kpl32s srcStepF, Kpl32s qpelPosF,
                                                       const Kpl8u* pSrcB, Kpl32s srcStepB, Kpl32s qpelPosB,
                                                       Kpl8u* pDst, Kpl32s dstStep, KpliSize blockSize,
                                                       Kpl32s roundControl);

/* Global motion compensation of S-VOPs with sprite_enable = GMC. */
typedef int64_t Kpl64s;

/* Warp of one S-VOP, filled by kpliWarpInit_MPEG4 and read by the warp
 * functions; plane 0 luminance, 1 chrominance. Sample (i, j) of a plane
 * maps to X = (offset[0] + delta[0] i + delta[1] j) >> shift and
 * Y = (offset[1] + delta[2] i + delta[3] j) >> shift in 1/s samples,
 * s = 2 << accuracy. */
typedef struct {
    Kpl32s points;        /* no_of_sprite_warping_points, 0..3 */
    Kpl32s accuracy;      /* sprite_warping_accuracy, 0..3 */
    Kpl32s width, height; /* the VOP, luminance samples */
    Kpl64s offset[2][2];
    Kpl32s delta[2][4];
    Kpl32s shift[2];
} KplMPEG4Warp;

/* The warp of a VOP of vopSize from the sprite trajectory: pDu[n], pDv[n]
 * (n < points) the decoded warping vectors in half samples. The corners
 * (0, 0), (W, 0), (0, H) move by du0, du0 + du1, du0 + du2 (the sprite
 * points (s / 2)(2 i + du) in 1/s samples); the virtual
 * points at the powers of two W' >= W, H' >= H are rounded with "//"; 0 or
 * 1 point is a translation (chroma offset (d >> 1) | (d & 1)), 2 points
 * rotation and zoom, 3 points an affine map (ISO/IEC 14496-2 7.8.4).
 * Statuses: -8 (pDu, pDv only when points > 0); -6 a size outside
 * 1..8192; -5 points outside 0..3, accuracy outside 0..3, or a warping
 * vector outside -16384..16383. */
KPLVC_API KplStatus kpliWarpInit_MPEG4(KplMPEG4Warp* pWarp, const Kpl32s* pDu, const Kpl32s* pDv,
                                       Kpl32s points, Kpl32s accuracy, KpliSize vopSize);

/* The warped prediction of the 16x16 luminance block (or the 8x8 block of
 * one chrominance plane) whose top-left sample is (x, y) of the plane. pRef
 * addresses the reference plane's sample (0, 0); samples are read only
 * inside the plane (width x height, chrominance (width + 1) / 2 x
 * (height + 1) / 2), a position outside taking the nearest edge sample.
 * The prediction is the bilinear interpolation at 1/s sample with
 * + s*s/2 - roundControl before the final shift. Statuses: -8; -14 refStep
 * below the plane width or dstStep below the block; -90 roundControl. */
KPLVC_API KplStatus kpliWarpLuma_MPEG4_8u_C1R(const Kpl8u* pRef, Kpl32s refStep, Kpl8u* pDst, Kpl32s dstStep,
                                              Kpl32s x, Kpl32s y, const KplMPEG4Warp* pWarp,
                                              Kpl32s roundControl);
KPLVC_API KplStatus kpliWarpChroma_MPEG4_8u_C1R(const Kpl8u* pRef, Kpl32s refStep, Kpl8u* pDst,
                                                Kpl32s dstStep, Kpl32s x, Kpl32s y, const KplMPEG4Warp* pWarp,
                                                Kpl32s roundControl);

/* The vector a GMC macroblock (mbX, mbY) stands for in vector prediction:
 * the mean displacement of its 256 luminance samples in half (quarter,
 * quarterSample 1) samples, rounded half away from zero and clamped to
 * [-2^(fcode+4), 2^(fcode+4) - 1]. Statuses: -8; -98 fcode; -90
 * quarterSample not 0 or 1. */
KPLVC_API KplStatus kpliWarpMV_MPEG4(const KplMPEG4Warp* pWarp, Kpl32s mbX, Kpl32s mbY, Kpl32s fcode,
                                     Kpl32s quarterSample, KplMotionVector* pMV);
/* Display post-filters (ISO/IEC 14496-2 Annex F.3): deblocking across the
 * 8x8 block edges of a decoded plane, then deringing inside its blocks;
 * applied to a copy of the picture for display, never to a reference.
 *
 * The region (roiSize at pSrcDst / pSrc) is a whole number of 8x8 blocks,
 * its blocks counted from its top-left sample. pQP holds the QP (1..31) of
 * each macroblock covering the region, qpStep entries per row; mbSize is 16
 * for a luminance plane and 8 for a 4:2:0 chrominance plane (a macroblock's
 * 8x8 block there).
 *
 * Deblocking looks at ten samples v0..v9 across an edge (the edge between v4
 * and v5) and uses the QP of v5's macroblock. When at least 6 of the nine
 * differences |v(i) - v(i+1)| are at most 2 (a smooth region) and v1..v8
 * span less than 2 QP, v1..v8 become the 9-tap filter
 * {1,1,2,2,4,2,2,1,1} // 16 of the line, extended with v0 (v9) where
 * |v1 - v0| < QP (|v8 - v9| < QP) and with v1 (v8) otherwise. Else v4 and
 * v5 move by d = clip(5 (a3,0' - a3,0) // 8 into 0..(v4 - v5) / 2) when
 * |a3,0| < QP: a3,0, a3,1, a3,2 are (2 -5 5 -2) . (v3..v6, v1..v4, v5..v8)
 * // 8 and a3,0' = sign(a3,0) min(|a3,0|, |a3,1|, |a3,2|). "//" rounds to
 * nearest, halves away from zero; "/" truncates. The edges inside the
 * region are filtered in place in raster order (an edge reads the samples
 * that the previous one wrote); the region's own border is not an edge.
 * Filter the horizontal edges first, then the vertical ones.
 *
 * Statuses: -8 a pointer; -6 a region side below 8 or not a multiple of 8;
 * -95 mbSize not 16 or 8; -14 a step below the region's width or qpStep
 * below the macroblocks per row; -104 a QP outside 1..31. */
KPLVC_API KplStatus kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep,
                                                               KpliSize roiSize, const Kpl8u* pQP,
                                                               Kpl32s qpStep, Kpl32s mbSize);
KPLVC_API KplStatus kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep,
                                                               KpliSize roiSize, const Kpl8u* pQP,
                                                               Kpl32s qpStep, Kpl32s mbSize);

/* Deringing from pSrc to pDst (the same region geometry; the planes must not
 * overlap). Each block's threshold is (max + min + 1) / 2 of its samples.
 * In luminance (mbSize 16) the blocks of a macroblock are compared: with
 * max_range the largest block range (max - min) of the macroblock, a block
 * of range below 32 takes the threshold of the first block of max_range
 * when max_range >= 64, and every block gets threshold 0 when
 * max_range < 64. A sample whose 3x3 neighbourhood is all at or above the
 * threshold, or all below it, becomes (8 + sum of the neighbourhood weighted
 * 1 2 1 / 2 4 2 / 1 2 1) / 16, limited to within QP / 2 of its value; other
 * samples, and the samples on the region's border, are copied. The
 * neighbourhood reads unfiltered samples, across block edges too.
 * Statuses as for deblocking (-14 for either step). */
KPLVC_API KplStatus kpliFilterDeringing_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                     Kpl32s dstStep, KpliSize roiSize, const Kpl8u* pQP,
                                                     Kpl32s qpStep, Kpl32s mbSize);

/* ---- MPEG-4 Visual: binary shape and padding for arbitrary shape ------- */
/* A binary alpha plane holds 0 (transparent) or 255 (opaque) per luminance
 * sample; the readers treat any non-zero sample as opaque and write 0 or
 * 255. A BAB (binary alpha block) is the 16x16 shape of a macroblock, or
 * the 8x8 / 4x4 block it was down-sampled to (conv_ratio 2 / 4). Stream
 * readers and writers follow the MPEG-4 conventions above; the checks come
 * in the order -8, -105, -95 size, -14 steps, then the value ranges. */

/* bab_type (0..6) in an I-VOP: the code table is chosen by the types of the
 * neighbouring BABs pNeighbours[0..3] = above-left, above, above-right,
 * left, each 2..4 (a neighbour outside the VOP or the video packet counts as
 * 2, transparent). Statuses: -8, -105, -5 a neighbour type outside 2..4,
 * -74 no code matches. */
KPLVC_API KplStatus kpliDecodeBABTypeIntra_MPEG4_1u32s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                       const Kpl32s* pNeighbours, Kpl32s* pBabType);
/* bab_type in a P- or B-VOP, by the type of the co-located BAB of the
 * reference VOP (prevType 0..6). Statuses: -8, -105, -5 prevType, -74. */
KPLVC_API KplStatus kpliDecodeBABTypeInter_MPEG4_1u32s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                       Kpl32s prevType, Kpl32s* pBabType);

/* The shape vector difference (mvds_x, then mvds_y), integer samples in
 * -16..16: a magnitude v is v ones and a zero, then a sign bit (1 positive);
 * when mvds_x is 0, mvds_y (never 0) is coded with v - 1 ones. Statuses:
 * -8, -105, -2 the unused all-ones pattern. */
KPLVC_API KplStatus kpliDecodeShapeMVD_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                   KplMotionVector* pMVD);

/* Context-based arithmetic decoding of a size x size BAB (16, 8 or 4) into
 * pBAB, which addresses its top-left sample in a plane of row step `step`.
 * The contexts read the BAB's border from the plane: the two rows above
 * (columns -2..size+1: the above-left, above and above-right BABs) and the
 * two columns to the left (rows 0..size-1); the caller sets every border
 * sample outside the VOP or the video packet to 0 (a scratch copy of the
 * neighbourhood serves where the plane does not hold that). For a
 * down-sampled BAB the caller passes the down-sampled border. scanType 1:
 * rows in raster order; 0: the BAB and its border are transposed before
 * decoding (columns first; the below-left border then reads as 0 and the
 * above-right one is not used). The intra form uses the 10-pixel intra
 * context; the inter form the 9-pixel inter context, whose five
 * motion-compensated samples come from pMC: the compensated BAB at the same
 * size, with one readable sample around it (rows and columns -1..size). The
 * arithmetic code ends at a bit position that the stream pointer and offset
 * then address. A code never fails: a damaged stream gives a wrong shape.
 * At most 512 bytes from the current byte are read. Statuses: -8 (pMC for
 * inter), -105, -95 size, -14 step or mcStep below size, -90 scanType not 0
 * or 1. */
KPLVC_API KplStatus kpliDecodeBABIntra_MPEG4_1u8u(Kpl8u** ppBitStream, Kpl32s* pBitOffset, Kpl8u* pBAB,
                                                  Kpl32s step, Kpl32s size, Kpl32s scanType);
KPLVC_API KplStatus kpliDecodeBABInter_MPEG4_1u8u(Kpl8u** ppBitStream, Kpl32s* pBitOffset, Kpl8u* pBAB,
                                                  Kpl32s step, const Kpl8u* pMC, Kpl32s mcStep, Kpl32s size,
                                                  Kpl32s scanType);
/* The encoders of the same BABs: the BAB at pBAB and its border are read as
 * the decoders read them, and the arithmetic code is appended to the
 * stream (at most 512 bytes for a 16x16 BAB). Statuses: -8, -105, -95,
 * -14, -90. */
KPLVC_API KplStatus kpliEncodeBABIntra_MPEG4_8u1u(const Kpl8u* pBAB, Kpl32s step, Kpl32s size,
                                                  Kpl32s scanType, Kpl8u** ppBitStream, Kpl32s* pBitOffset);
KPLVC_API KplStatus kpliEncodeBABInter_MPEG4_8u1u(const Kpl8u* pBAB, Kpl32s step, const Kpl8u* pMC,
                                                  Kpl32s mcStep, Kpl32s size, Kpl32s scanType,
                                                  Kpl8u** ppBitStream, Kpl32s* pBitOffset);

/* Repetitive padding of one boundary block in place: the 16x16 luminance
 * block (chroma 0) whose shape is the 16x16 alpha block at pAlpha, or an 8x8
 * chrominance block (chroma 1) whose sample is inside the shape when any of
 * the 2x2 alpha samples it covers is non-zero. Samples outside the shape
 * are replaced, first along each row (a run between two inside samples
 * takes (a + b + 1) >> 1 of them, a run at an end repeats its neighbour),
 * then down each column from the rows that had inside samples, the same
 * way. Statuses: -8; -14 step below the block or alphaStep below 16; -90
 * chroma not 0 or 1; -2 no sample inside the shape (nothing written). */
KPLVC_API KplStatus kpliPadMB_MPEG4_8u_C1IR(Kpl8u* pSrcDst, Kpl32s step, const Kpl8u* pAlpha,
                                            Kpl32s alphaStep, Kpl32s chroma);
/* Extended padding of a transparent size x size block (16 or 8): it repeats
 * the adjacent column or row of its first padded neighbour in the order
 * left, above, right, below (neighbours bits 1, 2, 4, 8: which of them
 * hold shape samples and are padded; only that column or row is read), or
 * is set to 128 when it has none. Statuses: -8, -95, -14, -5 neighbours
 * outside 0..15. */
KPLVC_API KplStatus kpliPadMBExtended_MPEG4_8u_C1R(Kpl8u* pDst, Kpl32s step, Kpl32s size, Kpl32s neighbours);
/* Pads a reconstructed VOP of roi (multiples of the block size) for use as a
 * reference: every boundary block as kpliPadMB_MPEG4_8u_C1IR, then every
 * transparent block as kpliPadMBExtended_MPEG4_8u_C1R from its neighbours
 * that are not transparent. The luminance plane (chroma 0) has 16x16
 * blocks and an alpha plane of its size; a chrominance plane (chroma 1) 8x8
 * blocks and the luminance alpha plane (2 roi). The area beyond the VOP is
 * then extended as for any reference (kpliExpandFrame_H263_8u). Statuses:
 * -8; -6 roi below 1 or not a multiple of the block; -14 step below the
 * width or alphaStep below the alpha width; -90 chroma. */
KPLVC_API KplStatus kpliPadVOP_MPEG4_8u_C1IR(Kpl8u* pPlane, Kpl32s step, const Kpl8u* pAlpha,
                                             Kpl32s alphaStep, KpliSize roi, Kpl32s chroma);

/* ---- MPEG-4 Visual: down-sampled BABs and the shape vector predictor ---- */
/* A BAB coded with conv_ratio 2 or 4 (convRatio) is an 8x8 or 4x4 block
 * (16 / convRatio). The decoder gives the CAE decoder the down-sampled
 * border, decodes the small block into a scratch area, and up-samples it
 * into the alpha plane; an encoder down-samples the BAB (and, for inter
 * coding, the motion-compensated BAB with its border) first. Statuses of
 * all three: -8; -105 convRatio not 2 or 4; then -6, -14. */

/* Each sample of the dstRoi result stands for a convRatio x convRatio block
 * of the source: 255 when at least half of its samples are inside (2 of 4,
 * 8 of 16), else 0. For the motion-compensated BAB with its one-sample
 * border, pass the area from (-convRatio, -convRatio) of the full-size one
 * and a roi of 16 / convRatio + 2. */
KPLVC_API KplStatus kpliDownsampleAlpha_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                     Kpl32s dstStep, KpliSize dstRoi, Kpl32s convRatio);
/* The border a down-sampled BAB's CAE contexts read, from the border of the
 * 16x16 BAB at pSrc in the alpha plane (the two rows above, columns
 * -2..17, and the two columns on the left, rows 0..15; samples outside the
 * VOP or the video packet set to 0 by the caller) to the border around the
 * small block at pDst (the two rows above, columns -2..size+1, and the two
 * columns on the left, rows 0..size-1). The rows and columns keep their
 * depth; along them, a sample over the BAB is 255 when any of the convRatio
 * samples it stands for is, and the two corner samples at each end of the
 * rows above are copied. */
KPLVC_API KplStatus kpliDownsampleBABBorder_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                         Kpl32s dstStep, Kpl32s convRatio);
/* Up-samples the decoded size x size block at pSrc into the 16x16 BAB at
 * pDst, with the interpolation filter of ISO/IEC 14496-2 7.5.4, doubling
 * once (convRatio 2) or twice (4, through 8x8). Every doubling reads the
 * BAB's border from the plane at pDst as the CAE decoder does, down-sampled
 * to the resolution it works at (as kpliDownsampleBABBorder_MPEG4_8u_C1R);
 * the samples right of and below the block repeat its last column, then its
 * last row. An output sample lies in the square of four input samples
 * around it: the nearest A, the horizontal and vertical neighbours B and C,
 * the diagonal one D, and the eight samples around the square form a
 * context; it is 255 when 4A + 2(B + C + D) + the eight exceeds the
 * threshold of that context. Where the square lies right of and below A,
 * the eight are, as bits 0..7: above A, above B, right of B, right of D,
 * below D, below C, left of C, left of A; the other three positions mirror
 * this horizontally, vertically or both. */
KPLVC_API KplStatus kpliUpsampleBAB_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                 Kpl32s dstStep, Kpl32s convRatio);
/* The predictor of a shape vector (integer samples): the first candidate
 * whose bit is set in `valid`, in the order of the bits: 0..2 the shape
 * vectors pShapeMV[0..2] of the macroblocks left, above and above-right
 * (valid when that BAB has a shape vector: bab_type 0, 1, 5 or 6, in the VOP
 * and the video packet), then 3..5 the texture vectors pTextureMV[0..2]
 * (half samples) of block 1 of the left macroblock and block 2 of the
 * macroblocks above and above-right (valid when that macroblock is inter
 * coded and not transparent), halved toward zero; (0, 0) when none is.
 * Statuses: -8, -5 valid outside 0..63. */
KPLVC_API KplStatus kpliPredictShapeMV_MPEG4(const KplMotionVector* pShapeMV,
                                             const KplMotionVector* pTextureMV, Kpl32s valid,
                                             KplMotionVector* pPred);

/* ---- MPEG-4 Visual: reversible VLC texture (data-partitioned packets) ---- */
/* Streams with reversible_vlc = 1 code the texture partition of a
 * data-partitioned video packet with the reversible tables (ISO/IEC 14496-2
 * Tables B-23 / B-24): 169 code words, each with an intra and an inter
 * (LAST, RUN, LEVEL) meaning, followed by a sign bit, and one escape of 30
 * bits, "0000 1 LAST RUN(6) 1 |LEVEL|(11) 1 0000 s". The words read the same
 * way from both ends, so a packet whose forward pass stopped at damage can be
 * read again from the end of its texture partition. The symbols of the other
 * partitions are the usual ones (kpliDecodeMCBPC*_H263, kpliDecodeCBPY_H263,
 * kpliDecodeDCIntra_MPEG4_1u16s, kpliDecodeMV_MPEG4_1u16s).
 *
 * Forward decoders: as kpliDecodeCoeffsIntra_MPEG4_1u16s and
 * kpliDecodeCoeffsInter_MPEG4_1u16s (dcVlc, scan, the written range and
 * *pIndxLastNonZero alike), with the reversible words and escape. Statuses:
 * -8; -105 bit offset; -90 dcVlc (intra); -5 scan; then from the stream -100
 * an illegal word, an escape whose first or last word is wrong or whose
 * level is 0, -99 an escape marker bit that is 0, -72 a run past
 * coefficient 63. Nothing is written on failure. */
KPLVC_API KplStatus kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                          Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                          Kpl32s dcVlc, Kpl32s scan);
KPLVC_API KplStatus kpliDecodeCoeffsInterRVLC_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                          Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                          Kpl32s scan);

/* kpliDecodeCoeffsInterRVLC_MPEG4_1u16s with the inverse quantisation of
 * kpliReconstructCoeffsInter_MPEG4_1u16s applied as each level is read (the
 * same exact arithmetic, clamping and mismatch control). Statuses: -8, -105,
 * -5 scan, -104 QP outside 1..31, then the stream's. */
KPLVC_API KplStatus kpliReconstructCoeffsInterRVLC_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                               Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                               Kpl32s scan, Kpl32s QP,
                                                               const Kpl16s* pQMatrix);

/* Backward decoders: *ppBitStream / *pBitOffset is the position just after
 * a block's last bit (the end of the texture partition, before its stuffing,
 * for the packet's last coded block); (pStart, startOffset) the first bit of
 * the partition, which is never read past. The block's events are read from
 * its end: the sign bit, then the word reversed; the first one read must have
 * LAST = 1. Reading stops at the partition's first bit or before the previous
 * block's last event (an event with LAST = 1, left unread). The levels land
 * as in the forward decoder, and the position moves back to the block's first
 * bit, where the previous block ends. Reads only bytes from pStart up to the
 * one holding the bit before the position. Statuses: -8 (pStart included);
 * -105 either bit offset outside 0..7; -90 dcVlc (intra); -5 scan, or the
 * start after the position; then -100 an illegal word, a first event without
 * LAST, fewer bits left before the start than a word needs, a bad escape;
 * -99; -72 the events need more than 64 (63 with dcVlc 1) positions. Nothing
 * is written on failure. */
KPLVC_API KplStatus kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                              const Kpl8u* pStart, Kpl32s startOffset,
                                                              Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                              Kpl32s dcVlc, Kpl32s scan);
KPLVC_API KplStatus kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                              const Kpl8u* pStart, Kpl32s startOffset,
                                                              Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                              Kpl32s scan);

/* Writers: as kpliEncodeCoeffsIntra/Inter_MPEG4_16s1u with the reversible
 * words; an event without a word of its own takes the 30-bit escape. Levels
 * must lie in -2047..2047. Statuses: -8, -105, -90 dcVlc (intra), -5 scan,
 * -5 a level out of range (checked before anything is written). */
KPLVC_API KplStatus kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                          Kpl32s* pBitOffset, Kpl32s dcVlc, Kpl32s scan);
KPLVC_API KplStatus kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                          Kpl32s* pBitOffset, Kpl32s scan);
/* @mpeg4-end */

/* ------------------------------------------------------------------------ */
/* Motion estimation and rate control                                       */
/* ------------------------------------------------------------------------ */
/* @me-begin */
/* Block-matching searches for an encoder. Every search compares the current
 * block (pSrc, srcStep) with blocks of a reference plane; pRef addresses the
 * reference block at displacement (0, 0) (the co-located block) and the block
 * at integer displacement (x, y) starts at pRef + y * refStep + x. The caller
 * keeps every sample that a search reads inside its buffer (a reference
 * plane with borders): every search, the refinements included, reads only
 * the blocks of its window.
 *
 * Vectors are in vector units: half samples (quarterSample 0) or quarter
 * samples (quarterSample 1). An integer search returns a vector whose
 * components are multiples of 2 (or 4).
 *
 * The price of a vector v is J = 16 * SAD(v) + lambda * R(v - pred): lambda
 * is the price of one bit in sixteenths of a SAD unit, and R is the length in
 * bits of the difference's code with the f_code of the search: per
 * component, d is brought into [-32f, 32f - 1], f = 2^(fcode - 1), by adding
 * or subtracting 64f; d = 0 costs 1 bit; otherwise m = ((|d| - 1) >> (fcode - 1))
 * + 1 (1..32) costs the length of motion code m in ISO/IEC 14496-2 Table B-12
 * (the H.263 MVD code; its sign included) plus fcode - 1 bits. The search
 * returns the vector of least J; between vectors of equal J, tieRule decides:
 *   KPLVC_ME_TIE_RASTER  the first in raster order: smaller dy, then smaller dx;
 *   KPLVC_ME_TIE_ZERO    the shorter: smaller |dx| + |dy|, then raster order;
 *   KPLVC_ME_TIE_PRED    nearer the predictor: smaller |dx - px| + |dy - py|,
 *                        then raster order
 * (all in vector units). With lambda 0, J is 16 * SAD and the rule alone
 * breaks ties. *pSAD receives SAD(v) of the chosen vector, without the price. */
#define KPLVC_ME_TIE_RASTER 0
#define KPLVC_ME_TIE_ZERO 1
#define KPLVC_ME_TIE_PRED 2

typedef struct {
    KpliRect window;      /* integer displacements searched, in samples:
                             x .. x + width - 1 by y .. y + height - 1 */
    KplMotionVector pred; /* the vector's predictor, in vector units */
    Kpl32s lambda;        /* 0..65535: price of a bit in 1/16 SAD */
    Kpl32s fcode;         /* 1..7: the vector range and the code lengths */
    Kpl32s quarterSample; /* 0: vectors in half samples, 1: in quarter samples */
    Kpl32s tieRule;       /* KPLVC_ME_TIE_RASTER, _ZERO or _PRED */
} KplMESearch;

/* The checks every function taking a KplMESearch makes, in this order, after
 * its null pointers: window width or height below 1: -6; its own steps: -14;
 * fcode outside 1..7: -98; quarterSample not 0 or 1: -90; tieRule outside
 * 0..2: -5; lambda outside 0..65535: -5; a window vector (in vector units,
 * x * 2 or x * 4) outside [-32f, 32f - 1]: -5; pred outside that range: -5.
 * So every vector a search can return has a code with this fcode. */

/* pDst(x, y) = the sum of the 16x16 block whose top-left sample is
 * pSrc(x, y), for x < roiSize.width, y < roiSize.height: a sum plane for
 * kpliSearchSEA16x16_8u32s_C1R (at most 65280, so the cells never wrap).
 * Reads width + 15 columns by height + 15 rows. pDst's step is in bytes.
 * Statuses: -8 pSrc or pDst null; -6 width or height below 1; -14 srcStep
 * below width + 15, or dstStep below 2 * width. */
KPLVC_API KplStatus kpliBlockSums16x16_8u16u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl16u* pDst,
                                                 Kpl32s dstStep, KpliSize roiSize);
/* As kpliBlockSums16x16_8u16u_C1R with 8x8 blocks (width + 7 columns by
 * height + 7 rows read; srcStep at least width + 7). */
KPLVC_API KplStatus kpliBlockSums8x8_8u16u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl16u* pDst,
                                               Kpl32s dstStep, KpliSize roiSize);

/* Exhaustive search: J of every displacement of the window, the least
 * (with pSearch->tieRule) to *pMV, its SAD to *pSAD.
 * Statuses: -8 pSrc, pRef, pSearch, pMV or pSAD null; -6; -14 srcStep below
 * 16 or refStep below window width + 15; then those of KplMESearch. */
KPLVC_API KplStatus kpliSearchFull16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  KplMotionVector* pMV, Kpl32s* pSAD);
/* As kpliSearchFull16x16_8u32s_C1R for an 8x8 block (steps at least 8 and
 * window width + 7). */
KPLVC_API KplStatus kpliSearchFull8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, const KplMESearch* pSearch,
                                                KplMotionVector* pMV, Kpl32s* pSAD);

/* Successive-elimination search: exactly the result of
 * kpliSearchFull16x16_8u32s_C1R (vector and SAD, ties included), found with
 * fewer SADs. With Sc the sum of the current block and S(v) that of the
 * reference block at v, |Sc - S(v)| <= SAD(v), so a displacement whose bound
 * 16 |Sc - S(v)| + lambda R(v - pred) is above the best J found so far (or
 * equal to it and behind it in the tie order) cannot win and its SAD is not
 * computed. The predictor and the zero vector (each rounded to the nearest
 * sample and brought into the window) are tried first, then the window in
 * raster order.
 * The block sums come from pRefSum, a sum plane of the reference made by
 * kpliBlockSums16x16_8u16u_C1R and addressed like pRef (pRefSum points at
 * the sum of the co-located block, rows refSumStep bytes apart), or, when
 * pRefSum is null, are computed by the call over its window (about two
 * additions per displacement: a plane pays when windows overlap, as those
 * of neighbouring macroblocks do). When the call computes them, it also
 * bounds by the block's four 8x8 quarters, as
 * kpliSearchSEAQuarters16x16_8u32s_C1R does.
 * Statuses: as kpliSearchFull16x16_8u32s_C1R (pRefSum may be null), with
 * -14 also for refSumStep below 2 * window width when pRefSum is used. */
KPLVC_API KplStatus kpliSearchSEA16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                 Kpl32s refStep, const Kpl16u* pRefSum, Kpl32s refSumStep,
                                                 const KplMESearch* pSearch, KplMotionVector* pMV,
                                                 Kpl32s* pSAD);
/* As kpliSearchSEA16x16_8u32s_C1R (the same result) with a tighter bound:
 * with Sc(q) and S(v, q) the sums of the four 8x8 quarters q of the current
 * and reference blocks, sum over q of |Sc(q) - S(v, q)| <= SAD(v), and it is
 * at least |Sc - S(v)|; on texture it spares most of the SADs the 16x16 bound
 * lets through. pRefSum8 is a plane of the reference's 8x8 sums made by
 * kpliBlockSums8x8_8u16u_C1R and addressed like pRef (no 16x16 sums are
 * needed); it must reach 8 positions right of and below the window (window
 * width + 8 cells by window height + 8 rows). When pRefSum8 is null the
 * call computes the quarter sums over its window.
 * pStart, when not null, is a vector (vector units, rounded to the nearest
 * sample and brought into the window) tried first with the predictor and
 * the zero vector, typically a faster search's result: the better the J
 * known early, the more the bound prunes. It changes the work, never the
 * result.
 * Statuses: as kpliSearchFull16x16_8u32s_C1R (pRefSum8 and pStart may be
 * null), with -14 also for refSum8Step below 2 * (window width + 8) when
 * pRefSum8 is used. */
KPLVC_API KplStatus kpliSearchSEAQuarters16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                         Kpl32s refStep, const Kpl16u* pRefSum8,
                                                         Kpl32s refSum8Step, const KplMESearch* pSearch,
                                                         const KplMotionVector* pStart, KplMotionVector* pMV,
                                                         Kpl32s* pSAD);
/* As kpliSearchSEA16x16_8u32s_C1R for an 8x8 block, with a sum plane from
 * kpliBlockSums8x8_8u16u_C1R. */
KPLVC_API KplStatus kpliSearchSEA8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                               Kpl32s refStep, const Kpl16u* pRefSum, Kpl32s refSumStep,
                                               const KplMESearch* pSearch, KplMotionVector* pMV,
                                               Kpl32s* pSAD);

/* MVFAST (motion vector field adaptive search). neighbour[] holds the final
 * vectors (vector units) of the left, above and above-right blocks; bit 0, 1
 * and 2 of `available` say which of them exist (clear outside the picture).
 * Thresholds in samples (activity) and SAD units (stopSAD). Suggested values:
 * activityLow 1, activityHigh 2, stopSAD 512 for 16x16 and 128 for 8x8. */
typedef struct {
    KplMotionVector neighbour[3]; /* left, above, above-right */
    Kpl32s available;             /* 0..7, bit i: neighbour[i] exists */
    Kpl32s activityLow;           /* L1 >= 0 */
    Kpl32s activityHigh;          /* L2 >= L1 */
    Kpl32s stopSAD;               /* >= 0; 0 never stops early */
} KplMVFAST;

/* MVFAST search, step by step. "Better" means smaller J, or equal J and
 * earlier in pSearch->tieRule's order; a point outside the window is never
 * evaluated; every vector below is an integer displacement.
 *  1. Candidates: each available neighbour, divided by 2 (4 with
 *     quarterSample) and rounded to the nearest integer, halves away from
 *     zero, per component: c1, c2, c3.
 *  2. Activity: L = the largest |cx| + |cy| of the available candidates (0
 *     when none is available). Small when L <= activityLow, medium when
 *     activityLow < L <= activityHigh, large when L > activityHigh.
 *  3. Z = the zero vector brought into the window (each component clamped).
 *     Evaluate Z. If SAD(Z) < stopSAD, the result is Z.
 *  4. Small activity: centre Z, then small diamond search.
 *     Medium activity: centre Z, then large diamond search, then one small
 *     diamond step.
 *     Large activity: the centre is the best of Z and the candidates (each
 *     clamped into the window), tried in the order Z, c1, c2, c3; then small
 *     diamond search.
 *  5. Small diamond search: repeat small diamond steps until a step keeps
 *     the centre. A small diamond step evaluates the centre's neighbours
 *     (0,-1), (-1,0), (1,0), (0,1) and moves the centre to the best of the
 *     centre and them. Large diamond search: the same with the eight points
 *     (0,-2), (-1,-1), (1,-1), (-2,0), (2,0), (-1,1), (1,1), (0,2).
 *  6. The result is the final centre: *pMV (vector units), *pSAD its SAD.
 * Statuses: -8 pSrc, pRef, pSearch, pParams, pMV or pSAD null; -6; -14 as
 * kpliSearchFull16x16_8u32s_C1R; those of KplMESearch; -5 available outside
 * 0..7, activityLow < 0, activityHigh < activityLow or stopSAD < 0. */
KPLVC_API KplStatus kpliSearchMVFAST16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                    Kpl32s refStep, const KplMESearch* pSearch,
                                                    const KplMVFAST* pParams, KplMotionVector* pMV,
                                                    Kpl32s* pSAD);
/* As kpliSearchMVFAST16x16_8u32s_C1R for an 8x8 block. */
KPLVC_API KplStatus kpliSearchMVFAST8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  const KplMVFAST* pParams, KplMotionVector* pMV,
                                                  Kpl32s* pSAD);

/* Half-sample refinement around *pMV (half samples, any position of the
 * window): J of *pMV and of its eight neighbours *pMV + (dx, dy), dx and dy
 * in -1..1, the best (tieRule) to *pMV and its SAD to *pSAD.
 * The prediction at a half position is the decoder's: kpliMC16x16_8u_C1's
 * interpolation with roundControl (the VOP's rounding type in MPEG-4,
 * 0 in MPEG-1/2). A neighbour is evaluated only when it lies in the window
 * scaled to half samples (2x .. 2(x + width - 1), likewise y): a half
 * position's integer part is then at most x + width - 2, so its prediction
 * reads only samples of the window's blocks.
 * Statuses: -8 pSrc, pRef, pSearch, pMV or pSAD null; -6; -14 srcStep below
 * 16 or refStep below window width + 15; those of KplMESearch, with -5 also
 * for quarterSample 1; -5 *pMV outside the scaled window; -91 roundControl
 * not 0 or 1. */
KPLVC_API KplStatus kpliRefineHalf16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  Kpl32s roundControl, KplMotionVector* pMV, Kpl32s* pSAD);
/* As kpliRefineHalf16x16_8u32s_C1R for an 8x8 block (steps at least 8 and
 * window width + 7). */
KPLVC_API KplStatus kpliRefineHalf8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, const KplMESearch* pSearch,
                                                Kpl32s roundControl, KplMotionVector* pMV, Kpl32s* pSAD);
/* MPEG-4 rate control: the quadratic rate model of the MPEG-4 verification
 * model (ISO/IEC 14496-2 Annex L). The texture bits of a VOP coded with
 * quantiser Q are modelled as R = S (X1 / Q + X2 / Q^2), S the VOP's
 * complexity (the mean absolute value of what is coded: the residual after
 * motion compensation, or the intra samples less their mean). The state
 * belongs to the caller (plain memory, nothing to free, no hidden state);
 * the functions read and write only it. Per VOP: kpliRateControlQP_MPEG4
 * gives the target and the quantiser, the caller codes the VOP, then
 * kpliRateControlUpdate_MPEG4 books the bits, refits the model and says how
 * many of the next VOPs to skip. Floating point is IEEE double throughout
 * (sqrt included), so the results are the same on every machine. */
#define KPLVC_RC_WINDOW 20

typedef struct {
    double bitRate;        /* Rs: bits per second */
    double bitsPerVOP;     /* Rp: Rs / VOP rate, what the channel drains per VOP */
    double bufferSize;     /* Bs: the model buffer, bits */
    double bufferLevel;    /* B: its fullness after the last VOP, bits (starts at Bs / 2) */
    double bitsLeft;       /* Rr: bits of the budget not yet spent (Rs * VOPs / rate at start) */
    Kpl32s vopsLeft;       /* Nr: VOPs still to code (skipped ones included) */
    Kpl32s qp;             /* quantiser of the last VOP (the first VOP's at start) */
    Kpl32s lastBits;       /* all bits of the last VOP (0 at start) */
    Kpl32s lastHeaderBits; /* H: its header, mode and vector bits, not modelled */
    double lastMAD;        /* its complexity S (0 at start) */
    double x1, x2;         /* the model's parameters (0, 0 until the first update) */
    Kpl32s count;          /* VOPs in the history below, 0..KPLVC_RC_WINDOW */
    /* The history, newest first: quantiser, texture bits (all less header)
     * and complexity of each VOP booked with texture bits and S above 0. */
    Kpl32s histQP[KPLVC_RC_WINDOW];
    Kpl32s histBits[KPLVC_RC_WINDOW];
    double histMAD[KPLVC_RC_WINDOW];
} KplRateControl_MPEG4;

/* Starts a sequence: bitRate bits per second, rateNum / rateDen VOPs per
 * second, totalVOPs VOPs, a buffer of bufferSize bits, firstQP for the first
 * VOP. Every field is set as described above.
 * Statuses: -8 pState null; -5 bitRate, rateNum, rateDen or totalVOPs
 * below 1, or bufferSize below 2 * Rp; -104 firstQP outside 1..31. */
KPLVC_API KplStatus kpliRateControlInit_MPEG4(KplRateControl_MPEG4* pState, Kpl32s bitRate, Kpl32s rateNum,
                                              Kpl32s rateDen, Kpl32s totalVOPs, Kpl32s bufferSize,
                                              Kpl32s firstQP);

/* The target and quantiser of the next VOP, whose complexity is mad:
 *  1. T = 0.95 Rr / Nr + 0.05 lastBits (Rr / Nr alone before the first
 *     update; Rp when Nr is 0), at least Rs / 30.
 *  2. The buffer moves it towards the middle: T = T (B + 2 (Bs - B)) /
 *     (2 B + (Bs - B)).
 *  3. The buffer's limits: if B + T > 0.9 Bs, T = max(Rs / 30, 0.9 Bs - B);
 *     else if B - Rp + T < 0.1 Bs, T = Rp - B + 0.1 Bs.
 *     *pTarget = T rounded to the nearest integer (when pTarget is not null).
 *  4. Q: qp while the history is empty. Otherwise with t = T - H (at least
 *     Rp / 8 - header bits cannot be had for less) and S = mad: when X2 is 0,
 *     Q = X1 S / t; else the positive root of t Q^2 - X1 S Q - X2 S = 0,
 *     Q = (X1 S + sqrt((X1 S)^2 + 4 X2 S t)) / (2 t), the fallback X1 S / t
 *     taken when the root is not a positive number. Q is rounded to the
 *     nearest integer and kept within 25% of qp: between max(1,
 *     floor(0.75 qp)) and min(31, ceil(1.25 qp)); a mad of 0 gives the
 *     lower limit.
 * Statuses: -8 pState or pQP null; -5 a state whose fields are outside
 * the ranges Init and Update keep them in (say a count above
 * KPLVC_RC_WINDOW, a quantiser outside 1..31, Rp not above 0, a value not
 * finite), or mad negative or not a finite number. */
KPLVC_API KplStatus kpliRateControlQP_MPEG4(const KplRateControl_MPEG4* pState, double mad, Kpl32s* pQP,
                                            Kpl32s* pTarget);

/* Books a coded VOP (quantiser qp, bits in all, headerBits of them outside
 * the texture, complexity mad) and refits the model:
 *  1. Rr -= bits, Nr -= 1 (not below 0), B += bits - Rp (not below 0).
 *  2. With texture bits bits - headerBits and mad above 0, (qp, texture,
 *     mad) enters the history as its newest entry (the oldest of a full
 *     history leaves).
 *  3. The window: the n newest entries, n = ceil(20 r) with r = the smaller
 *     of mad and lastMAD over the larger (a change of complexity forgets
 *     the past; r = 1 when either is 0), at most count, at least 1.
 *  4. The fit: y = R Q / S against x = 1 / Q is a line y = X1 + X2 x; least
 *     squares over the window give X2 = (n Sxy - Sx Sy) / (n Sxx - Sx^2)
 *     and X1 = (Sy - X2 Sx) / n; when every Q of the window is the same
 *     (or n is 1), X2 = 0 and X1 = Sy / n.
 *  5. Outliers: with e = |R - S (X1 / Q + X2 / Q^2)| per entry and sigma
 *     the root mean square of e over the window, the entries with e above
 *     sigma are left out and the fit of step 4 made again over the rest
 *     (when the window holds at least 3 entries and some are left out).
 *  6. qp, bits, headerBits and mad become the last VOP's.
 *  7. Skipping: while B > 0.8 Bs, the next VOP is skipped: B -= Rp,
 *     Nr -= 1 (not below 0). *pSkip (when not null) = VOPs to skip.
 * Statuses: -8 pState null; -5 a state as for kpliRateControlQP_MPEG4;
 * -104 qp outside 1..31; -5 bits below 0,
 * headerBits outside 0..bits, or mad negative or not a number. */
KPLVC_API KplStatus kpliRateControlUpdate_MPEG4(KplRateControl_MPEG4* pState, Kpl32s qp, Kpl32s bits,
                                                Kpl32s headerBits, double mad, Kpl32s* pSkip);
/* @me-end */

/* ------------------------------------------------------------------------ */
/* Quarter-sample motion refinement (MPEG-4 ASP)                             */
/* ------------------------------------------------------------------------ */
/* @meqpel-begin */
/* Quarter-sample refinement for MPEG-4 Advanced Simple Profile streams with
 * quarter_sample = 1. pSearch->quarterSample must be 1: *pMV and the result
 * are in quarter samples. J of *pMV and of its eight neighbours
 * *pMV + step * (dx, dy), dx and dy in -1..1, the best (tieRule) to *pMV and
 * its SAD to *pSAD. step 2 prices the half positions around a whole-sample
 * vector (a search's result), step 1 the quarter positions around the
 * vector that gives; together the sixteen positions a decoder can reach
 * around it, and the eight around the half-sample vector.
 * The prediction is the decoder's: kpliInterpolateQPel_MPEG4_8u_C1R with
 * roundControl (the VOP's rounding type). A position is evaluated only
 * when it lies in the window scaled to quarter samples (4x .. 4(x + width - 1),
 * likewise y): one with a fractional part then has its integer part at
 * most x + width - 2, so its prediction (W+1 x H+1 samples at most) reads
 * only samples of the window's blocks.
 * Statuses: -8 pSrc, pRef, pSearch, pMV or pSAD null; -6; -14 srcStep below
 * 16 or refStep below window width + 15; those of KplMESearch, with -5 also
 * for quarterSample 0; -5 *pMV outside the scaled window; -91 roundControl
 * not 0 or 1; -5 step not 1 or 2. */
KPLVC_API KplStatus kpliRefineQPel16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  Kpl32s roundControl, Kpl32s step, KplMotionVector* pMV,
                                                  Kpl32s* pSAD);
/* As kpliRefineQPel16x16_8u32s_C1R for an 8x8 block (steps at least 8 and
 * window width + 7). */
KPLVC_API KplStatus kpliRefineQPel8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, const KplMESearch* pSearch,
                                                Kpl32s roundControl, Kpl32s step, KplMotionVector* pMV,
                                                Kpl32s* pSAD);
/* @meqpel-end */

/* ------------------------------------------------------------------------ */
/* H.264 transforms, quantisation and CAVLC analysis                          */
/* ------------------------------------------------------------------------ */
/* @h264-begin */
/* 4x4 blocks are 16 Kpl16s in raster order (4*row + column). Level counts are
 * written as a two's-complement byte through a Kpl8u pointer: the number of
 * non-zero levels, negated when level 0 is non-zero. Arithmetic on 16-bit
 * intermediates wraps; forward quantisers return kplStsLevelRangeErr when a
 * level magnitude exceeds 2063. */

/* Inverse 4x4 Hadamard of the 16 luma DC levels of an Intra16x16 macroblock,
 * then their dequantisation, in place. -8 null pointer, -11 QP not in 0..51. */
KPLVC_API KplStatus kpliTransformDequantLumaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP);

/* Inverse 2x2 Hadamard of 4 chroma DC levels, then dequantisation, in place.
 * -8 null pointer, -11 QP not in 0..51. */
KPLVC_API KplStatus kpliTransformDequantChromaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP);

/* Dequantises a 4x4 block whose rows lie step bytes apart and inverse
 * transforms it in place. pDC (may be null) is an already dequantised DC that
 * replaces coefficient 0; AC == 0 takes the DC-only path (16 equal outputs).
 * -8 null pSrcDst, -11 QP not in 0..51, -14 step below 8. */
KPLVC_API KplStatus kpliDequantTransformResidual_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s step, const Kpl16s* pDC,
                                                              Kpl32s AC, Kpl32s QP);

/* As kpliDequantTransformResidual_H264_16s_C1I on a packed block (which
 * receives the residuals), then pDst = clamp(pPred + residual) for the 4x4
 * block. pSrcDst may be null: the DC-only path from *pDC is then taken.
 * -8 null pPred or pDst, -11 QP not in 0..51, -8 pSrcDst and pDC both null.
 * Steps are not checked. */
KPLVC_API KplStatus kpliDequantTransformResidualAndAdd_H264_16s_C1I(const Kpl8u* pPred, Kpl16s* pSrcDst,
                                                                    const Kpl16s* pDC, Kpl8u* pDst,
                                                                    Kpl32s PredStep, Kpl32s DstStep,
                                                                    Kpl32s QP, Kpl32s AC);

/* Forward 4x4 core transform of an 8-bit 4x4 block (rows step bytes apart)
 * into 16 Kpl16s. -8 null pointer. */
KPLVC_API KplStatus kpliTransformPrediction_H264_8u16s_C1(const Kpl8u* pSrc, Kpl32s step, Kpl16s* pDst);

/* SP/SI reconstruction of a 4x4 block: levels pSrcDst plus the transformed
 * prediction pPredictBlock, requantised with QS (with QS for the levels too
 * when Switch is non-zero), inverse transformed; pSrcDst receives the samples
 * (0..255). pDC (may be null) replaces coefficient 0 as is. Any QP and QS are
 * accepted (results are meaningful for 0..51). -8 null pSrcDst or
 * pPredictBlock. */
KPLVC_API KplStatus kpliDequantTransformResidual_SISP_H264_16s_C1I(Kpl16s* pSrcDst,
                                                                   const Kpl16s* pPredictBlock,
                                                                   const Kpl16s* pDC, Kpl32s AC, Kpl32s qp,
                                                                   Kpl32s qs, Kpl32s Switch);

/* SP/SI reconstruction of the 4 chroma DC values from levels pSrcDst and the
 * prediction DC values pDCPredict. Any QP and QS accepted. -8 null pointer. */
KPLVC_API KplStatus kpliTransformDequantChromaDC_SISP_H264_16s_C1I(Kpl16s* pSrcDst, const Kpl16s* pDCPredict,
                                                                   Kpl32s qp, Kpl32s qs, Kpl32s Switch);

/* Quantises 4 chroma DC values: when needTransform is non-zero their 2x2
 * Hadamard is first written to pTBlock, else pTBlock holds the transformed
 * values. Levels replace pSrcDst; *pNumLevels gets the signed count. All
 * outputs are written, then -13 if a level exceeds 2063.
 * -8 null pointer, -11 QP not in 0..39. */
KPLVC_API KplStatus kpliTransformQuantChromaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl16s* pTBlock, Kpl32s QP,
                                                            Kpl8u* pNumLevels, Kpl8u intra,
                                                            Kpl8u needTransform);

/* Quantises the 16 luma DC values of an Intra16x16 macroblock (4x4 Hadamard
 * halved into pTBlock when needTransform is non-zero). Levels replace
 * pSrcDst; *pNumLevels gets the signed count, *pLastCoeff the largest
 * pScanMatrix entry of a non-zero level (0 if none). On -13 (a level above
 * 2063) rows from the failing one keep their input and count and last are
 * not written. -8 null pointer, -11 QP not in 0..51. */
KPLVC_API KplStatus kpliTransformQuantLumaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl16s* pTBlock, Kpl32s QP,
                                                          Kpl8u* pNumLevels, Kpl8u needTransform,
                                                          const Kpl16s* pScanMatrix, Kpl8u* pLastCoeff);

/* Forward core transform of a 4x4 residual and its quantisation in place
 * (intra or inter rounding). Count and last position as above. On -13 rows
 * from the failing one hold transform coefficients and count and last are
 * not written. -8 null pointer, -11 QP not in 0..51. */
KPLVC_API KplStatus kpliTransformQuantResidual_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, Kpl8u* pNumLevels,
                                                            Kpl8u intra, const Kpl16s* pScanMatrix,
                                                            Kpl8u* pLastCoeff);

/* CAVLC analysis of scan positions AC..Count of a 4x4 block (pScanMatrix maps
 * a scan index to a raster position 0..15), walked from Count down: trailing
 * ones (0..3) and their signs (first found in the top bit, 1 = -1), number of
 * non-zero levels, total zeros below the highest level, the other levels
 * (Levels, reverse scan order) and runs (Runs, N-1 entries).
 * -8 null pointer, -11 Count above 15 or below AC. */
KPLVC_API KplStatus kpliEncodeCoeffsCAVLC_H264_16s(const Kpl16s* pSrc, Kpl8u AC, const Kpl32s* pScanMatrix,
                                                   Kpl8u Count, Kpl8u* Trailing_Ones,
                                                   Kpl8u* Trailing_One_Signs, Kpl8u* NumOutCoeffs,
                                                   Kpl8u* TotalZeros, Kpl16s* Levels, Kpl8u* Runs);

/* The same analysis of the 4 chroma DC levels, examined in the order 3, 2, 1,
 * 0. -8 null pointer. */
KPLVC_API KplStatus kpliEncodeChromaDcCoeffsCAVLC_H264_16s(const Kpl16s* pSrc, Kpl8u* Trailing_Ones,
                                                           Kpl8u* Trailing_One_Signs, Kpl8u* NumOutCoeffs,
                                                           Kpl8u* TotalZeros, Kpl16s* Levels, Kpl8u* Runs);
/* @h264-end */

/* ------------------------------------------------------------------------ */
/* H.264 intra prediction and deblocking                                     */
/* ------------------------------------------------------------------------ */
/* @h264pred-begin */
/* Intra prediction in place: pSrcDst is the top-left predicted sample, the
 * neighbours are read around it (row above, left column, corner at
 * pSrcDst - step - 1, and for 4x4 the above-right samples pSrcDst - step + 4..7).
 * availability is a bit set: 1 above, 2 left, 32 corner, 64 above-right (4x4).
 *
 * 4x4 luma, predMode 0..8 (vertical, horizontal, DC, diagonal down-left,
 * diagonal down-right, vertical-right, horizontal-down, vertical-left,
 * horizontal-up). An absent neighbour the mode needs is replaced by 128 and the
 * call returns kplStsNoNeighbourWrn (+11); an absent above-right run is
 * replaced by the last sample above, silently. Statuses: kplStsNullPtrErr,
 * kplStsStepErr (step below 4), kplStsOutOfRangeErr (mode not 0..8). */
KPLVC_API KplStatus kpliPredictIntra_4x4_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, Kpl32s predMode,
                                                      Kpl32s availability);

/* 16x16 luma, predMode 0 vertical, 1 horizontal, 2 DC, 3 plane. Statuses:
 * kplStsNullPtrErr, kplStsMBStepErr (step below 16), kplStsNeighbourErr (the
 * mode needs a neighbour marked absent: vertical needs 1, horizontal 2, plane
 * 1, 2 and 32; DC never fails), kplStsOutOfRangeErr (mode not 0..3). */
KPLVC_API KplStatus kpliPredictIntra_16x16_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, Kpl32s predMode,
                                                        Kpl32s availability);

/* 8x8 chroma, predMode 0 DC, 1 horizontal, 2 vertical, 3 plane. Statuses as
 * for 16x16, with kplStsMBStepErr for a step below 8. */
KPLVC_API KplStatus kpliPredictIntraChroma8x8_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, Kpl32s predMode,
                                                           Kpl32s availability);

/* Deblocking in place of all edges of one macroblock, edge 0 (the boundary
 * with the neighbour, whose samples are read and changed) first. pSrcDst is
 * the block's top-left sample. pAlpha, pBeta: [external edge, internal edges].
 * pBS: 16 boundary strengths 0..4, index 4 * edge + segment (segment k covers
 * lines 4k..4k+3); 0 leaves the segment untouched. Edge 0 uses the strong
 * filter on its non-zero segments when pBS[0] is 4, the normal filter
 * otherwise; internal edges always use the normal filter.
 * Luma: pThresholds holds 16 tc0 values indexed like pBS.
 * Chroma (8x8): edges at 0 and 4; edge 0 takes pBS[0..3] and pThresholds[0..3],
 * edge 1 pBS[8..11] and pThresholds[4..7]; each entry covers two lines.
 * The step is not checked. Status: kplStsNullPtrErr if any pointer is null. */
KPLVC_API KplStatus kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                  const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                  const Kpl8u* pThresholds, const Kpl8u* pBS);
KPLVC_API KplStatus kpliFilterDeblockingLuma_HorEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                  const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                  const Kpl8u* pThresholds, const Kpl8u* pBS);
KPLVC_API KplStatus kpliFilterDeblockingChroma_VerEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                    const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                    const Kpl8u* pThresholds,
                                                                    const Kpl8u* pBS);
KPLVC_API KplStatus kpliFilterDeblockingChroma_HorEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                    const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                    const Kpl8u* pThresholds,
                                                                    const Kpl8u* pBS);
/* @h264pred-end */

/* ------------------------------------------------------------------------ */
/* H.264 inter prediction                                                    */
/* ------------------------------------------------------------------------ */
/* @h264inter-begin */

/* Luma prediction of one H.264 partition at a quarter-sample position.
 * pSrc points at the reference sample of the vector's integer part (the
 * block's top-left); xFrac, yFrac (0..3) are the vector's fractions. Reads
 * only columns -2..W+2 and rows -2..H+2 around pSrc (only the block when both
 * fractions are 0); the caller provides that window, edges replicated.
 * roiSize: 16x16, 16x8, 8x16, 8x8, 8x4, 4x8 or 4x4.
 * Statuses: -8 a pointer null; -6 width or height < 1; -95 another size;
 * -14 srcStep or dstStep below the width; -5 a fraction outside 0..3. */
KPLVC_API KplStatus kpliInterpolateLuma_H264_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                    Kpl32s dstStep, Kpl32s xFrac, Kpl32s yFrac,
                                                    KpliSize roiSize);

/* Chroma prediction (bilinear) at an eighth-sample position, xFrac and yFrac
 * in 0..7. Reads columns 0..W and rows 0..H from pSrc (only the block when
 * both fractions are 0). roiSize: 8x8, 8x4, 4x8, 4x4, 4x2, 2x4 or 2x2.
 * Statuses: -8 a pointer null; -6 width or height < 1; -95 another size;
 * -14 a step below the width; -5 a fraction outside 0..7. */
KPLVC_API KplStatus kpliInterpolateChroma_H264_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                      Kpl32s dstStep, Kpl32s xFrac, Kpl32s yFrac,
                                                      KpliSize roiSize);

/* Weighted sample prediction, in place:
 * pSrcDst = clip(((pSrcDst*w0 + pSrc*w1 + 2^logWD) >> (logWD+1)) + ((o0+o1+1) >> 1)).
 * (0, 1, 1, 0, 0) is the default bi-predictive average; single-list explicit
 * weighting passes pSrc = pSrcDst with w1 = w0 and o1 = o0. pSrc may equal
 * pSrcDst (same step); no other overlap. roiSize: one of the seven luma or
 * seven chroma sizes above.
 * Statuses: -8 a pointer null; -6 width or height < 1; -95 another size;
 * -14 a step below the width; -11 logWD outside 0..7, w0 or w1 outside
 * -128..128, o0 or o1 outside -128..127. */
KPLVC_API KplStatus kpliWeightedAverage_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, const Kpl8u* pSrc,
                                                     Kpl32s srcStep, Kpl32s logWD, Kpl32s w0, Kpl32s w1,
                                                     Kpl32s o0, Kpl32s o1, KpliSize roiSize);

/* @h264inter-end */

/* ------------------------------------------------------------------------ */
/* DV                                                                        */
/* ------------------------------------------------------------------------ */
/* @dv-begin */
/* DV segment decoding: the meanings of value1 in the built table beyond the
 * runs 0..63, the segment's size, and the fields of a block information word. */
#define KPLVC_DV_EOB 64
#define KPLVC_DV_LINK 65
#define KPLVC_DV_ESCAPE 66
#define KPLVC_DV_INVALID 67
#define KPLVC_DV_SEGMENT_BYTES 400
#define KPLVC_DV_SEGMENT_BLOCKS 30
#define KPLVC_DV_INFO_COUNT 0x7F
#define KPLVC_DV_INFO_EOB 0x80
#define KPLVC_DV_INFO_MODE 0x100
#define KPLVC_DV_INFO_CLASS_SHIFT 9
#define KPLVC_DV_INFO_QNO_SHIFT 12
#define KPLVC_DV_INFO_STA_SHIFT 16
#define KPLVC_DV_INFO_PASS_SHIFT 20

/* Builds the DV lookup table from two code tables (short codes, long codes)
 * into one 4097-byte block from the system malloc, read as 32-bit words.
 * An input table: [0] M, its longest code length; [1], [2] not read; then for
 * L = 1..M a count n and n triples (code, value1, value2), code being the
 * L-bit code word. Every code of the first table fills the 2^(M1-L) words
 * from 1 + (code << (M1-L)); of the second, the 2^(M2-L) words from
 * 513 + (code << (M2-L)). Entry: value2 << 22 | value1 << 8 | length, in
 * 32-bit unsigned arithmetic without masking (length L, or L + 4 for the
 * second table). Words no code covers keep what malloc returned; word 0 is
 * never written. Codes must keep every word below 1024: words a malformed
 * table would place beyond the block are not written (not detected).
 * Free the table with kpliFreeHuffmanTable_DV_32u.
 * Statuses: -8 any pointer null; -9 malloc failed (inputs not read). */
KPLVC_API KplStatus kpliInitAllocHuffmanTable_DV_32u(const Kpl32s* pHuffTable1, const Kpl32s* pHuffTable2,
                                                     Kpl32u** ppHuffTable);

/* Releases a table from kpliInitAllocHuffmanTable_DV_32u (system free).
 * Statuses: -8 pHuffTable null. */
KPLVC_API KplStatus kpliFreeHuffmanTable_DV_32u(Kpl32u* pHuffTable);

/* In place, for the 64 coefficients: x = low16((x * q[i]) >> 14) & ~3, the
 * product in 32 bits, the shift arithmetic (q has 14 fractional bits).
 * Statuses: -8 either pointer null. */
KPLVC_API KplStatus kpliQuantInv_DV_16s_C1I(Kpl16s* pSrcDst, const Kpl16s* pDequantTable);
/* Decodes one DV video segment (IEC 61834-2, 25 Mbit/s; 525/60 and 625/50
 * alike): five compressed macroblocks of six DCT blocks each, carried by five
 * consecutive 80-byte video DIF blocks.
 * pStream: the segment's KPLVC_DV_SEGMENT_BYTES (400) bytes; of DIF block k
 *   only bytes 80k+3 (STA << 4 | QNO) and 80k+4..80k+79 (the six block areas:
 *   Y0..Y3 of 14 bytes, then CR and CB of 10) are read.
 * pHuffTable: a table from kpliInitAllocHuffmanTable_DV_32u whose two inputs
 *   both have M = 9: the first holds the code words of up to 9 bits (sign bit
 *   included), links (value1 KPLVC_DV_LINK) for longer ones and the escape
 *   prefix (KPLVC_DV_ESCAPE, value2 = the smallest escape amplitude); the
 *   second holds the longer code words without their first four bits. A pair
 *   entry has value1 = run (0..63) and value2 = the signed value; value1
 *   KPLVC_DV_EOB ends a block; KPLVC_DV_INVALID or above marks no code word.
 *   First level: word 1 + the next 9 bits; second level: word 513 + the low 9
 *   bits of the next 13 (never word 1024). Bits past the end of a block's
 *   available bits are looked up as zeros.
 * pScanTables: 128 entries, used as entry & 63: entry i (block DCT mode 0) or
 *   64 + i (mode 1) is the output index of scan position i.
 * pDstBlocks: 30 blocks of 64 values, block 6k + j at pDstBlocks + 64(6k + j);
 *   every one of the 1920 values is written: 64 times the decoded value at the
 *   index its scan position maps to (DC at position 0), 0 elsewhere.
 * pBlockInfo: 30 words: bits 0..6 the count (1 + the last scan position with
 *   a non-zero value, 0 for an all-zero block), bit 7 the block's EOB was read,
 *   bit 8 the DCT mode, bits 9..10 the class, bits 12..15 QNO and 16..19 STA of
 *   its macroblock, bits 20..21 the pass (1..3) that read its EOB (0 without).
 * The AC codes of every block are read from its own area first, then from the
 * bits its macroblock's finished blocks left over, then from the bits left over
 * in the whole segment (the standard's three passes); a block that runs out of
 * bits keeps what it decoded, with the EOB bit 0.
 * Statuses: -8 any pointer null; -74 a bit pattern with no code word or an
 * escape amplitude below the minimum; -72 a scan position beyond 63 (the
 * first error in pass order is reported). On any error nothing is written. */
KPLVC_API KplStatus kpliHuffmanDecodeSegment_DV_8u16s(const Kpl8u* pStream, const Kpl32u* pHuffTable,
                                                      const Kpl32s* pScanTables, Kpl16s* pDstBlocks,
                                                      Kpl32u* pBlockInfo);
/* @dv-end */

#ifdef __cplusplus
}
#endif

#endif /* KPLVC_H */
