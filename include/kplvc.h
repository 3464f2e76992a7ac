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
/* @mpeg4-end */

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
