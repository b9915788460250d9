// MD5Bench.cpp: zor::MD5 beside OpenSSL's MD5 on 1 MiB buffers and on 64-byte messages (one whole
// digest per message: reset, absorb, finish), both over the same random bytes.
#define OPENSSL_SUPPRESS_DEPRECATED  // MD5_Init/Update/Final: OpenSSL's fastest path, without EVP lookups
#include <benchmark/benchmark.h>
#include <openssl/md5.h>

#include <random>
#include <vector>

#include "BenchUtil.h"
#include "MD5.h"

namespace {

const std::vector<unsigned char>& randomBytes() {
    static const std::vector<unsigned char> bytes = [] {
        std::vector<unsigned char> b(1 << 20);
        std::mt19937 rng(1);
        for (unsigned char& c : b) c = static_cast<unsigned char>(rng());
        return b;
    }();
    return bytes;
}

void zorDigest(benchmark::State& state, size_t length) {
    const unsigned char* data = randomBytes().data();
    zor::MD5 md5;
    for (auto _ : state) {
        md5.Reset();
        md5.Append(data, static_cast<ZR_Uint32>(length));
        benchmark::DoNotOptimize(md5.Digest());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * length));
}

void opensslDigest(benchmark::State& state, size_t length) {
    const unsigned char* data = randomBytes().data();
    unsigned char digest[MD5_DIGEST_LENGTH];
    MD5_CTX ctx;
    for (auto _ : state) {
        MD5_Init(&ctx);
        MD5_Update(&ctx, data, length);
        MD5_Final(digest, &ctx);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * length));
}

void zor1MiB(benchmark::State& state) { zorDigest(state, 1 << 20); }
void openssl1MiB(benchmark::State& state) { opensslDigest(state, 1 << 20); }
void zor64B(benchmark::State& state) { zorDigest(state, 64); }
void openssl64B(benchmark::State& state) { opensslDigest(state, 64); }

}  // namespace

BENCHMARK(zor1MiB)->Name("md5_1MiB/zor");
BENCHMARK(openssl1MiB)->Name("md5_1MiB/openssl");
BENCHMARK(zor64B)->Name("md5_64B/zor");
BENCHMARK(openssl64B)->Name("md5_64B/openssl");
ZOR_BENCH_TARGET("md5_1MiB", 0.95, ">= 0.95x OpenSSL");
ZOR_BENCH_TARGET("md5_64B", 0.95, ">= 0.95x OpenSSL");
