// ZorVersionTest.cpp: the loaded library, the headers and the SONAME agree on one version.
#include <zor/ZorVersion.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

TEST(ZorVersionAgreement, LibraryAnswersWithTheVersionOfTheHeadersAsThreeNumbersJoinedByDots) {
    EXPECT_STREQ(ZOR_VERSION_STRING, zor::Version());
    EXPECT_EQ(ZOR_VERSION_MAJOR, zor::VersionMajor());
    EXPECT_EQ(ZOR_VERSION_MINOR, zor::VersionMinor());
    EXPECT_EQ(ZOR_VERSION_PATCH, zor::VersionPatch());
    EXPECT_EQ(std::to_string(zor::VersionMajor()) + "." + std::to_string(zor::VersionMinor()) + "." +
                  std::to_string(zor::VersionPatch()),
              zor::Version());
}

TEST(ZorVersionAgreement, SharedLibraryIsLoadedUnderTheSonameOfTheMajorNumber) {
    Dl_info info{};
    ASSERT_NE(0, dladdr(reinterpret_cast<void*>(&zor::Version), &info));
    const std::string loaded = info.dli_fname;
    if (loaded.find("libzor.so") == std::string::npos) GTEST_SKIP() << "static build: " << loaded;
    const std::string soname = "libzor.so." + std::to_string(zor::VersionMajor());
    EXPECT_EQ(soname, loaded.substr(loaded.rfind('/') + 1));
}
