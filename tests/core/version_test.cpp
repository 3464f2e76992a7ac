#include <cstring>

#include "kplvc.h"
#include "support/support.h"

TEST(Version, RecordHoldsEveryField) {
    const KplLibraryVersion* v = kplvcGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, kplvcGetLibVersion());
    EXPECT_EQ(v->major, 4);
    EXPECT_EQ(v->minor, 1);
    EXPECT_EQ(v->majorBuild, 10);
    EXPECT_EQ(v->build, 38);
    const char cpu[4] = {'a', '6', 0, 0};
    EXPECT_EQ(std::memcmp(v->targetCpu, cpu, 4), 0);
    EXPECT_STREQ(v->Name, "libkplvca6.so");
    EXPECT_STREQ(v->Version, "v4.1");
    EXPECT_STREQ(v->BuildDate, "Jul 22 2004");
}

// The status values and position codes are part of the binary interface.
static_assert(kplStsNoErr == 0 && kplStsNoNeighbourWrn == 11 && kplStsErr == -2 && kplStsBadArgErr == -5 &&
              kplStsSizeErr == -6 && kplStsNullPtrErr == -8 && kplStsMemAllocErr == -9 &&
              kplStsDivByZeroErr == -10 && kplStsOutOfRangeErr == -11 && kplStsLevelRangeErr == -13 &&
              kplStsStepErr == -14 && kplStsCoefCountErr == -72 && kplStsIntraDCErr == -73 &&
              kplStsVLCErr == -74 && kplStsH263MVCodeErr == -75 && kplStsH263QPErr == -76 &&
              kplStsFrameStepErr == -77 && kplStsFrameExpandErr == -78 && kplStsFrameHeightErr == -79 &&
              kplStsFrameWidthErr == -80 && kplStsMBStepErr == -81 && kplStsBlockStepErr == -82 &&
              kplStsAdvIntraModeErr == -83 && kplStsModeErr == -90 && kplStsMode2Err == -91 &&
              kplStsBitsPerPixelErr == -92 && kplStsPredDirErr == -93 && kplStsPadErr == -94 &&
              kplStsBlockSizeErr == -95 && kplStsTimeDistErr == -96 && kplStsAlignErr == -97 &&
              kplStsFcodeErr == -98 && kplStsMarkerErr == -99 && kplStsTextureVLCErr == -100 &&
              kplStsMVCodeErr == -101 && kplStsBlockIndexErr == -103 && kplStsMPEG4QPErr == -104 &&
              kplStsShapeArgErr == -105 && kplStsMCBPCIntraErr == -109 && kplStsMCBPCInterErr == -110 &&
              kplStsCBPYErr == -111 && kplStsNeighbourErr == -117 && kplStsStep16x16Err == -168 &&
              kplStsStep8x8Err == -169);
static_assert(KPLVC_MC_APX_FF == 0 && KPLVC_MC_APX_FH == 4 && KPLVC_MC_APX_HF == 8 && KPLVC_MC_APX_HH == 12);
