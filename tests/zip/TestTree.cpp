#include "TestTree.h"

#include <array>
#include <cstdio>
#include <fstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

base::Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
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

namespace {

void setTime(const std::string& path, std::time_t seconds) {
    const timespec time{seconds, 0};
    const std::array times{time, time};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0);
}

} // namespace

void writeRandomPackage(const std::string& package, std::mt19937& random) {
    std::vector<std::string> folders{package};
    fs::create_directories(package);
    const std::size_t count = 5 + random() % 60;
    for (std::size_t index = 0; index < count; ++index) {
        const std::string path = folders[random() % folders.size()] + "/" +
                                 static_cast<char>('!' + random() % 14) +
                                 std::to_string(random() % 1000);
        if (fs::exists(fs::symlink_status(path)))
            continue;
        const std::size_t kind = random() % 20;
        if (kind < 3) {
            fs::create_directory(path);
            folders.push_back(path);
        } else if (kind < 5) {
            fs::create_symlink(std::string(1 + random() % 200, 'x'), path);
        } else if (kind < 7) {
            writeFile(path, randomBytes(random, random() % 200000));
        } else {
            writeFile(path, compressibleBytes(random, random() % (1U << random() % 20)));
        }
        if (kind >= 7)
            fs::permissions(path, fs::perms(0400 | (random() & 07377)));
        setTime(path, static_cast<std::time_t>(random()));
    }
}
