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

// Writes MSB-first fields and Exp-Golomb codes independently of the parser.
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

TEST(ColumbusParserCodes, DecodesKnownUeAndSeCodes) {
    const Bytes codes = {0xA6, 0x43, 0xD3, 0x21, 0xC0};  // 1 010 011 00100 00111, twice
    zor::ColumbusParser bits(codes.data(), static_cast<ZR_Uint32>(codes.size()));
    for (ZR_Uint32 expected : {0u, 1u, 2u, 3u, 6u}) EXPECT_EQ(expected, bits.GetNextColumbusUeValue());
    for (ZR_INT expected : {0, 1, -1, 2, -3}) EXPECT_EQ(expected, bits.GetNextColumbusSeValue());
    EXPECT_EQ(63u, bits.GetNextColumbusUeValue());  // six zeros up to the end; the value bits read as 0
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
        zor::ColumbusParser in(out.bytes.data(), static_cast<ZR_Uint32>(out.bytes.size()));
        for (const auto& [kind, value] : fields) {
            const ZR_Uint64 read = kind > 0     ? in.GetNextFixedBitValue(kind)
                                   : kind == -1 ? in.GetNextColumbusUeValue()
                                                : static_cast<ZR_Uint64>(in.GetNextColumbusSeValue());
            ASSERT_EQ(value, read) << "field kind " << kind;
        }
    }
}

TEST(ColumbusParserLimits, LongCodesReadsPastTheEndAndTheLengthLimit) {
    // 40 zeros, the 1, then 40 value bits ending in 11: the power of two wraps to 2^(40 mod 32).
    const Bytes longCode = {0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0x01, 0xFF};
    zor::ColumbusParser bits(longCode.data(), static_cast<ZR_Uint32>(longCode.size()));
    EXPECT_EQ(3u + (1u << 8) - 1, bits.GetNextColumbusUeValue());
    EXPECT_EQ(0u, bits.GetNextFixedBitValue(0));
    EXPECT_EQ(0x7Fu, bits.GetNextFixedBitValue(7));
    EXPECT_EQ(0u, bits.GetNextFixedBitValue(100));  // entirely past the end

    const Bytes big(513, 0xFF);
    EXPECT_EQ(~0ul, zor::ColumbusParser(big.data(), 512).GetNextFixedBitValue(64));
    EXPECT_EQ("wrong ColumbusParser buffer length",
              zortest::thrownMessage([&] { zor::ColumbusParser(big.data(), 513); }));
    zor::ColumbusParser empty(nullptr, 0);
    EXPECT_EQ(0u, empty.GetNextColumbusUeValue());
    EXPECT_EQ(0u, empty.GetNextFixedBitValue(64));
}

struct Sps {
    ZR_ULONG profile, level, width, height;
};

// seq_parameter_set_rbsp() up to the cropping window, for what libx264 writes by default: 4:2:0, no
// scaling matrices, pic_order_cnt_type 0 or 2.
Sps parseSps(zor::ColumbusParser& bits) {
    auto u = [&](ZR_Uint32 n) { return bits.GetNextFixedBitValue(n); };
    auto ue = [&] { return ZR_ULONG{bits.GetNextColumbusUeValue()}; };
    const ZR_ULONG profile = u(8);
    u(8);  // constraint flags
    const ZR_ULONG level = u(8);
    ue();  // seq_parameter_set_id
    if (profile == 100) {
        EXPECT_EQ(1u, ue());      // chroma_format_idc
        ue(), ue();               // bit depths
        EXPECT_EQ(0u, u(2) & 1);  // seq_scaling_matrix_present_flag
    }
    ue();                 // log2_max_frame_num_minus4
    if (ue() == 0) ue();  // pic_order_cnt_type 0 carries log2_max_pic_order_cnt_lsb_minus4
    ue(), u(1);           // max_num_ref_frames, gaps_in_frame_num_value_allowed_flag
    const ZR_ULONG widthMbs = ue() + 1, heightMaps = ue() + 1, frameMbsOnly = u(1);
    u(frameMbsOnly != 0 ? 1 : 2);
    ZR_ULONG crop[4] = {0, 0, 0, 0};  // left, right, top, bottom, in units of two samples
    if (u(1) != 0) {
        for (ZR_ULONG& edge : crop) edge = ue();
    }
    return {profile, level, widthMbs * 16 - 2 * (crop[0] + crop[1]),
            (2 - frameMbsOnly) * (heightMaps * 16 - 2 * (crop[2] + crop[3]))};
}

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
        zor::ColumbusParser bits(reinterpret_cast<const ZR_BYTE*>(rbsp.data()),
                                 static_cast<ZR_Uint32>(rbsp.size()));
        const Sps sps = parseSps(bits);
        EXPECT_EQ(profiles.at(probe["profile"]), sps.profile) << name;
        EXPECT_EQ(std::stoul(probe["level"]), sps.level) << name;
        EXPECT_EQ(std::stoul(probe["width"]), sps.width) << name;
        EXPECT_EQ(std::stoul(probe["height"]), sps.height) << name;
    }
}

}  // namespace
