#pragma once

#include "base/Result.h"
#include "sign/signature/Blob.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sign {

/// Flags of a code directory (Apple's cs_blobs.h).
namespace flag {
constexpr std::uint32_t host = 0x1;
constexpr std::uint32_t adhoc = 0x2;
constexpr std::uint32_t libraryValidation = 0x2000;
constexpr std::uint32_t runtime = 0x10000;
constexpr std::uint32_t linkerSigned = 0x20000;
} // namespace flag

/// Flags of the executable segment.
namespace execFlag {
constexpr std::uint64_t mainBinary = 0x1;
} // namespace execFlag

/// "runtime,kill" and so on; "none" if no named flag is set.
[[nodiscard]] std::string flagNames(std::uint32_t flags);

/// Whether a signer may ask for all of these flags. That code is ad hoc or signed by its linker is
/// a fact and no wish.
[[nodiscard]] bool areSettable(std::int64_t flags);

/// The flags that a list like "runtime,library" names; also a number. Usage if a name is unknown or
/// a flag not settable.
[[nodiscard]] base::Result<std::uint32_t> flagsOfNames(std::string_view names);

/// What a code directory says, beside its hashes.
struct DirectoryFacts {
    std::uint32_t version = 0; ///< 0x20400 and so on
    std::uint32_t flags = 0;
    HashType hashType = HashType::Sha256;
    std::uint8_t platform = 0;
    std::uint8_t pageShift = 0; ///< the page's size is 2 to that; 0 for one page of any size
    std::string identifier;
    std::string team; ///< empty if there is none
    std::uint64_t codeLimit = 0;
    std::uint64_t execBase = 0;
    std::uint64_t execLimit = 0;
    std::uint64_t execFlags = 0;
    std::uint32_t runtime = 0; ///< version as X<<16|Y<<8|Z
    std::uint32_t specialCount = 0;

    [[nodiscard]] std::uint64_t pageSize() const {
        return pageShift == 0 ? 0 : std::uint64_t{1} << pageShift;
    }
    [[nodiscard]] std::uint64_t codeCount() const;
};

/// The lowest version that holds the facts, as Apple's tool chooses it.
[[nodiscard]] std::uint32_t leastVersion(const DirectoryFacts& facts);

/// A code directory as a blob (version 0x20001 and later), which it owns.
class CodeDirectory {
public:
    /// Checks all offsets, texts and counts. Damaged if they contradict each other. Any thread.
    [[nodiscard]] static base::Result<CodeDirectory> read(base::OwnedBytes blob,
                                                          std::string_view name);

    /// One with all hashes zero, to be filled.
    [[nodiscard]] static CodeDirectory make(const DirectoryFacts& facts);

    [[nodiscard]] const DirectoryFacts& facts() const { return facts_; }
    [[nodiscard]] const base::OwnedBytes& blob() const { return blob_; }
    [[nodiscard]] std::size_t hashSize() const { return hashSize_; }

    /// The hash of a special slot; absent if it is beyond the last or all zeros.
    [[nodiscard]] std::optional<Digest> special(std::uint32_t slot) const;
    void setSpecial(std::uint32_t slot, const Digest& digest);

    /// All hashes of pages, one behind the other.
    [[nodiscard]] base::Bytes pages() const;
    [[nodiscard]] std::span<std::uint8_t> pages();

    [[nodiscard]] Digest digest() const { return digestOf(facts_.hashType, blob_); }
    /// The hash by which the platform knows the code: 20 bytes.
    [[nodiscard]] Digest cdhash() const { return digest().cut(20); }

private:
    CodeDirectory() = default;

    DirectoryFacts facts_;
    base::OwnedBytes blob_;
    std::size_t hashSize_ = 0;
    std::size_t hashOffset_ = 0;
};

/// What the blob would take at version 0x20500: Apple's tool counts so when it makes room.
[[nodiscard]] std::size_t reservedDirectorySize(const CodeDirectory& directory);

} // namespace sign
