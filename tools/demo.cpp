// kplvc demo: the library's main program. With no input it draws a few
// seconds of moving synthetic video (no file, no network), encodes it with
// every encoder in codecs/, decodes the result with the matching decoder,
// and prints per stage the bit rate, the PSNR against the source and the
// speed. It writes the stream (demo.h263) and the decoded pictures
// (demo.yuv) for any player:
//   ffplay -f rawvideo -pixel_format yuv420p -video_size 352x288 demo.yuv
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/codec.h"
#include "common/encoder.h"
#include "common/yuv.h"
#include "tools/commands.h"

using namespace kplvc::codecs;

namespace {

using Clock = std::chrono::steady_clock;

// One picture of the built-in clip: a slowly drifting gradient sky, a
// textured ground that pans, a checkerboard banner that scrolls the other
// way and three coloured discs that bounce around. Integer arithmetic only,
// so every machine draws the same pictures.
void draw(int t, int w, int h, std::vector<uint8_t>* frame) {
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    uint8_t* Y = frame->data();
    uint8_t* U = Y + static_cast<size_t>(w) * h;
    uint8_t* V = U + static_cast<size_t>(cw) * ch;
    const int horizon = h * 5 / 8;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v;
            if (y < horizon) {
                v = 90 + (y * 100) / horizon + std::abs((x + t) % (2 * w) - w) * 20 / w;
            } else {
                // Ground: a pseudo-random texture moving left two samples a picture.
                const unsigned gx = static_cast<unsigned>(x + 2 * t), gy = static_cast<unsigned>(y);
                const unsigned n = (gx / 4 * 2654435761u) ^ (gy / 4 * 40503u);
                v = 60 + static_cast<int>((n >> 11) & 63) + (y - horizon) / 2;
            }
            // Banner: an 8x8 checkerboard scrolling right one sample a picture.
            if (y >= h / 8 && y < h / 8 + 32) v = (((x - t) >> 3) ^ (y >> 3)) & 1 ? 230 : 30;
            Y[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(v);
        }
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x) {
            const bool sky = 2 * y < horizon;
            U[static_cast<size_t>(y) * cw + x] = static_cast<uint8_t>(sky ? 150 : 110);
            V[static_cast<size_t>(y) * cw + x] = static_cast<uint8_t>(sky ? 110 : 135);
        }
    // Discs bouncing off the edges: position from a triangle wave.
    struct Disc {
        int r, vx, vy, y, u, v;
    };
    const Disc discs[3] = {
        {h / 8, 3, 2, 200, 80, 200}, {h / 10, -4, 3, 170, 200, 90}, {h / 12, 5, -2, 120, 60, 60}};
    for (int k = 0; k < 3; ++k) {
        const Disc& d = discs[k];
        auto bounce = [](int p, int span) {
            const int m = p % (2 * span);
            return m < span ? m : 2 * span - m;
        };
        const int cx = d.r + bounce(std::abs(d.vx * t + 97 * k), w - 2 * d.r);
        const int cy = d.r + bounce(std::abs(d.vy * t + 61 * k), h - 2 * d.r);
        for (int y = cy - d.r; y <= cy + d.r; ++y)
            for (int x = cx - d.r; x <= cx + d.r; ++x) {
                if (x < 0 || y < 0 || x >= w || y >= h) continue;
                const int dd = (x - cx) * (x - cx) + (y - cy) * (y - cy);
                if (dd > d.r * d.r) continue;
                Y[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(d.y - dd * 60 / (d.r * d.r));
                if (!(x & 1) && !(y & 1)) {
                    U[static_cast<size_t>(y / 2) * cw + x / 2] = static_cast<uint8_t>(d.u);
                    V[static_cast<size_t>(y / 2) * cw + x / 2] = static_cast<uint8_t>(d.v);
                }
            }
    }
}

double plane_sse(const uint8_t* a, int as, const uint8_t* b, int bs, int w, int h) {
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

double psnr(double sse, double samples) {
    return sse > 0 ? 10 * std::log10(255.0 * 255.0 * samples / sse) : INFINITY;
}

struct Progress {
    Clock::time_point start = Clock::now(), last = Clock::now();
    bool shown = false;
    // A progress line once a second on long runs.
    void tick(const char* stage, long done, long total) {
        const auto now = Clock::now();
        if (now - last < std::chrono::seconds(1)) return;
        last = now;
        shown = true;
        std::fprintf(stderr, "\r  %s: picture %ld of %ld", stage, done, total);
        std::fflush(stderr);
    }
    void end() {
        if (shown) std::fprintf(stderr, "\r%60s\r", "");
        shown = false;
    }
};

struct DecodeCheck {
    std::FILE* out = nullptr;
    const std::vector<std::vector<uint8_t>>* source = nullptr;
    const std::vector<std::vector<uint8_t>>* recon = nullptr;
    int w = 0, h = 0;
    long n = 0;
    double sse = 0, samples = 0;
    long differs = 0;  // pictures not identical to the encoder's reconstruction
    bool failed = false;
    Progress progress;
    long total = 0;
};

bool on_picture(const Picture& pic, void* user) {
    DecodeCheck* c = static_cast<DecodeCheck*>(user);
    if (c->out && !write_yuv(c->out, pic, Chroma::c420)) c->failed = true;
    if (c->n < static_cast<long>(c->source->size())) {
        const int cw = (c->w + 1) / 2, ch = (c->h + 1) / 2;
        const uint8_t* src = (*c->source)[static_cast<size_t>(c->n)].data();
        const uint8_t* rec = (*c->recon)[static_cast<size_t>(c->n)].data();
        size_t off = 0;
        bool same = true;
        for (int p = 0; p < 3; ++p) {
            const int w = p ? cw : c->w, h = p ? ch : c->h;
            c->sse += plane_sse(pic.plane[p], pic.stride[p], src + off, w, w, h);
            for (int y = 0; y < h && same; ++y)
                same = std::memcmp(pic.plane[p] + static_cast<size_t>(y) * pic.stride[p],
                                   rec + off + static_cast<size_t>(y) * w, static_cast<size_t>(w)) == 0;
            off += static_cast<size_t>(w) * h;
        }
        c->samples += static_cast<double>(off);
        c->differs += same ? 0 : 1;
    }
    ++c->n;
    c->progress.tick("decoding", c->n, c->total);
    return true;
}

}  // namespace

int kplvc_tool::demo(int argc, char** argv) {
    int w = 352, h = 288;
    long frames = 125;
    int qscale = 0;
    long bitrate = 1000000;
    for (int i = 0; i < argc; ++i) {
        const bool v = i + 1 < argc;
        if (std::strcmp(argv[i], "--frames") == 0 && v) {
            frames = std::atol(argv[++i]);
        } else if (std::strcmp(argv[i], "--size") == 0 && v) {
            if (std::sscanf(argv[++i], "%dx%d", &w, &h) != 2) w = 0;
        } else if (std::strcmp(argv[i], "--qscale") == 0 && v) {
            qscale = std::atoi(argv[++i]);
        } else if (std::strcmp(argv[i], "--bitrate") == 0 && v) {
            bitrate = std::atol(argv[++i]);
        } else {
            w = 0;
            break;
        }
    }
    if (w < 16 || h < 16 || frames < 1) {
        std::fprintf(stderr,
                     "usage: kplvc demo [--frames N] [--size WxH] [--qscale Q | --bitrate BITS_PER_S]\n");
        return 2;
    }
    const int fps = 25;
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    const size_t frame_size = static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch;
    std::printf("kplvc demo: %ld pictures of %dx%d at %d Hz, drawn on the fly\n", frames, w, h, fps);
    std::vector<std::vector<uint8_t>> source(static_cast<size_t>(frames), std::vector<uint8_t>(frame_size));
    for (long t = 0; t < frames; ++t) draw(static_cast<int>(t), w, h, &source[static_cast<size_t>(t)]);

    int n_enc = 0;
    const EncoderInfo* const* encs = encoders(&n_enc);
    int status = 0;
    for (int e = 0; e < n_enc; ++e) {
        const EncoderInfo* info = encs[e];
        EncodeOptions opt;
        opt.width = w;
        opt.height = h;
        opt.fps_num = fps;
        opt.qscale = qscale;
        opt.bitrate = qscale ? 0 : bitrate;
        char why[160] = {0};
        std::unique_ptr<Encoder> enc = info->create(opt, why, sizeof why);
        if (!enc) {
            std::printf("%s: cannot encode: %s\n", info->name, why);
            status = 1;
            continue;
        }
        // Encode, keeping the encoder's reconstruction to check the decoder.
        std::vector<uint8_t> stream;
        std::vector<std::vector<uint8_t>> recon(static_cast<size_t>(frames),
                                                std::vector<uint8_t>(frame_size));
        Picture pic;
        pic.width = w;
        pic.height = h;
        pic.stride[0] = w;
        pic.stride[1] = pic.stride[2] = cw;
        double sse = 0, samples = 0, secs = 0;
        Progress progress;
        for (long t = 0; t < frames; ++t) {
            uint8_t* f = source[static_cast<size_t>(t)].data();
            pic.plane[0] = f;
            pic.plane[1] = f + static_cast<size_t>(w) * h;
            pic.plane[2] = pic.plane[1] + static_cast<size_t>(cw) * ch;
            Picture rec;
            const auto t0 = Clock::now();
            enc->encode(pic, &stream, &rec);
            secs += std::chrono::duration<double>(Clock::now() - t0).count();
            size_t off = 0;
            for (int p = 0; p < 3; ++p) {
                const int pw = p ? cw : w, ph = p ? ch : h;
                sse += plane_sse(pic.plane[p], pic.stride[p], rec.plane[p], rec.stride[p], pw, ph);
                for (int y = 0; y < ph; ++y)
                    std::memcpy(recon[static_cast<size_t>(t)].data() + off + static_cast<size_t>(y) * pw,
                                rec.plane[p] + static_cast<size_t>(y) * rec.stride[p],
                                static_cast<size_t>(pw));
                off += static_cast<size_t>(pw) * ph;
            }
            samples += static_cast<double>(frame_size);
            progress.tick("encoding", t + 1, frames);
        }
        enc->finish(&stream);
        progress.end();
        const double kbps = stream.size() * 8.0 * fps / frames / 1000.0;
        std::printf("  encode %-5s %8.1f kbit/s  PSNR %6.2f dB  %8.1f fps  (%zu bytes, QP %d at the end)\n",
                    info->name, kbps, psnr(sse, samples), secs > 0 ? frames / secs : 0.0, stream.size(),
                    enc->stats().last_qp);

        const std::string stream_path = std::string("demo") + info->extension;
        const std::string yuv_path =
            e == 0 ? std::string("demo.yuv") : std::string("demo-") + info->name + ".yuv";
        std::FILE* fs = std::fopen(stream_path.c_str(), "wb");
        if (!fs || std::fwrite(stream.data(), 1, stream.size(), fs) != stream.size() ||
            std::fclose(fs) != 0) {
            std::printf("  cannot write %s\n", stream_path.c_str());
            return 1;
        }

        const Decoder* dec = find_decoder(info->name);
        if (!dec) {
            std::printf("  decode %-5s no decoder of that name\n", info->name);
            status = 1;
            continue;
        }
        DecodeCheck check;
        check.out = std::fopen(yuv_path.c_str(), "wb");
        check.source = &source;
        check.recon = &recon;
        check.w = w;
        check.h = h;
        check.total = frames;
        if (!check.out) {
            std::printf("  cannot write %s\n", yuv_path.c_str());
            return 1;
        }
        DecodeStats stats;
        const auto t0 = Clock::now();
        const int rc = dec->decode(stream.data(), stream.size(), DecodeOptions{}, on_picture, &check, &stats);
        const double dsecs = std::chrono::duration<double>(Clock::now() - t0).count();
        check.progress.end();
        if (std::fclose(check.out) != 0) check.failed = true;
        if (rc < 0 || check.failed || check.n != frames) {
            std::printf("  decode %-5s failed: %s\n", info->name,
                        rc < 0 ? stats.message : "pictures missing");
            status = 1;
            continue;
        }
        std::printf(
            "  decode %-5s %8.1f kbit/s  PSNR %6.2f dB  %8.1f fps  (%s the encoder's reconstruction)\n",
            info->name, kbps, psnr(check.sse, check.samples), dsecs > 0 ? frames / dsecs : 0.0,
            check.differs ? "DIFFERS from" : "identical to");
        if (check.differs) status = 1;
        std::printf("  wrote %s and %s (%dx%d yuv420p)\n", stream_path.c_str(), yuv_path.c_str(), w, h);
    }
    return status;
}
