// How large the component's module is, and how long a program takes to load it.
#include "Bench.h"
#include "common/com/unique_any.h"
#include "support/Support.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <vector>

VORNA_BENCH(Module) {
    const std::filesystem::path module = support::BinFolder() / "Vorna.dll";
    report.AtMost("size", static_cast<double>(std::filesystem::file_size(module)) / 1024, 2048, "KB");

    // Each round loads a file that the loader has not seen before.
    support::TestFolder folder;
    std::vector<double> times;
    for (int round = 0; round < 25; ++round) {
        const auto copy = folder.Path() / ("Vorna" + std::to_string(round) + ".dll");
        std::filesystem::copy_file(module, copy);
        const auto begin = std::chrono::steady_clock::now();
        vorna::unique_library library(LoadLibraryW(copy.c_str()));
        const bool loaded = static_cast<bool>(library);
        library.reset();
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
        if (!loaded)
            throw std::runtime_error("the module does not load");
        times.push_back(took.count());
    }
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    report.AtMost("load and free", times[times.size() / 2], 20, "ms");
}
