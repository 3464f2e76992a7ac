/* A C program that uses only the public header: allocate an aligned block,
 * fill it, scale a coefficient vector and check the results. */
#include <stdio.h>
#include <string.h>

#include "kplvc.h"

int main(void) {
    const KplLibraryVersion* v = kplvcGetLibVersion();
    printf("%s %s (%s)\n", v->Name, v->Version, v->BuildDate);

    Kpl8u* block = kplsMalloc_8u(64 * 64);
    if (block == NULL) return 1;
    if (((unsigned long)block & 31) != 0) return 2;

    /* A 16x16 region of 0x80 inside a 64-byte-wide plane. */
    KpliSize roi = {16, 16};
    memset(block, 0, 64 * 64);
    if (kpliSet_8u_C1R(0x80, block + 64 * 8 + 8, 64, roi) != kplStsNoErr) return 3;
    if (block[64 * 8 + 8] != 0x80 || block[64 * 8 + 24] != 0 || block[64 * 24 + 8] != 0) return 4;

    /* Halve a coefficient vector with round-half-to-even: 3 -> 2, 5 -> 2, -7 -> -4. */
    Kpl16s coef[3] = {3, 5, -7};
    if (kplsMulC_16s_ISfs(1, coef, 3, 1) != kplStsNoErr) return 5;
    if (coef[0] != 2 || coef[1] != 2 || coef[2] != -4) return 6;

    /* A failing call reports its status and writes nothing. */
    if (kplsSet_8u(1, block, 0) != kplStsSizeErr) return 7;

    kplsFree(block);
    printf("ok\n");
    return 0;
}
