// logger_from_file: the logger configured from a key = value file.
//
// Logger::Initialize(configPath) reads no key at all: it never opens the file, so it always runs with the
// defaults. To take the settings from a file, open it with an initialised FileConfig, read each key over
// a default, and pass the values to the argument form of Initialize().
//
//   logger_from_file [CONFIG]    (without CONFIG it uses ./logger.conf, writing a sample there if missing)
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "FileConfig.h"
#include "Logger.h"

namespace {

const char* const SAMPLE_CONFIG =
    "# Settings of the example's log\n"
    "module = example\n"
    "file = ./logs/example.log\n"
    "mbytes = 16\n"
    "lines = 100000\n"
    "level = 5\n"
    "foreground = 0\n"
    "sync = 0\n";

// A key's value, or `fallback` when the key is absent (GetValue() leaves the value alone then).
std::string setting(zor::FileConfig& config, const char* key, const char* fallback) {
    std::string value = fallback;
    config.GetValue(key, value);
    return value;
}

ZR_Uint32 number(zor::FileConfig& config, const char* key, const char* fallback) {
    return static_cast<ZR_Uint32>(std::strtoul(setting(config, key, fallback).c_str(), nullptr, 10));
}

// Writes the sample unless the file exists already.
bool ensureSample(const char* path) {
    if (std::ifstream(path)) return true;
    std::ofstream out(path);
    out << SAMPLE_CONFIG;
    out.close();
    return !out.fail();
}

// Prints the log; false when it has no line.
bool show(const std::string& logPath) {
    std::ifstream in(logPath);
    int lines = 0;
    for (std::string line; std::getline(in, line); ++lines) std::puts(line.c_str());
    return lines > 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "logger.conf";
    if (argc == 1 && !ensureSample(path)) {
        std::fprintf(stderr, "cannot write %s\n", path);
        return 1;
    }
    {
        zor::FileConfig config(path, 1);  // read-only
        if (config.Initialize() != zor::E_OK) {
            std::fprintf(stderr, "cannot read %s\n", path);
            return 1;
        }
        // The defaults are those Initialize(configPath) would use; an empty module or file keeps the
        // logger's own ("Logger", "./file.log").
        zor::Logger::Instance()->Initialize(setting(config, "module", ""), setting(config, "file", ""),
                                            number(config, "mbytes", "1"), number(config, "lines", "1000"),
                                            number(config, "level", "0"), number(config, "foreground", "0"),
                                            number(config, "sync", "0"));
    }  // the configuration file is closed; the logger keeps its settings
    ZOR_LOG_INFO("configured from %s", path);
    ZOR_LOG_DEBUG(6, "debug lines above the configured level are written");
    ZOR_LOG_DEBUG(1, "this one is not");
    const std::string logPath = zor::Logger::Instance()->LogFilePath();
    zor::Logger::DestroyInstance();  // the writer thread writes what is queued, then the file is closed
    std::printf("%s:\n", logPath.c_str());
    return show(logPath) ? 0 : 1;
}
