/*
 * kplvc - bit-exact video-coding primitives.
 *
 * The one public header of libkplvca6.so. Usable from C (C99 and later) and C++.
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

typedef struct {
    Kpl32s major;        /* 4 */
    Kpl32s minor;        /* 1 */
    Kpl32s majorBuild;   /* 10 */
    Kpl32s build;        /* 38 */
    char targetCpu[4];   /* "a6", zero-filled */
    const char* Name;    /* "libkplvca6.so" */
    const char* Version; /* "v4.1" */
    const char* BuildDate; /* "Jul 22 2004" */
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
KPLVC_API KplStatus kplsMulC_16s_ISfs(Kpl16s val, Kpl16s* pSrcDst, Kpl32s len,
                                      Kpl32s scaleFactor);

/* relOp 4 (greater): elements above level become level; any other relOp
 * (less): elements below level become level.
 * Statuses: -8 pSrcDst null; -6 len < 1. */
KPLVC_API KplStatus kplsThreshold_16s_I(Kpl16s* pSrcDst, Kpl32s len, Kpl16s level,
                                        Kpl32s relOp);

/* Fills roiSize.height rows of roiSize.width bytes, rows dstStep apart (any
 * step >= 1; rows may overlap, later rows win).
 * Statuses: -8 pDst null; -6 width or height < 1; -14 dstStep < 1. */
KPLVC_API KplStatus kpliSet_8u_C1R(Kpl8u val, Kpl8u* pDst, Kpl32s dstStep, KpliSize roiSize);

/* ------------------------------------------------------------------------ */
/* Bit-stream writers (word-oriented)                                        */
/* ------------------------------------------------------------------------ */
/* @bitstream-begin */
/* @bitstream-end */

/* ------------------------------------------------------------------------ */
/* Generic VLC tables                                                        */
/* ------------------------------------------------------------------------ */
/* @vlc-begin */
/* @vlc-end */

/* ------------------------------------------------------------------------ */
/* Block copy, set and difference                                            */
/* ------------------------------------------------------------------------ */
/* @block-begin */
/* Copies an 8x8 block, row starts advancing by srcStep and dstStep.
 * Statuses: -8 pSrc or pDst null; -169 srcStep or dstStep below 8. */
KPLVC_API KplStatus kpliCopyBlock_8x8_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                         Kpl32s dstStep);
/* Copies a 16x16 block.
 * Statuses: -8 pSrc or pDst null; -168 srcStep or dstStep below 16. */
KPLVC_API KplStatus kpliCopyBlock_16x16_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                           Kpl32s dstStep);
/* 8x8 motion compensation without residual: kpliMC8x8_8u_C1 with a zero
 * residual and mcType 0, 4, 8 for predType 0, 1, 2 (12 for any other value),
 * roundControl 0 (so half-sample averages round up). Returns the status of
 * kpliMC8x8_8u_C1 (-8 when pSrc or pDst is null). */
KPLVC_API KplStatus kpliMCBlock_RoundOff_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                            Kpl32s dstStep, Kpl32s predType);
/* As kpliMCBlock_RoundOff_8u with roundControl 1 (half-sample averages
 * truncate). */
KPLVC_API KplStatus kpliMCBlock_RoundOn_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                           Kpl32s dstStep, Kpl32s predType);

/* Difference between a current block and its prediction from pSrcRef at
 * position mcType & 12 (FF, FH, HF, HH as for kpliMC16x16_8u_C1) with
 * rc = roundControl: pDstDiff(x, y) = cur(x, y) - p as Kpl16s; when
 * pDstPredictor is not null, pDstPredictor(x, y) = p. All steps in bytes.
 * roundControl is meant to be 0 or 1; any non-zero value acts as 1.
 * Statuses: -8 when pSrcCur, pSrcRef or pDstDiff is null; steps, mcType and
 * roundControl are not checked; pDstPredictor may be null. */
KPLVC_API KplStatus kpliGetDiff16x16_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                              const Kpl8u* pSrcRef, Kpl32s srcRefStep,
                                              Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                              Kpl16s* pDstPredictor, Kpl32s dstPredictorStep,
                                              Kpl32s mcType, Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for a 16x8 block. */
KPLVC_API KplStatus kpliGetDiff16x8_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                             const Kpl8u* pSrcRef, Kpl32s srcRefStep,
                                             Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                             Kpl16s* pDstPredictor, Kpl32s dstPredictorStep,
                                             Kpl32s mcType, Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for an 8x16 block. */
KPLVC_API KplStatus kpliGetDiff8x16_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                             const Kpl8u* pSrcRef, Kpl32s srcRefStep,
                                             Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                             Kpl16s* pDstPredictor, Kpl32s dstPredictorStep,
                                             Kpl32s mcType, Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for an 8x8 block. */
KPLVC_API KplStatus kpliGetDiff8x8_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                            const Kpl8u* pSrcRef, Kpl32s srcRefStep,
                                            Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                            Kpl16s* pDstPredictor, Kpl32s dstPredictorStep,
                                            Kpl32s mcType, Kpl32s roundControl);
/* As kpliGetDiff16x16_8u16s_C1 for an 8x4 block. */
KPLVC_API KplStatus kpliGetDiff8x4_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                            const Kpl8u* pSrcRef, Kpl32s srcRefStep,
                                            Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                            Kpl16s* pDstPredictor, Kpl32s dstPredictorStep,
                                            Kpl32s mcType, Kpl32s roundControl);

/* Bidirectional difference: f predicted from pSrcRefF at mcTypeF & 12, b from
 * pSrcRefB at mcTypeB & 12, both with rc = roundControl;
 * pDstDiff(x, y) = (2*cur - f - b) >> 1 (arithmetic shift), that is
 * cur - ((f + b + 1) >> 1). No prediction is returned.
 * Statuses: -8 when pSrcCur, pSrcRefF, pSrcRefB or pDstDiff is null; steps,
 * mcTypes and roundControl are not checked. */
KPLVC_API KplStatus kpliGetDiff16x16B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                               const Kpl8u* pSrcRefF, Kpl32s srcRefFStep,
                                               Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                               Kpl32s srcRefBStep, Kpl32s mcTypeB,
                                               Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                               Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for a 16x8 block. */
KPLVC_API KplStatus kpliGetDiff16x8B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                              const Kpl8u* pSrcRefF, Kpl32s srcRefFStep,
                                              Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                              Kpl32s srcRefBStep, Kpl32s mcTypeB,
                                              Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                              Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for an 8x16 block. */
KPLVC_API KplStatus kpliGetDiff8x16B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                              const Kpl8u* pSrcRefF, Kpl32s srcRefFStep,
                                              Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                              Kpl32s srcRefBStep, Kpl32s mcTypeB,
                                              Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                              Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for an 8x8 block. */
KPLVC_API KplStatus kpliGetDiff8x8B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                             const Kpl8u* pSrcRefF, Kpl32s srcRefFStep,
                                             Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                             Kpl32s srcRefBStep, Kpl32s mcTypeB,
                                             Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                             Kpl32s roundControl);
/* As kpliGetDiff16x16B_8u16s_C1 for an 8x4 block. */
KPLVC_API KplStatus kpliGetDiff8x4B_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                             const Kpl8u* pSrcRefF, Kpl32s srcRefFStep,
                                             Kpl32s mcTypeF, const Kpl8u* pSrcRefB,
                                             Kpl32s srcRefBStep, Kpl32s mcTypeB,
                                             Kpl16s* pDstDiff, Kpl32s dstDiffStep,
                                             Kpl32s roundControl);
/* pDstDiff(x, y) = cur(x, y) - ref(x, y) for a 4x4 block at full-sample
 * position. Statuses: -8 when pSrcCur, pSrcRef or pDstDiff is null. */
KPLVC_API KplStatus kpliGetDiff4x4_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep,
                                            const Kpl8u* pSrcRef, Kpl32s srcRefStep,
                                            Kpl16s* pDstDiff, Kpl32s dstDiffStep);
/* @block-end */

/* ------------------------------------------------------------------------ */
/* Block matching metrics                                                    */
/* ------------------------------------------------------------------------ */
/* @metrics-begin */
/* @metrics-end */

/* ------------------------------------------------------------------------ */
/* 8x8 DCT family                                                            */
/* ------------------------------------------------------------------------ */
/* @dct-begin */
/* @dct-end */

/* ------------------------------------------------------------------------ */
/* Scan orders and inverse zigzag                                            */
/* ------------------------------------------------------------------------ */
/* @scan-begin */
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
                                      Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                      Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 16x8 block. */
KPLVC_API KplStatus kpliMC16x8_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                     Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                     Kpl32s mcType, Kpl32s roundControl);
/* Interleaved chroma, 8 pairs of samples per row and 8 rows: the horizontal
 * neighbour of a sample is two bytes to the right (b = R(x+2, y),
 * d = R(x+2, y+1)), so HF and HH read two extra columns. Otherwise as
 * kpliMC16x16_8u_C1. */
KPLVC_API KplStatus kpliMC16x8UV_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                       Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                       Kpl32s mcType, Kpl32s roundControl);
/* Interleaved chroma as kpliMC16x8UV_8u_C1, 4 rows. */
KPLVC_API KplStatus kpliMC16x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                     Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                     Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for an 8x16 block. */
KPLVC_API KplStatus kpliMC8x16_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                     Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                     Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for an 8x8 block. */
KPLVC_API KplStatus kpliMC8x8_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for an 8x4 block. */
KPLVC_API KplStatus kpliMC8x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 4x8 block. */
KPLVC_API KplStatus kpliMC4x8_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 4x4 block. */
KPLVC_API KplStatus kpliMC4x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 4x2 block. */
KPLVC_API KplStatus kpliMC4x2_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 2x4 block. */
KPLVC_API KplStatus kpliMC2x4_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);
/* As kpliMC16x16_8u_C1 for a 2x2 block. */
KPLVC_API KplStatus kpliMC2x2_8u_C1(const Kpl8u* pSrcRef, Kpl32s srcStep, const Kpl16s* pSrcYData,
                                    Kpl32s srcYDataStep, Kpl8u* pDst, Kpl32s dstStep,
                                    Kpl32s mcType, Kpl32s roundControl);

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
/* @mpeg2block-end */

/* ------------------------------------------------------------------------ */
/* MPEG-2 quantisation                                                       */
/* ------------------------------------------------------------------------ */
/* @mpeg2quant-begin */
/* @mpeg2quant-end */

/* ------------------------------------------------------------------------ */
/* H.263                                                                     */
/* ------------------------------------------------------------------------ */
/* @h263-begin */
/* @h263-end */

/* ------------------------------------------------------------------------ */
/* MPEG-4 inverse quantisation, chroma vectors and vector limiting           */
/* ------------------------------------------------------------------------ */
/* @mpeg4-begin */
/* @mpeg4-end */

/* ------------------------------------------------------------------------ */
/* H.264 transforms, quantisation and CAVLC analysis                          */
/* ------------------------------------------------------------------------ */
/* @h264-begin */
/* @h264-end */

/* ------------------------------------------------------------------------ */
/* H.264 intra prediction and deblocking                                     */
/* ------------------------------------------------------------------------ */
/* @h264pred-begin */
/* @h264pred-end */

/* ------------------------------------------------------------------------ */
/* H.264 inter prediction                                                    */
/* ------------------------------------------------------------------------ */
/* @h264inter-begin */
/* @h264inter-end */

/* ------------------------------------------------------------------------ */
/* DV                                                                        */
/* ------------------------------------------------------------------------ */
/* @dv-begin */
/* @dv-end */

#ifdef __cplusplus
}
#endif

#endif /* KPLVC_H */
