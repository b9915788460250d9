// Feeds arbitrary bytes to FileConfig as a configuration file. The first input byte picks the length of
// a key taken from the bytes after it; the rest is the file. Besides surviving every input under the
// sanitizers, the reader must agree with itself: a key that SetValue replaced reads back as the new value,
// a failed SetValue leaves the file byte for byte as it was, and no "_tmp" file is ever left behind.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "ErrorCode.h"
#include "FileConfig.h"

namespace {

char g_scratchDir[] = "/tmp/zorfuzz.XXXXXX";

void removeScratch() {
    const std::string dir = g_scratchDir;
    unlink((dir + "/fuzz.conf").c_str());
    unlink((dir + "/fuzz.conf_tmp").c_str());
    rmdir(dir.c_str());
}

// One scratch directory per fuzzing process, removed again when the process exits normally.
const std::string& scratchPath() {
    static const std::string path = [] {
        if (mkdtemp(g_scratchDir) == nullptr) abort();
        std::atexit(removeScratch);
        return std::string(g_scratchDir) + "/fuzz.conf";
    }();
    return path;
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A key that reads back after SetValue: one word, and not starting with '#', since the rewritten line
// starts at column 0, where '#' makes it a comment.
bool plainWord(const std::string& word) {
    if (word.empty() || word[0] == '#') return false;
    for (const char c : word) {
        if (c == '\0' || c == '=' || c == ' ' || (c >= '\t' && c <= '\r')) return false;
    }
    return true;
}

void check(bool condition) {
    if (!condition) abort();
}

void walkAll(zor::FileConfig& config, const std::string& key) {
    std::string value;
    config.GetValue(key, value);
    for (int i = 0; i < 64 && config.GetValueContinous(key, value) == zor::E_OK; ++i) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t keyLength = 1 + data[0] % 8;
    if (size < 1 + keyLength) return 0;
    const std::string key(reinterpret_cast<const char*>(data + 1), keyLength);
    const std::string content(reinterpret_cast<const char*>(data + 1 + keyLength), size - 1 - keyLength);
    const std::string& path = scratchPath();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;

    zor::FileConfig config(path, 0);
    if (config.Initialize() != zor::E_OK) return 0;
    walkAll(config, key);
    std::string before;
    const bool found = config.GetValue(key, before) == zor::E_OK;
    const ZR_INT result = config.SetValue(key, "fuzzed");
    check(access((path + "_tmp").c_str(), F_OK) != 0);
    if (result != zor::E_OK) {
        check(slurp(path) == content);
        return 0;
    }
    check(found);
    std::string after;
    if (plainWord(key)) check(config.GetValue(key, after) == zor::E_OK && after == "fuzzed");
    walkAll(config, key);
    return 0;
}
