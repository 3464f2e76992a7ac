#include "codecs/codec_test.h"

#include <unistd.h>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

namespace kplvc::codecs::test {

bool have_ffmpeg() { return std::system("ffmpeg -version >/dev/null 2>&1") == 0; }

std::vector<uint8_t> make_stream(const std::string& source, int frames, const std::string& encode,
                                 const std::string& ext) {
    char dir[] = "/tmp/kplvc-codec-XXXXXX";
    std::vector<uint8_t> out;
    if (!mkdtemp(dir)) return out;
    const std::string path = std::string(dir) + "/stream." + ext;
    const std::string cmd = "ffmpeg -nostdin -v error -y -f lavfi -i '" + source + "' -frames:v " +
                            std::to_string(frames) + " " + encode + " " + path;
    if (std::system(cmd.c_str()) == 0) {
        if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
            uint8_t buf[65536];
            size_t n;
            while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.insert(out.end(), buf, buf + n);
            std::fclose(f);
        }
    }
    std::remove(path.c_str());
    rmdir(dir);
    return out;
}

namespace {
bool check_picture(const Picture& pic, void* user) {
    DecodeRun* run = static_cast<DecodeRun*>(user);
    EXPECT_GT(pic.width, 0);
    EXPECT_GT(pic.height, 0);
    uint64_t h = run->checksum;
    for (int p = 0; p < 3; ++p) {
        const int w = p ? chroma_width(pic.chroma, pic.width) : pic.width;
        const int rows = p ? chroma_height(pic.chroma, pic.height) : pic.height;
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < w; ++x)
                h = h * 1099511628211ull + pic.plane[p][static_cast<size_t>(y) * pic.stride[p] + x];
    }
    run->checksum = h;
    ++run->pictures;
    return true;
}
}  // namespace

DecodeRun decode(const char* decoder, const std::vector<uint8_t>& data) {
    DecodeRun run;
    const Decoder* d = find_decoder(decoder);
    if (!d) {
        ADD_FAILURE() << "no decoder named " << decoder;
        run.status = -1;
        return run;
    }
    run.status = d->decode(data.data(), data.size(), DecodeOptions{}, check_picture, &run, &run.stats);
    return run;
}

}  // namespace kplvc::codecs::test
