// The size of the component's module, and the time to load it.
#include "bench/Bench.h"
#include "common/com/unique_any.h"
#include "support/Support.h"

#include <windows.h>

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
        times.push_back(bench::Milliseconds([&] {
            if (!vorna::unique_library(LoadLibraryW(copy.c_str())))
                throw std::runtime_error("the module does not load");
        }));
    }
    report.AtMost("load and free", bench::Median(times), 20, "ms");
}
