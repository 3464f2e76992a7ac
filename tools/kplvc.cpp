// kplvc: the library's command-line tool.
//   kplvc demo                   encodes and decodes a built-in clip with the
//                                codecs built on the library
//   kplvc info                   library, CPU and kernel levels
//   kplvc decode IN [-o OUT]     decode a video stream with the codecs built
//                                on the library
//   kplvc encode IN -o OUT ...   encode raw YUV with a codec built on the library
//   kplvc compare A B ...        per-frame PSNR and largest difference of
//                                two raw YUV files
#include <cstdio>
#include <cstring>

#include "tools/commands.h"

namespace {

int usage(FILE* out) {
    std::fprintf(out,
                 "usage: kplvc <command> [arguments]\n"
                 "commands:\n"
                 "  demo [--frames N] [--size WxH]  encode and decode a built-in moving clip (H.263),\n"
                 "                            print bit rate, PSNR and speed; writes demo.h263, demo.yuv\n"
                 "  info                      version record, CPU features, kernel level of each family\n"
                 "  decode IN [-o OUT.yuv]    decode a stream (format from its content) to planar YUV\n"
                 "         [--null] [--format NAME] [--pix-fmt yuv420p|yuv422p|yuv411p]\n"
                 "         [--postfilter] [--png OUT.png [--frame N]]  (--postfilter: MPEG-4 deblocking\n"
                 "                            and deringing; --png: picture N, from 0, as an image)\n"
                 "  encode IN.yuv --size WxH -o OUT (--qscale Q | --bitrate R) [--recon R.yuv]\n"
                 "         [--fps N[/D]] [--gop N] [--frames N] [--format h263|mpeg4] [--mpeg-quant] [--4mv] "
                 "[--qpel]\n"
                 "         [--deblock] [--advanced-intra]\n"
                 "                            encode planar 4:2:0 pictures (H.263, or MPEG-4 for OUT.m4v)\n"
                 "  compare A.yuv B.yuv --size WxH [--pix-fmt F] [--min-psnr DB | --exact]\n"
                 "                            per-frame PSNR of each plane and largest difference\n");
    return out == stdout ? 0 : 2;
}

struct Command {
    const char* name;
    int (*run)(int, char**);
};
constexpr Command kCommands[] = {
    {"info", kplvc_tool::info},     {"decode", kplvc_tool::decode}, {"compare", kplvc_tool::compare},
    {"encode", kplvc_tool::encode}, {"demo", kplvc_tool::demo},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage(stderr);
    for (const Command& c : kCommands)
        if (std::strcmp(argv[1], c.name) == 0) return c.run(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) return usage(stdout);
    std::fprintf(stderr, "kplvc: unknown command '%s'\n", argv[1]);
    return usage(stderr);
}
