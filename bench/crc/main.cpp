// bench_crc: the motor side's get_crc32 against zlib's crc32 over the same buffers, in
// one run: whole buffers of several sizes, and a firmware-sized image fed piece by piece
// as the upgrade protocols do. Every pair of results must agree, or the run fails.
//
//   bench_crc [--smoke]
// Last line: crc32_ratio=<get_crc32 time / zlib time over 1 MiB buffers>

#include <stdio.h>
#include <string.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <vector>

#include "motor/lowlevel/FileUtil.h"

using Clock = std::chrono::steady_clock;

namespace {

volatile uint32_t gSink;

// Best of several rounds, in seconds for one pass of fn; best-of damps the other
// processes sharing this machine.
double bestSeconds(int rounds, int passes, const std::function<uint32_t()>& fn) {
    double best = 1e9;
    for (int r = 0; r < rounds; ++r) {
        const auto start = Clock::now();
        for (int p = 0; p < passes; ++p) gSink = fn();
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return best / passes;
}

uint32_t ours(const std::vector<unsigned char>& buf, size_t piece) {
    uint32_t crc = 0;
    for (size_t off = 0; off < buf.size(); off += piece) {
        const size_t n = std::min(piece, buf.size() - off);
        crc = android::lumacast::get_crc32(crc, buf.data() + off, static_cast<uint32_t>(n));
    }
    return crc;
}

uint32_t zlibs(const std::vector<unsigned char>& buf, size_t piece) {
    uLong crc = crc32(0L, Z_NULL, 0);
    for (size_t off = 0; off < buf.size(); off += piece) {
        const size_t n = std::min(piece, buf.size() - off);
        crc = crc32(crc, buf.data() + off, static_cast<uInt>(n));
    }
    return static_cast<uint32_t>(crc);
}

}  // namespace

int main(int argc, char** argv) {
    const bool smoke = argc > 1 && strcmp(argv[1], "--smoke") == 0;
    const int rounds = smoke ? 2 : 7;
    const size_t budget = smoke ? (4u << 20) : (256u << 20);  // bytes per round and case

    std::mt19937 gen(1);
    std::vector<unsigned char> data(1u << 20);
    for (unsigned char& b : data) b = static_cast<unsigned char>(gen());

    struct Case {
        const char* name;
        size_t size;
        size_t piece;
    };
    // The last case is the one the summary ratio uses.
    const Case cases[] = {{"64b", 64, 64},
                          {"4kib", 4096, 4096},
                          {"64kib_image_in_256b_pieces", 65536, 256},
                          {"1mib", 1u << 20, 1u << 20}};
    double ratio = 0;
    for (const Case& c : cases) {
        const std::vector<unsigned char> buf(data.begin(), data.begin() + c.size);
        const uint32_t a = ours(buf, c.piece);
        const uint32_t b = zlibs(buf, c.piece);
        if (a != b) {
            fprintf(stderr, "%s: get_crc32 0x%08x, zlib 0x%08x\n", c.name, a, b);
            return 1;
        }
        const int passes = static_cast<int>(std::max<size_t>(1, budget / c.size));
        const double tOurs = bestSeconds(rounds, passes, [&] { return ours(buf, c.piece); });
        const double tZlib = bestSeconds(rounds, passes, [&] { return zlibs(buf, c.piece); });
        ratio = tOurs / tZlib;
        printf("crc32_%s_get_crc32_mib_s=%.1f\n", c.name, c.size / tOurs / (1 << 20));
        printf("crc32_%s_zlib_mib_s=%.1f\n", c.name, c.size / tZlib / (1 << 20));
        printf("crc32_%s_ratio=%.3f\n", c.name, ratio);
    }
    printf("crc32_ratio=%.3f\n", ratio);
    return 0;
}
