// ColumbusParserBench.cpp: ue(v) decoding over a 512-byte buffer of random codes (short and long ones
// mixed, as in real headers), zor's windowed reader against a straightforward bit-by-bit decoder.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "BenchUtil.h"
#include "ColumbusParser.h"

namespace {

struct Codes {
    std::vector<ZR_BYTE> bytes;
    size_t count = 0;
};

// Random ue codes until the next one would not fit in 512 bytes; code lengths spread from 1 to 65 bits.
const Codes& randomCodes() {
    static const Codes codes = [] {
        Codes c;
        std::mt19937 rng(3);
        std::vector<bool> bits;
        for (;;) {
            const ZR_Uint64 code = (ZR_Uint64{rng()} >> (rng() % 32)) + 1;
            const int width = 64 - __builtin_clzll(code);
            if (bits.size() + 2 * width - 1 > 512 * 8) break;
            bits.insert(bits.end(), width - 1, false);
            for (int i = width - 1; i >= 0; --i) bits.push_back(((code >> i) & 1) != 0);
            ++c.count;
        }
        c.bytes.assign(512, 0);
        for (size_t i = 0; i < bits.size(); ++i) c.bytes[i / 8] |= bits[i] ? 0x80 >> (i % 8) : 0;
        return c;
    }();
    return codes;
}

class BitwiseDecoder {
public:
    explicit BitwiseDecoder(const std::vector<ZR_BYTE>& data) : m_data(data) {}
    ZR_Uint32 ue() {
        ZR_Uint32 zeros = 0;
        for (; m_pos < m_data.size() * 8 && bitAt(m_pos) == 0; ++m_pos) ++zeros;
        ++m_pos;
        ZR_Uint64 value = 0;
        for (ZR_Uint32 i = 0; i < zeros; ++i) value = value * 2 + bitAt(m_pos++);
        return static_cast<ZR_Uint32>(value) + (1u << (zeros % 32)) - 1;
    }

private:
    // Bits past the buffer are 0.
    ZR_Uint32 bitAt(ZR_Uint32 p) const {
        return p < m_data.size() * 8 ? (m_data[p / 8] >> (7 - p % 8)) & 1 : 0;
    }
    const std::vector<ZR_BYTE>& m_data;
    ZR_Uint32 m_pos = 0;
};

void zorUe(benchmark::State& state) {
    const Codes& codes = randomCodes();
    for (auto _ : state) {
        zor::ColumbusParser parser(codes.bytes.data(), static_cast<ZR_Uint32>(codes.bytes.size()));
        ZR_Uint32 sum = 0;
        for (size_t i = 0; i < codes.count; ++i) sum += parser.GetNextColumbusUeValue();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * codes.count));
}

void bitwiseUe(benchmark::State& state) {
    const Codes& codes = randomCodes();
    for (auto _ : state) {
        BitwiseDecoder decoder(codes.bytes);
        ZR_Uint32 sum = 0;
        for (size_t i = 0; i < codes.count; ++i) sum += decoder.ue();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * codes.count));
}

}  // namespace

BENCHMARK(zorUe)->Name("ue_512B/zor");
BENCHMARK(bitwiseUe)->Name("ue_512B/bitwise");
ZOR_BENCH_TARGET("ue_512B", 3.0, ">= 3x bit-by-bit");
