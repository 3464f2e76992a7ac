// kplvc compare: two raw planar YUV files frame by frame, the way the codec
// tests judge a decode against a reference decoder's.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/picture.h"
#include "common/yuv.h"
#include "tools/commands.h"

using namespace kplvc::codecs;

int kplvc_tool::compare(int argc, char** argv) {
    const char* path[2] = {nullptr, nullptr};
    int w = 0, h = 0, npaths = 0;
    Chroma chroma = Chroma::c420;
    double min_psnr = 0;
    bool exact = false, quiet = false;
    for (int i = 0; i < argc; ++i) {
        const char* a = argv[i];
        const bool has_value = i + 1 < argc;
        if (std::strcmp(a, "--size") == 0 && has_value) {
            if (std::sscanf(argv[++i], "%dx%d", &w, &h) != 2) w = h = 0;
        } else if (std::strcmp(a, "--pix-fmt") == 0 && has_value) {
            if (!chroma_from_name(argv[++i], &chroma)) w = 0;
        } else if (std::strcmp(a, "--min-psnr") == 0 && has_value) {
            min_psnr = std::atof(argv[++i]);
        } else if (std::strcmp(a, "--exact") == 0) {
            exact = true;
        } else if (std::strcmp(a, "--quiet") == 0) {
            quiet = true;
        } else if (a[0] != '-' && npaths < 2) {
            path[npaths++] = a;
        } else {
            w = 0;
            break;
        }
    }
    if (npaths != 2 || w <= 0 || h <= 0) {
        std::fprintf(stderr,
                     "usage: kplvc compare A.yuv B.yuv --size WxH [--pix-fmt F] [--min-psnr DB | --exact] "
                     "[--quiet]\n");
        return 2;
    }
    std::FILE* f[2];
    for (int k = 0; k < 2; ++k)
        if (!(f[k] = std::fopen(path[k], "rb"))) {
            std::fprintf(stderr, "kplvc compare: cannot read %s\n", path[k]);
            return 1;
        }
    const size_t cw = chroma_width(chroma, w), ch = chroma_height(chroma, h);
    const size_t plane_size[3] = {static_cast<size_t>(w) * h, cw * ch, cw * ch};
    const size_t frame_size = plane_size[0] + 2 * plane_size[1];
    std::vector<uint8_t> buf[2] = {std::vector<uint8_t>(frame_size), std::vector<uint8_t>(frame_size)};

    long frames = 0, bad = 0;
    double worst = INFINITY;
    int worst_diff = 0;
    bool length_mismatch = false;
    for (;;) {
        const size_t n0 = std::fread(buf[0].data(), 1, frame_size, f[0]);
        const size_t n1 = std::fread(buf[1].data(), 1, frame_size, f[1]);
        if (n0 != frame_size || n1 != frame_size) {
            length_mismatch = n0 != n1;
            break;
        }
        size_t off = 0;
        double fmin = INFINITY;
        int fmax = 0;
        char line[160];
        int len = std::snprintf(line, sizeof line, "frame %4ld", frames);
        for (int p = 0; p < 3; ++p) {
            const PlaneDiff d = compare_plane(buf[0].data() + off, buf[1].data() + off, plane_size[p]);
            off += plane_size[p];
            fmin = std::min(fmin, d.psnr);
            fmax = std::max(fmax, d.max_abs);
            len += std::snprintf(line + len, sizeof line - len, "  %c %6.2f", "YUV"[p], d.psnr);
        }
        const bool fail = exact ? fmax != 0 : fmin < min_psnr;
        if (!quiet || fail) std::printf("%s  max diff %d%s\n", line, fmax, fail ? "  FAIL" : "");
        bad += fail;
        worst = std::min(worst, fmin);
        worst_diff = std::max(worst_diff, fmax);
        ++frames;
    }
    std::fclose(f[0]);
    std::fclose(f[1]);
    std::printf("compared %ld frames: lowest PSNR %.2f dB, largest difference %d%s\n", frames, worst,
                worst_diff, length_mismatch ? ", frame counts differ" : "");
    return (bad || length_mismatch || frames == 0) ? 1 : 0;
}
