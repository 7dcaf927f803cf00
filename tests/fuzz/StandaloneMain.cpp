#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Runs the inputs in the given folders; for compilers without a fuzzer.
int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& input : std::filesystem::directory_iterator(argv[i])) {
            std::printf("%s\n", input.path().filename().c_str());
            std::fflush(stdout);
            const std::string bytes = contentOf(input.path());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++count;
        }
    }
    return count > 0 ? 0 : 1;
}
