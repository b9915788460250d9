// MD5Test.cpp: digests against RFC 1321's suite and against md5sum, split appends, the finishing rule.
#include "MD5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "TestUtil.h"

namespace {

std::string digestInPieces(const std::string& message, const std::vector<size_t>& cuts) {
    zor::MD5 md5;
    size_t from = 0;
    for (size_t cut : cuts) {
        md5.Append(message.data() + from, static_cast<ZR_Uint32>(cut - from));
        from = cut;
    }
    md5.Append(message.substr(from));
    return md5.ToString();
}

// md5sum's digest of every file in `dir`, by file name.
std::map<std::string, std::string> md5sumOfDirectory(const std::string& dir) {
    std::map<std::string, std::string> digests;
    FILE* pipe = popen(("cd '" + dir + "' && md5sum *").c_str(), "r");
    char line[512];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        const std::string text(line);
        digests[text.substr(34, text.find('\n') - 34)] = text.substr(0, 32);
    }
    if (pipe != nullptr) pclose(pipe);
    return digests;
}

}  // namespace

TEST(MD5Digest, MatchesTheRfc1321SuiteWholeAndByteByByte) {
    const std::pair<std::string, std::string> suite[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"1234567890123456789012345678901234567890123456789012345678901234567890123456789"
         "0",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [message, expected] : suite) {
        EXPECT_EQ(expected, zor::MD5(message).ToString()) << message;
        zor::MD5 bytewise;
        for (char c : message) bytewise.Append(std::string(1, c));
        EXPECT_EQ(expected, bytewise.ToString()) << message;
    }
}

TEST(MD5Digest, RandomMessagesSplitAnywhereMatchMd5sum) {
    zortest::ScratchDir dir;
    std::mt19937 rng(20240611);
    std::map<std::string, std::string> ours;
    for (int i = 0; i < 300; ++i) {
        // Lengths cluster around the padding boundaries of one and two blocks, with some long ones.
        const size_t base[] = {0, 55, 56, 63, 64, 65, 119, 120, 128};
        const size_t length = i < 270 ? base[i % 9] + rng() % 3 : rng() % 20000;
        std::string message(length, '\0');
        for (char& c : message) c = static_cast<char>(rng() % 4 == 0 ? 0 : rng());  // NUL bytes included
        const size_t cutA = length == 0 ? 0 : rng() % (length + 1);
        const size_t near[] = {55, 56, 63, 64, 65};
        const size_t cutB = std::max(cutA, std::min(length, near[rng() % 5] + cutA));
        const std::string name = "m" + std::to_string(1000 + i);
        zortest::writeFile(dir / name, message);
        ours[name] = digestInPieces(message, {cutA, cutB});
        ASSERT_EQ(ours[name], zor::MD5(message.data(), static_cast<ZR_Uint32>(length)).ToString()) << name;
    }
    EXPECT_EQ(ours, md5sumOfDirectory(dir.Path()));
}

TEST(MD5Finishing, DigestIsKeptUntilResetAndCopiesCarryTheState) {
    zor::MD5 md5("ab");
    zor::MD5 copy = md5;  // a half-absorbed message continues independently in the copy
    copy.Append("c");
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", copy.ToString());

    const std::string first = md5.ToString();
    md5.Append("x");
    EXPECT_EQ(first, md5.ToString());
    EXPECT_EQ(0, std::memcmp(md5.Digest(), zor::MD5("ab").Digest(), 16));

    md5.Reset();
    md5.Append("ab");
    md5.Append("x");
    EXPECT_EQ(zor::MD5("abx").ToString(), md5.ToString());
}
