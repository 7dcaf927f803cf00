#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// The bytes of one execution, taken from the front; past their end all is 0 or empty.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool empty() const { return rest_.empty(); }

    std::string_view bytes(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    std::string_view rest() { return bytes(rest_.size()); }

    std::size_t byte() {
        const std::string_view taken = bytes(1);
        return taken.empty() ? 0 : static_cast<unsigned char>(taken.front());
    }
    /// As long as the byte before it says.
    std::string_view piece() { return bytes(byte()); }

    /// A piece as the name of a file; empty if it cannot be one.
    std::string fileName() {
        std::string name(piece());
        for (char& c : name)
            c = c == '/' || c == '\0' ? '_' : c;
        return name == "." || name == ".." ? std::string() : name;
    }

private:
    std::string_view rest_;
};

/// Ends the program, which is what a fuzzer looks for, if something does not hold.
inline void require(bool holds, std::string_view what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}
