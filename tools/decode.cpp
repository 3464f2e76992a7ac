// kplvc decode: runs one of the codecs in codecs/ over a whole file and
// writes the pictures as planar YUV in display order, or one of them as a
// PNG image (--png, --frame N counting from 0 in display order).
//
// The last line it prints is meant for scripts as well as people:
//   decoded mpeg2 352x288 yuv420p frames 25 concealed 0 macroblocks time 0.031 s 806.5 fps
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/codec.h"
#include "common/yuv.h"
#include "tools/commands.h"
#include "tools/png.h"

namespace {

using namespace kplvc::codecs;

bool read_file(const char* path, std::vector<uint8_t>* out) {
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    uint8_t buf[1 << 16];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out->insert(out->end(), buf, buf + n);
    const bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

struct Output {
    std::FILE* file = nullptr;  // null with --null
    bool convert = false;
    Chroma to = Chroma::c420;
    bool failed = false;
    Picture first;  // geometry of the first picture, for the summary
    long count = 0;
    const char* png = nullptr;  // --png: picture number png_frame written there
    long png_frame = 0;
    bool png_written = false;
};

bool on_picture(const Picture& pic, void* user) {
    Output* o = static_cast<Output*>(user);
    if (o->count++ == 0) o->first = pic;
    if (o->png && o->count - 1 == o->png_frame) {
        if (!kplvc_tool::write_png(o->png, pic)) {
            o->failed = true;
            return false;
        }
        o->png_written = true;
    }
    if (!o->file) return true;
    if (!write_yuv(o->file, pic, o->convert ? o->to : pic.chroma)) {
        o->failed = true;
        return false;
    }
    return true;
}

}  // namespace

int kplvc_tool::decode(int argc, char** argv) {
    const char* in = nullptr;
    const char* out = nullptr;
    const char* format = nullptr;
    bool null_out = false;
    Output o;
    DecodeOptions opt;
    for (int i = 0; i < argc; ++i) {
        const char* a = argv[i];
        const bool has_value = i + 1 < argc;
        if (std::strcmp(a, "-o") == 0 && has_value) {
            out = argv[++i];
        } else if (std::strcmp(a, "--null") == 0) {
            null_out = true;
        } else if (std::strcmp(a, "--format") == 0 && has_value) {
            format = argv[++i];
        } else if (std::strcmp(a, "--pix-fmt") == 0 && has_value) {
            if (!chroma_from_name(argv[++i], &o.to)) {
                std::fprintf(stderr, "kplvc decode: unknown pixel format '%s'\n", argv[i]);
                return 2;
            }
            o.convert = true;
        } else if (std::strcmp(a, "--png") == 0 && has_value) {
            o.png = argv[++i];
        } else if (std::strcmp(a, "--frame") == 0 && has_value) {
            o.png_frame = std::atol(argv[++i]);
        } else if (std::strcmp(a, "--postfilter") == 0) {
            opt.postfilter = true;
        } else if (a[0] != '-' && !in) {
            in = a;
        } else {
            std::fprintf(stderr, "kplvc decode: unexpected argument '%s'\n", a);
            return 2;
        }
    }
    if (o.png && !out) null_out = true;
    if (!in || (!out && !null_out)) {
        std::fprintf(stderr,
                     "usage: kplvc decode IN (-o OUT.yuv | --null | --png OUT.png [--frame N]) [--format "
                     "NAME] [--pix-fmt F]\n"
                     "       [--postfilter]\n");
        return 2;
    }

    std::vector<uint8_t> data;
    if (!read_file(in, &data)) {
        std::fprintf(stderr, "kplvc decode: cannot read %s\n", in);
        return 1;
    }
    const Decoder* dec = format ? find_decoder(format) : detect_decoder(data.data(), data.size(), in);
    if (!dec) {
        if (format)
            std::fprintf(stderr, "kplvc decode: no decoder named '%s'\n", format);
        else
            std::fprintf(stderr, "kplvc decode: %s is not a stream any decoder recognises\n", in);
        return 1;
    }
    if (!null_out && !(o.file = std::fopen(out, "wb"))) {
        std::fprintf(stderr, "kplvc decode: cannot write %s\n", out);
        return 1;
    }

    DecodeStats stats;
    const auto t0 = std::chrono::steady_clock::now();
    const int rc = dec->decode(data.data(), data.size(), opt, on_picture, &o, &stats);
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (o.file && std::fclose(o.file) != 0) o.failed = true;

    if (rc < 0) {
        std::fprintf(stderr, "kplvc decode: %s: %s\n", dec->name,
                     stats.message[0] ? stats.message : "cannot decode");
        return 1;
    }
    if (o.failed) {
        std::fprintf(stderr, "kplvc decode: writing %s failed\n", o.png && !o.file ? o.png : out);
        return 1;
    }
    if (o.png && !o.png_written) {
        std::fprintf(stderr, "kplvc decode: no picture %ld to write to %s\n", o.png_frame, o.png);
        return 1;
    }
    if (stats.message[0]) std::printf("note: %s\n", stats.message);
    const Chroma shown = o.convert ? o.to : o.first.chroma;
    std::printf("decoded %s %dx%d %s frames %ld concealed %ld %s errors %ld time %.3f s %.1f fps\n",
                dec->name, o.first.width, o.first.height, chroma_name(shown), o.count, stats.concealed,
                stats.concealed_unit, stats.errors, secs, secs > 0 ? o.count / secs : 0.0);
    return 0;
}
