// kplvc encode: raw planar 4:2:0 pictures to a stream with one of the
// encoders in codecs/.
//
// The last line it prints is meant for scripts as well as people:
//   encoded h263 352x288 frames 50 bytes 123456 kbit/s 493.8 psnr 38.12 time 0.210 s 238.1 fps
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/encoder.h"
#include "common/yuv.h"
#include "tools/commands.h"

using namespace kplvc::codecs;

namespace {

// Sum of squared differences of two planes.
double sse(const uint8_t* a, int as, const uint8_t* b, int bs, int w, int h) {
    // Integer sums per row (at most 4096 * 255^2 < 2^31) in a 64-bit total.
    int64_t s = 0;
    for (int y = 0; y < h; ++y) {
        const uint8_t* ra = a + static_cast<size_t>(y) * as;
        const uint8_t* rb = b + static_cast<size_t>(y) * bs;
        int32_t row = 0;
        for (int x = 0; x < w; ++x) row += (ra[x] - rb[x]) * (ra[x] - rb[x]);
        s += row;
    }
    return static_cast<double>(s);
}

}  // namespace

int kplvc_tool::encode(int argc, char** argv) {
    const char *in = nullptr, *out = nullptr, *recon_path = nullptr, *format = nullptr;
    EncodeOptions opt;
    long max_frames = -1;
    bool usage = false;
    for (int i = 0; i < argc && !usage; ++i) {
        const char* a = argv[i];
        const bool v = i + 1 < argc;
        if (std::strcmp(a, "-o") == 0 && v) {
            out = argv[++i];
        } else if (std::strcmp(a, "--size") == 0 && v) {
            if (std::sscanf(argv[++i], "%dx%d", &opt.width, &opt.height) != 2) usage = true;
        } else if (std::strcmp(a, "--qscale") == 0 && v) {
            opt.qscale = std::atoi(argv[++i]);
        } else if (std::strcmp(a, "--bitrate") == 0 && v) {
            // bits per second, with an optional k or M suffix
            char* end = nullptr;
            double r = std::strtod(argv[++i], &end);
            if (end && (*end == 'k' || *end == 'K')) r *= 1e3;
            if (end && *end == 'M') r *= 1e6;
            opt.bitrate = static_cast<long>(r);
        } else if (std::strcmp(a, "--fps") == 0 && v) {
            if (std::sscanf(argv[++i], "%d/%d", &opt.fps_num, &opt.fps_den) < 1) usage = true;
        } else if (std::strcmp(a, "--gop") == 0 && v) {
            opt.gop = std::atoi(argv[++i]);
        } else if (std::strcmp(a, "--frames") == 0 && v) {
            max_frames = std::atol(argv[++i]);
        } else if (std::strcmp(a, "--recon") == 0 && v) {
            recon_path = argv[++i];
        } else if (std::strcmp(a, "--format") == 0 && v) {
            format = argv[++i];
        } else if (std::strcmp(a, "--deblock") == 0) {
            opt.deblock = true;
        } else if (std::strcmp(a, "--advanced-intra") == 0) {
            opt.advanced_intra = true;
        } else if (std::strcmp(a, "--extended-header") == 0) {
            opt.extended_header = true;
        } else if (std::strcmp(a, "--mpeg-quant") == 0) {
            opt.mpeg_quant = true;
        } else if (std::strcmp(a, "--4mv") == 0) {
            opt.four_mv = true;
        } else if (std::strcmp(a, "--qpel") == 0) {
            opt.qpel = true;
        } else if (a[0] != '-' && !in) {
            in = a;
        } else {
            usage = true;
        }
    }
    if (usage || !in || !out || opt.width <= 0 || opt.height <= 0 || (opt.qscale <= 0 && opt.bitrate <= 0)) {
        std::fprintf(
            stderr,
            "usage: kplvc encode IN.yuv --size WxH -o OUT (--qscale Q | --bitrate R) [--recon RECON.yuv]\n"
            "       [--fps N[/D]] [--gop N] [--frames N] [--format h263|mpeg4] [--deblock] "
            "[--advanced-intra]\n"
            "       [--extended-header] [--mpeg-quant] [--4mv] [--qpel]\n"
            "The format is the one whose extension OUT has (.h263, .m4v), else h263.\n");
        return 2;
    }
    if (std::FILE* f = std::fopen(in, "rb")) {
        // The rate control plans over the pictures the input holds.
        const long picture =
            static_cast<long>(opt.width) * opt.height + 2L * ((opt.width + 1) / 2) * ((opt.height + 1) / 2);
        long pictures = 0;
        if (std::fseek(f, 0, SEEK_END) == 0) pictures = std::ftell(f) / picture;
        std::fclose(f);
        opt.frames = max_frames >= 0 && max_frames < pictures ? max_frames : pictures;
    }
    if (!format) {
        // The encoder whose files end like OUT.
        int count = 0;
        const EncoderInfo* const* all = encoders(&count);
        const size_t len = std::strlen(out);
        format = "h263";
        for (int i = 0; i < count; ++i) {
            const size_t e = std::strlen(all[i]->extension);
            if (len > e && std::strcmp(out + len - e, all[i]->extension) == 0) format = all[i]->name;
        }
    }
    const EncoderInfo* info = find_encoder(format);
    if (!info) {
        std::fprintf(stderr, "kplvc encode: no encoder named '%s'\n", format);
        return 1;
    }
    char why[160] = {0};
    std::unique_ptr<Encoder> enc = info->create(opt, why, sizeof why);
    if (!enc) {
        std::fprintf(stderr, "kplvc encode: %s: %s\n", info->name, why);
        return 1;
    }
    std::FILE* fin = std::fopen(in, "rb");
    if (!fin) {
        std::fprintf(stderr, "kplvc encode: cannot read %s\n", in);
        return 1;
    }
    std::FILE* fout = std::fopen(out, "wb");
    std::FILE* frec = recon_path ? std::fopen(recon_path, "wb") : nullptr;
    if (!fout || (recon_path && !frec)) {
        std::fprintf(stderr, "kplvc encode: cannot write %s\n", !fout ? out : recon_path);
        std::fclose(fin);
        if (fout) std::fclose(fout);
        return 1;
    }
    const int w = opt.width, h = opt.height, cw = (w + 1) / 2, ch = (h + 1) / 2;
    std::vector<uint8_t> frame(static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch);
    std::vector<uint8_t> bytes;
    Picture pic;
    pic.width = w;
    pic.height = h;
    pic.plane[0] = frame.data();
    pic.plane[1] = frame.data() + static_cast<size_t>(w) * h;
    pic.plane[2] = pic.plane[1] + static_cast<size_t>(cw) * ch;
    pic.stride[0] = w;
    pic.stride[1] = pic.stride[2] = cw;
    double total_sse = 0, samples = 0;
    bool failed = false;
    double secs = 0;
    long n = 0;
    while ((max_frames < 0 || n < max_frames) &&
           std::fread(frame.data(), 1, frame.size(), fin) == frame.size()) {
        bytes.clear();
        Picture rec;
        const auto t0 = std::chrono::steady_clock::now();
        enc->encode(pic, &bytes, &rec);
        secs += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        failed |= std::fwrite(bytes.data(), 1, bytes.size(), fout) != bytes.size();
        if (frec) failed |= !write_yuv(frec, rec, Chroma::c420);
        for (int p = 0; p < 3; ++p)
            total_sse +=
                sse(pic.plane[p], pic.stride[p], rec.plane[p], rec.stride[p], p ? cw : w, p ? ch : h);
        samples += static_cast<double>(frame.size());
        ++n;
    }
    bytes.clear();
    enc->finish(&bytes);
    failed |= std::fwrite(bytes.data(), 1, bytes.size(), fout) != bytes.size();
    std::fclose(fin);
    failed |= std::fclose(fout) != 0;
    if (frec) failed |= std::fclose(frec) != 0;
    if (failed || n == 0) {
        std::fprintf(stderr, "kplvc encode: %s\n",
                     n == 0 ? "no complete picture in the input" : "writing failed");
        return 1;
    }
    const EncodeStats& st = enc->stats();
    const double kbps = st.bytes * 8.0 * opt.fps_num / opt.fps_den / n / 1000.0;
    const double psnr = total_sse > 0 ? 10 * std::log10(255.0 * 255.0 * samples / total_sse) : INFINITY;
    std::printf("encoded %s %dx%d frames %ld bytes %llu kbit/s %.1f psnr %.2f time %.3f s %.1f fps\n",
                info->name, w, h, n, static_cast<unsigned long long>(st.bytes), kbps, psnr, secs,
                secs > 0 ? n / secs : 0.0);
    return 0;
}
