// ColumbusParserTest.cpp: known codes, encode/decode round trips, reads past the end and over long zero
// runs, the length limit, and the fields of real H.264 sequence parameter sets.
#include "ColumbusParser.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TestUtil.h"

namespace {

using Bytes = std::vector<ZR_BYTE>;

template <typename Container>
ZR_Uint32 lengthOf(const Container& c) {
    return static_cast<ZR_Uint32>(c.size());
}

class BitWriter {
public:
    void put(ZR_Uint64 value, ZR_Uint32 n) {
        for (ZR_Uint32 i = n; i-- > 0; ++m_bits) {
            if (m_bits % 8 == 0) bytes.push_back(0);
            bytes.back() |= static_cast<ZR_BYTE>(((value >> i) & 1) << (7 - m_bits % 8));
        }
    }
    void putUe(ZR_Uint32 v) {
        const ZR_Uint64 code = ZR_Uint64{v} + 1;
        const ZR_Uint32 width = 64 - __builtin_clzll(code);
        put(0, width - 1);
        put(code, width);
    }
    void putSe(ZR_INT v) { putUe(v > 0 ? 2u * v - 1 : -2u * static_cast<ZR_Uint32>(v)); }
    Bytes bytes;

private:
    ZR_Uint32 m_bits = 0;
};

}  // namespace

TEST(ColumbusParserCodes, DecodesKnownUeSeAndFixedFields) {
    const Bytes ue0 = {0x80};
    EXPECT_EQ(0u, zor::ColumbusParser(ue0.data(), 1).GetNextColumbusUeValue());
    const Bytes codes = {0x4c, 0x87, 0x4c, 0x87};  // 010 011 00100 00111, twice
    zor::ColumbusParser bits(codes.data(), lengthOf(codes));
    for (ZR_Uint32 expected : {1u, 2u, 3u, 6u}) EXPECT_EQ(expected, bits.GetNextColumbusUeValue());
    for (ZR_INT expected : {1, -1, 2, -3}) EXPECT_EQ(expected, bits.GetNextColumbusSeValue());

    const Bytes fixed = {0xA5, 0x0F};
    zor::ColumbusParser field(fixed.data(), 2);
    EXPECT_EQ(0u, field.GetNextFixedBitValue(0));
    EXPECT_EQ(0xA5u, field.GetNextFixedBitValue(8));
    EXPECT_EQ(0u, field.GetNextFixedBitValue(4));
    EXPECT_EQ(0xFu, field.GetNextFixedBitValue(4));
}

TEST(ColumbusParserCodes, RandomFieldsRoundTrip) {
    std::mt19937 rng(7);
    for (int round = 0; round < 40; ++round) {
        BitWriter out;
        std::vector<std::pair<int, ZR_Uint64>> fields;  // (width 1-64 of a fixed field, or -1 ue, -2 se)
        while (out.bytes.size() < 480) {
            const bool small = rng() % 2 == 0;
            const ZR_Uint64 wide = (ZR_Uint64{rng()} << 32) | rng();
            const int kind = static_cast<int>(rng() % 66) - 2;
            if (kind > 0) {
                fields.push_back({kind, kind == 64 ? wide : wide >> (64 - kind)});
                out.put(fields.back().second, kind);
            } else if (kind == -1 || kind == 0) {
                fields.push_back({-1, small ? rng() % 16 : std::min<ZR_Uint32>(rng(), 0xfffffffe)});
                out.putUe(static_cast<ZR_Uint32>(fields.back().second));
            } else {
                const ZR_INT v = static_cast<ZR_INT>(small ? rng() % 9 : wide >> 33) - (small ? 4 : 1 << 30);
                fields.push_back({-2, static_cast<ZR_Uint64>(v)});
                out.putSe(v);
            }
        }
        zor::ColumbusParser in(out.bytes.data(), lengthOf(out.bytes));
        for (const auto& [kind, value] : fields) {
            const ZR_Uint64 read = kind > 0     ? in.GetNextFixedBitValue(kind)
                                   : kind == -1 ? in.GetNextColumbusUeValue()
                                                : static_cast<ZR_Uint64>(in.GetNextColumbusSeValue());
            ASSERT_EQ(value, read) << "field kind " << kind;
        }
    }
}

TEST(ColumbusParserLimits, LongCodesAndReadsPastTheEndGiveTheBitByBitResults) {
    // 40 zeros, the 1, then 40 value bits ending in 11: the power of two wraps to 2^(40 mod 32).
    const Bytes longCode = {0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0x01, 0xFF};
    zor::ColumbusParser bits(longCode.data(), lengthOf(longCode));
    EXPECT_EQ(3u + (1u << 8) - 1, bits.GetNextColumbusUeValue());
    EXPECT_EQ(0x7Fu, bits.GetNextFixedBitValue(7));
    EXPECT_EQ(0u, bits.GetNextFixedBitValue(100));  // entirely past the end

    const Bytes zero = {0x00};  // the zero count stops at the end; the value bits beyond read as 0
    EXPECT_EQ(255u, zor::ColumbusParser(zero.data(), 1).GetNextColumbusUeValue());
}

TEST(ColumbusParserLimits, AcceptsUpTo512BytesAndAnEmptyBuffer) {
    const Bytes big(513, 0xFF);
    EXPECT_EQ(~0ul, zor::ColumbusParser(big.data(), 512).GetNextFixedBitValue(64));
    EXPECT_EQ("wrong ColumbusParser buffer length",
              zortest::thrownMessage([&] { zor::ColumbusParser(big.data(), 513); }));
    zor::ColumbusParser empty(nullptr, 0);
    EXPECT_EQ(0u, empty.GetNextColumbusUeValue());
    EXPECT_EQ(0u, empty.GetNextFixedBitValue(64));
}

namespace {

struct Sps {
    ZR_ULONG profile, level, width, height;
};

// seq_parameter_set_rbsp() up to the cropping window, for 4:2:0 streams without scaling matrices
// (what libx264 writes by default).
Sps parseSps(zor::ColumbusParser& bits) {
    auto u = [&](ZR_Uint32 n) { return bits.GetNextFixedBitValue(n); };
    auto ue = [&] { return ZR_ULONG{bits.GetNextColumbusUeValue()}; };
    const ZR_ULONG profile = u(8);
    u(8);  // constraint flags
    Sps sps{profile, u(8), 0, 0};
    ue();  // seq_parameter_set_id
    if (sps.profile == 100) {
        EXPECT_EQ(1u, ue());      // chroma_format_idc
        ue(), ue();               // bit depths
        EXPECT_EQ(0u, u(2) & 1);  // seq_scaling_matrix_present_flag
    }
    ue();  // log2_max_frame_num_minus4
    const ZR_ULONG pocType = ue();
    if (pocType == 0) ue();
    if (pocType == 1) {
        u(1), bits.GetNextColumbusSeValue(), bits.GetNextColumbusSeValue();
        for (ZR_ULONG n = ue(); n > 0; --n) bits.GetNextColumbusSeValue();
    }
    ue(), u(1);  // max_num_ref_frames, gaps_in_frame_num_value_allowed_flag
    const ZR_ULONG widthMbs = ue() + 1, heightMaps = ue() + 1, frameMbsOnly = u(1);
    u(frameMbsOnly != 0 ? 1 : 2);
    ZR_ULONG crop[4] = {0, 0, 0, 0};  // left, right, top, bottom, in units of two samples
    if (u(1) != 0) {
        for (ZR_ULONG& edge : crop) edge = ue();
    }
    sps.width = widthMbs * 16 - 2 * (crop[0] + crop[1]);
    sps.height = (2 - frameMbsOnly) * (heightMaps * 16 - 2 * (crop[2] + crop[3]));
    return sps;
}

}  // namespace

// The samples come from scripts/make-sps-testdata.sh: x264 streams, their SPS and what ffprobe reported.
TEST(ColumbusParserSps, FieldsOfX264StreamsMatchFfprobe) {
    const std::string file(__FILE__);
    const std::string dataDir = file.substr(0, file.rfind('/')) + "/data/";
    const std::map<std::string, ZR_ULONG> profiles = {
        {"Constrained Baseline", 66}, {"Baseline", 66}, {"Main", 77}, {"High", 100}};
    for (const char* name : {"high-200x120", "main-352x288", "baseline-1280x720"}) {
        std::map<std::string, std::string> probe;
        std::istringstream lines(zortest::readFile(dataDir + name + ".txt"));
        for (std::string line; std::getline(lines, line);) {
            probe[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
        }
        const std::string rbsp = zortest::readFile(dataDir + name + ".sps");
        ASSERT_EQ(4u, probe.size()) << name;
        zor::ColumbusParser bits(reinterpret_cast<const ZR_BYTE*>(rbsp.data()), lengthOf(rbsp));
        const Sps sps = parseSps(bits);
        EXPECT_EQ(profiles.at(probe["profile"]), sps.profile) << name;
        EXPECT_EQ(std::stoul(probe["level"]), sps.level) << name;
        EXPECT_EQ(std::stoul(probe["width"]), sps.width) << name;
        EXPECT_EQ(std::stoul(probe["height"]), sps.height) << name;
    }
}
