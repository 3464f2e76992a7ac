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
KPLVC_API KplStatus kpliSAD16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                       Kpl32s refStep, Kpl32s* pSAD, Kpl32s mcType);

/* As kpliSAD16x16_8u32s over 8x8, with the position chosen by exact value:
 * 0 full, 8 horizontal half, 4 vertical half, any other value (1, 2, 12,
 * ...) the centre of four. Statuses: -8 pSrc or pRef null; a null pSAD is
 * not checked (nothing written, 0 returned). */
KPLVC_API KplStatus kpliSAD8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                         Kpl32s refStep, Kpl32s* pSAD, Kpl32s mcType);

/* *pSAD = full-sample SAD over 4x4. Statuses: -8 pSrc, pRef or pSAD null. */
KPLVC_API KplStatus kpliSAD4x4_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                     Kpl32s refStep, Kpl32s* pSAD);

/* pDstSAD[0..3] = full-sample SADs of the four 8x8 quarters of a 16x16
 * block, raster order. Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliSAD16x16Blocks8x8_8u16u(const Kpl8u* pSrc, Kpl32s srcStep,
                                                const Kpl8u* pRef, Kpl32s refStep,
                                                Kpl16u* pDstSAD);

/* pDstSAD[0..15] = full-sample SADs of the sixteen 4x4 sub-blocks of a
 * 16x16 block, raster order. Statuses: -8 any pointer null. */
KPLVC_API KplStatus kpliSAD16x16Blocks4x4_8u16u(const Kpl8u* pSrc, Kpl32s srcStep,
                                                const Kpl8u* pRef, Kpl32s refStep,
                                                Kpl16u* pDstSAD);

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
KPLVC_API KplStatus kpliVarMean8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pVar,
                                             Kpl32s* pMean);

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
KPLVC_API KplStatus kpliVarMeanDiff16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep,
                                                   const Kpl8u* pRef, Kpl32s refStep,
                                                   const Kpl32s* pSrcSum, Kpl32s* pVar,
                                                   Kpl32s* pMean, Kpl32s mcType);

/* As kpliVarMeanDiff16x16_8u32s_C1R for a 16x8 block (two quarters). */
KPLVC_API KplStatus kpliVarMeanDiff16x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep,
                                                  const Kpl8u* pRef, Kpl32s refStep,
                                                  const Kpl32s* pSrcSum, Kpl32s* pVar,
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
KPLVC_API KplStatus kpliEdgesDetect16x16_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep,
                                                Kpl8u EdgePelDifference, Kpl8u EdgePelCount,
                                                Kpl8u* pRes);

/* pSums[k] = sum of pSrc - pPred over 4x4 sub-block k (raster order, 16
 * sub-blocks). When pDiff is not null it receives the differences sub-block
 * by sub-block: pDiff[16k + 4 row + column]. Statuses: -8 pSrc, pPred or
 * pSums null. */
KPLVC_API KplStatus kpliSumsDiff16x16Blocks4x4_8u16s_C1(const Kpl8u* pSrc, Kpl32s srcStep,
                                                        const Kpl8u* pPred, Kpl32s predStep,
                                                        Kpl16s* pSums, Kpl16s* pDiff);

/* As kpliSumsDiff16x16Blocks4x4_8u16s_C1 for an 8x8 block (4 sub-blocks). */
KPLVC_API KplStatus kpliSumsDiff8x8Blocks4x4_8u16s_C1(const Kpl8u* pSrc, Kpl32s srcStep,
                                                      const Kpl8u* pPred, Kpl32s predStep,
                                                      Kpl16s* pSums, Kpl16s* pDiff);

/* *pCount = number of the 64 coefficients equal to 0.
 * Statuses: -8 pSrc or pCount null. */
KPLVC_API KplStatus kpliCountZeros8x8_16s_C1(const Kpl16s* pSrc, Kpl32s* pCount);

/* pDst[8y + x] = src(x, y) - pRef[8y + x] over 8x8 (pRef packed, 8 bytes a
 * row), *pDstSAD = sum of |pDst[i]|. Statuses: -5 (not -8) any pointer null. */
KPLVC_API KplStatus kpliComputeTextureErrorBlock_SAD_8u16s(const Kpl8u* pSrc, Kpl32s srcStep,
                                                           const Kpl8u* pRef, Kpl16s* pDst,
                                                           Kpl32s* pDstSAD);

/* As kpliComputeTextureErrorBlock_SAD_8u16s without the SAD.
 * Statuses: -5 (not -8) any pointer null. */
KPLVC_API KplStatus kpliComputeTextureErrorBlock_8u16s(const Kpl8u* pSrc, Kpl32s srcStep,
                                                       const Kpl8u* pRef, Kpl16s* pDst);
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
