#include "TestTree.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <libdeflate.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

ShellResult runInShell(const std::string& command) {
    ShellResult result;
    FILE* pipe = ::popen(("{ " + command + "; } 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return {127, "cannot start the shell"};
    std::array<char, 4096> part{};
    for (std::size_t count = 0; (count = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
        result.output.append(part.data(), count);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::string shellQuoted(const std::string& text) {
    std::string result("'");
    for (const char c : text)
        c == '\'' ? result.append("'\\''") : result.append(1, c);
    return result + "'";
}

void writeFile(const std::string& path, std::string_view content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

void writeSparseFile(const std::string& path, std::uintmax_t size) {
    writeFile(path, "");
    fs::resize_file(path, size);
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string randomBytes(std::mt19937& random, std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::string compressibleBytes(std::mt19937& random, std::size_t size) {
    std::string bytes;
    while (bytes.size() < size) {
        if (random() % 3 == 0 || bytes.empty()) {
            for (std::size_t count = 1 + random() % 20; count > 0; --count)
                bytes += static_cast<char>(random() % (1 + random() % 256));
        } else {
            const std::size_t distance = 1 + random() % std::min<std::size_t>(bytes.size(), 40000);
            for (std::size_t count = 3 + random() % 300; count > 0; --count)
                bytes += bytes[bytes.size() - distance];
        }
    }
    bytes.resize(size);
    return bytes;
}

std::string inflate(base::Bytes stream, std::size_t size) {
    auto* decompressor = libdeflate_alloc_decompressor();
    std::string out(size, '\0');
    std::size_t used = 0;
    EXPECT_EQ(libdeflate_deflate_decompress_ex(decompressor, stream.data(), stream.size(),
                                               out.data(), out.size(), &used, nullptr),
              LIBDEFLATE_SUCCESS);
    EXPECT_EQ(used, stream.size());
    libdeflate_free_decompressor(decompressor);
    return out;
}
