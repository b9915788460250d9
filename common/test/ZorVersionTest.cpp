// ZorVersionTest.cpp: the loaded library, the headers and the SONAME agree on one version.
#include <zor/ZorVersion.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

TEST(ZorVersionAgreement, LibraryAnswersWithTheHeadersVersionAndIsLoadedUnderTheSonameOfItsMajor) {
    const std::string numbers = std::to_string(zor::VersionMajor()) + "." +
                                std::to_string(zor::VersionMinor()) + "." +
                                std::to_string(zor::VersionPatch());
    EXPECT_EQ(ZOR_VERSION_STRING, numbers);
    EXPECT_EQ(numbers, zor::Version());
    Dl_info info{};
    ASSERT_NE(0, dladdr(reinterpret_cast<void*>(&zor::Version), &info));
    const std::string loaded = info.dli_fname;
    if (loaded.find("libzor.so") == std::string::npos) GTEST_SKIP() << "static build: " << loaded;
    EXPECT_EQ("libzor.so." + std::to_string(zor::VersionMajor()), loaded.substr(loaded.rfind('/') + 1));
}
