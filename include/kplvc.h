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
/* @dv-end */

#ifdef __cplusplus
}
#endif

#endif /* KPLVC_H */
