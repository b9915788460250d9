// PathBench.cpp: zor::Path parsing and normalisation beside std::filesystem::path::lexically_normal,
// both over the same set of path texts (absolute and relative, with ".", ".." and repeated slashes).
// Each iteration parses one text and normalises it; the result's size is consumed so neither side can
// skip the work.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#include "BenchUtil.h"
#include "FileSystem.h"

namespace {

const std::vector<std::string>& pathTexts() {
    static const std::vector<std::string> texts = {
        "/usr/local/lib/../share/./doc/zor/README", "var//log/svc/./2024/../2025/app.log",
        "../../src/common/include/FileSystem.h",    "/a/b/c/d/e/f/../../../g/h",
        "./build/release/./bin/../lib/libzor.so.1", "/home/user/projects//zor/common/source/",
        "data/a/../b/../c/../d/file.bin",           "/srv/www/htdocs/images/2024/01/02/photo-000123.jpg",
    };
    return texts;
}

void zorNormalise(benchmark::State& state) {
    const std::vector<std::string>& texts = pathTexts();
    size_t i = 0;
    for (auto _ : state) {
        const zor::Path path(texts[i]);
        benchmark::DoNotOptimize(path.Size());
        i = (i + 1) % texts.size();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void stdNormalise(benchmark::State& state) {
    const std::vector<std::string>& texts = pathTexts();
    size_t i = 0;
    for (auto _ : state) {
        const std::filesystem::path path = std::filesystem::path(texts[i]).lexically_normal();
        benchmark::DoNotOptimize(path.native().size());
        i = (i + 1) % texts.size();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

}  // namespace

BENCHMARK(zorNormalise)->Name("path_normalise/zor");
BENCHMARK(stdNormalise)->Name("path_normalise/std");
ZOR_BENCH_TARGET("path_normalise", 1.0, ">= 1.0x std::filesystem lexically_normal");
