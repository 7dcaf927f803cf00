// What expanding a folder costs per entry, its log lines included, as the folder grows.

#include "core/LocationExpansion.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <stdlib.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// A folder of `count` entries, one in ten a package.
LocationList makeFolder(const fs::path& folder, int count) {
    fs::create_directories(folder);
    for (int i = 0; i < count; ++i) {
        const fs::path entry = folder / ("entry " + std::to_string(i));
        if (i % 10 == 0)
            fs::create_directory(entry.string() + ".app");
        else
            std::ofstream(entry).put('x');
    }
    return {FileUrl::fileURLWithPath(folder.string())};
}

/// Microseconds per entry of expanding `items`, `repeats` times over.
double cost(const LocationList& items, int entries, int repeats) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < repeats; ++i)
        (void)validItemsFromUrls({"Bench", "<Bench>"}, items);
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    return time.count() / entries / repeats;
}

} // namespace

int main() {
    std::string name = fs::temp_directory_path() / "kelpmoray-bench-XXXXXX";
    const fs::path root = mkdtemp(name.data());
    constexpr int small = 1'000;
    constexpr int large = 100'000;
    const LocationList smallFolder = makeFolder(root / "small", small);
    const LocationList largeFolder = makeFolder(root / "large", large);
    if (std::freopen("/dev/null", "w", stderr) == nullptr)
        return 1;

    double smallCost = 1e9;
    double largeCost = 1e9;
    for (int round = 0; round < 5; ++round) {
        smallCost = std::min(smallCost, cost(smallFolder, small, large / small));
        largeCost = std::min(largeCost, cost(largeFolder, large, 1));
    }
    std::printf("%7d entries: %.2f us each\n%7d entries: %.2f us each\nratio %.2f\n", small,
                smallCost, large, largeCost, largeCost / smallCost);
    fs::remove_all(root);
}
