#pragma once

#include "base/Result.h"

#include <string>
#include <string_view>

namespace sign {

/// A passphrase or a PIN. Its memory is wiped when it goes.
class Secret {
public:
    Secret() = default;
    explicit Secret(std::string_view text) : text_(text) {}
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret();

    /// 256 random bits, in hexadecimal digits.
    [[nodiscard]] static Secret random();
    /// The first line of a file that only its owner can read; "-" is standard input. Denied if
    /// others can read the file.
    [[nodiscard]] static base::Result<Secret> inFile(const std::string& path);

    [[nodiscard]] const std::string& text() const { return text_; }
    [[nodiscard]] bool empty() const { return text_.empty(); }

private:
    void wipe();

    std::string text_;
};

/// Lets no core file and no other process of the user have what this process keeps in its memory.
/// Call it before a secret is read.
void hideMemory();

} // namespace sign
