#include "sign/signature/CodeDirectory.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "base/Number.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <limits>
#include <utility>

namespace sign {
namespace {

constexpr std::uint32_t withScatter = 0x20100;
constexpr std::uint32_t withTeam = 0x20200;
constexpr std::uint32_t withLimit64 = 0x20300;
constexpr std::uint32_t withExecSegment = 0x20400;
constexpr std::uint32_t withRuntime = 0x20500;
constexpr std::uint32_t oldestVersion = 0x20001;
constexpr std::uint32_t newestVersion = 0x2F000;
constexpr std::uint64_t mostLimit32 = std::numeric_limits<std::uint32_t>::max();
/// Kernels know 12 and 14; a page is hashed in one piece, so it must fit into memory.
constexpr unsigned mostPageShift = 20;

std::size_t fixedSize(std::uint32_t version) {
    if (version >= withRuntime)
        return 96;
    if (version >= withExecSegment)
        return 88;
    if (version >= withLimit64)
        return 64;
    if (version >= withTeam)
        return 52;
    return version >= withScatter ? 48 : 44;
}

struct FlagName {
    std::uint32_t flag;
    std::string_view name;
};

constexpr std::array flags{
    FlagName{0x1, "host"},           FlagName{0x2, "adhoc"},
    FlagName{0x100, "hard"},         FlagName{0x200, "kill"},
    FlagName{0x400, "expires"},      FlagName{0x800, "restrict"},
    FlagName{0x1000, "enforcement"}, FlagName{0x2000, "library-validation"},
    FlagName{0x10000, "runtime"},    FlagName{0x20000, "linker-signed"},
};

base::Error damaged(std::string_view name, const char* what) {
    return {base::ErrorKind::Damaged, "The code directory of " + std::string(name) +
                                          " is damaged: " + what + ". Sign it anew."};
}

/// The text at `offset`; absent if it does not end inside.
std::optional<std::string> textAt(base::Bytes blob, std::size_t offset, std::size_t least) {
    if (offset < least || offset >= blob.size())
        return std::nullopt;
    const std::string_view rest = base::textOf(blob.subspan(offset));
    const std::size_t end = rest.find('\0');
    if (end == std::string_view::npos)
        return std::nullopt;
    return std::string(rest.substr(0, end));
}

/// What stands in front of the texts and hashes.
struct Head {
    DirectoryFacts facts{}; ///< but for the texts
    std::size_t hashSize = 0;
    std::size_t hashOffset = 0;
    std::size_t identifierAt = 0;
    std::size_t teamAt = 0; ///< 0 if there is none
    std::uint32_t codeCount = 0;
    std::uint32_t scatter = 0;
    bool isWhole = true;
};

Head headOf(base::Bytes blob) {
    base::ByteReader reader(blob);
    (void)reader.take(8);
    Head head;
    DirectoryFacts& facts = head.facts;
    facts.version = reader.takeBig<std::uint32_t>();
    facts.flags = reader.takeBig<std::uint32_t>();
    head.hashOffset = reader.takeBig<std::uint32_t>();
    head.identifierAt = reader.takeBig<std::uint32_t>();
    facts.specialCount = reader.takeBig<std::uint32_t>();
    head.codeCount = reader.takeBig<std::uint32_t>();
    facts.codeLimit = reader.takeBig<std::uint32_t>();
    head.hashSize = reader.takeBig<std::uint8_t>();
    facts.hashType = HashType(reader.takeBig<std::uint8_t>());
    facts.platform = reader.takeBig<std::uint8_t>();
    facts.pageShift = reader.takeBig<std::uint8_t>();
    (void)reader.take(4);
    if (facts.version >= withScatter)
        head.scatter = reader.takeBig<std::uint32_t>();
    if (facts.version >= withTeam)
        head.teamAt = reader.takeBig<std::uint32_t>();
    if (facts.version >= withLimit64) {
        (void)reader.take(4);
        if (const auto limit64 = reader.takeBig<std::uint64_t>())
            facts.codeLimit = limit64;
    }
    if (facts.version >= withExecSegment)
        for (std::uint64_t* number : {&facts.execBase, &facts.execLimit, &facts.execFlags})
            *number = reader.takeBig<std::uint64_t>();
    if (facts.version >= withRuntime)
        facts.runtime = reader.takeBig<std::uint32_t>();
    head.isWhole = !reader.failed() && blob.size() >= fixedSize(facts.version);
    return head;
}

/// What is wrong with it in a blob of that size; null if nothing is.
const char* faultOf(const Head& head, std::size_t size) {
    const DirectoryFacts& facts = head.facts;
    if (facts.version < oldestVersion || facts.version > newestVersion)
        return "its version is unknown";
    if (head.hashSize == 0 || head.hashSize != digestSize(facts.hashType))
        return "its hash is unknown";
    if (facts.pageShift > mostPageShift)
        return "its pages are too large";
    if (!head.isWhole)
        return "it is too short";
    if (head.scatter != 0)
        return "it has a scatter vector, which nobody writes";
    const std::size_t least = fixedSize(facts.version);
    if (head.hashOffset < least ||
        head.hashOffset - least < std::uint64_t{facts.specialCount} * head.hashSize ||
        head.hashOffset + std::uint64_t{head.codeCount} * head.hashSize > size)
        return "its hashes lie outside";
    if (head.codeCount != facts.codeCount())
        return "the number of its hashes is wrong";
    return nullptr;
}

/// As long as that of the newest version; the fields that an older one has are the same.
base::ByteBuffer bytesOf(const Head& head, std::size_t size) {
    const DirectoryFacts& facts = head.facts;
    const bool isLarge = facts.codeLimit > mostLimit32;
    base::ByteBuffer to;
    const auto words = [&to](std::initializer_list<std::uint64_t> values) {
        for (const std::uint64_t value : values)
            base::appendBig(to, static_cast<std::uint32_t>(value));
    };
    words({std::uint32_t(BlobMagic::CodeDirectory), size, facts.version, facts.flags,
           head.hashOffset, head.identifierAt, facts.specialCount, head.codeCount,
           isLarge ? mostLimit32 : facts.codeLimit});
    for (const std::uint8_t byte : {std::uint8_t(head.hashSize), std::uint8_t(facts.hashType),
                                    facts.platform, facts.pageShift})
        base::appendBig(to, byte);
    words({0, head.scatter, head.teamAt, 0});
    for (const std::uint64_t number :
         {isLarge ? facts.codeLimit : 0, facts.execBase, facts.execLimit, facts.execFlags})
        base::appendBig(to, number);
    words({facts.runtime, 0});
    return to;
}

} // namespace

std::string flagNames(std::uint32_t set) {
    std::string names;
    for (const FlagName& one : flags)
        if ((set & one.flag) != 0)
            names.append(names.empty() ? "" : ",").append(one.name);
    return names.empty() ? "none" : names;
}

bool areSettable(std::int64_t wanted) {
    std::int64_t all = 0;
    for (const FlagName& one : flags)
        if (one.flag != flag::adhoc && one.flag != flag::linkerSigned)
            all |= one.flag;
    return (wanted & ~all) == 0;
}

base::Result<std::uint32_t> flagsOfNames(std::string_view names) {
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    if (const auto value = names.starts_with("0x")
                               ? base::numberIn<std::uint32_t>(names.substr(2), 0, most, 16)
                               : base::numberIn<std::uint32_t>(names, 0, most)) {
        if (areSettable(*value))
            return *value;
        return base::Error{base::ErrorKind::Usage,
                           "The number " + std::string(names) +
                               " has flags that no signer sets. Give names such as runtime, kill "
                               "or library."};
    }
    std::uint32_t set = 0;
    while (!names.empty()) {
        const std::string_view name = names.substr(0, names.find(','));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        const auto* found = std::ranges::find_if(flags, [name](const FlagName& one) {
            return one.name == name || (name == "library" && one.flag == flag::libraryValidation);
        });
        if (found == flags.end() || !areSettable(found->flag))
            return base::Error{base::ErrorKind::Usage,
                               "There is no option flag \"" + std::string(name) +
                                   "\". Give names such as runtime, kill or library."};
        set |= found->flag;
    }
    return set;
}

std::uint64_t DirectoryFacts::codeCount() const {
    if (pageShift == 0)
        return codeLimit > 0 ? 1 : 0;
    return codeLimit / pageSize() + (codeLimit % pageSize() != 0 ? 1 : 0);
}

std::uint32_t leastVersion(const DirectoryFacts& facts) {
    if (facts.runtime != 0)
        return withRuntime;
    if (facts.execLimit > 0)
        return withExecSegment;
    if (facts.codeLimit > mostLimit32)
        return withLimit64;
    return facts.team.empty() ? withScatter : withTeam;
}

CodeDirectory CodeDirectory::make(const DirectoryFacts& facts) {
    Head head{.facts = facts,
              .hashSize = digestSize(facts.hashType),
              .identifierAt = fixedSize(facts.version),
              .codeCount = static_cast<std::uint32_t>(facts.codeCount())};
    std::size_t end = head.identifierAt + facts.identifier.size() + 1;
    if (!facts.team.empty())
        head.teamAt = std::exchange(end, end + facts.team.size() + 1);
    head.hashOffset = end + facts.specialCount * head.hashSize;
    const std::size_t size = head.hashOffset + facts.codeCount() * head.hashSize;

    CodeDirectory directory;
    directory.facts_ = facts;
    directory.hashSize_ = head.hashSize;
    directory.hashOffset_ = head.hashOffset;
    const base::ByteBuffer bytes = bytesOf(head, size);
    directory.blob_.assign(bytes.bytes().begin(), bytes.bytes().end());
    directory.blob_.resize(head.identifierAt);
    directory.blob_.resize(size);
    std::ranges::copy(facts.identifier, &directory.blob_[head.identifierAt]);
    if (!facts.team.empty())
        std::ranges::copy(facts.team, &directory.blob_[head.teamAt]);
    return directory;
}

base::Result<CodeDirectory> CodeDirectory::read(base::OwnedBytes blob, std::string_view name) {
    base::ByteReader start(blob);
    if (start.takeBig<std::uint32_t>() != std::uint32_t(BlobMagic::CodeDirectory) ||
        start.takeBig<std::uint32_t>() != blob.size())
        return damaged(name, "it does not start as it must");
    Head head = headOf(blob);
    if (const char* fault = faultOf(head, blob.size()))
        return damaged(name, fault);
    const std::size_t least = fixedSize(head.facts.version);
    auto identifier = textAt(blob, head.identifierAt, least);
    auto team = head.teamAt == 0 ? std::string() : textAt(blob, head.teamAt, least);
    if (!identifier || !team)
        return damaged(name, "a text of it reaches past its end");
    CodeDirectory directory;
    directory.facts_ = std::move(head.facts);
    directory.facts_.identifier = std::move(*identifier);
    directory.facts_.team = std::move(*team);
    directory.hashSize_ = head.hashSize;
    directory.hashOffset_ = head.hashOffset;
    directory.blob_ = std::move(blob);
    return directory;
}

std::optional<Digest> CodeDirectory::special(std::uint32_t slot) const {
    if (slot == 0 || slot > facts_.specialCount)
        return std::nullopt;
    const base::Bytes hash = base::Bytes(blob_).subspan(hashOffset_ - slot * hashSize_, hashSize_);
    if (std::ranges::all_of(hash, [](std::uint8_t byte) { return byte == 0; }))
        return std::nullopt;
    return Digest(hash);
}

void CodeDirectory::setSpecial(std::uint32_t slot, const Digest& digest) {
    std::ranges::copy(digest.bytes(), &blob_[hashOffset_ - slot * hashSize_]);
}

base::Bytes CodeDirectory::pages() const {
    return base::Bytes(blob_).subspan(hashOffset_, facts_.codeCount() * hashSize_);
}

std::span<std::uint8_t> CodeDirectory::pages() {
    return std::span(blob_).subspan(hashOffset_, facts_.codeCount() * hashSize_);
}

std::size_t reservedDirectorySize(const CodeDirectory& directory) {
    const std::uint32_t version = directory.facts().version;
    return directory.blob().size() + fixedSize(std::max(version, withRuntime)) - fixedSize(version);
}

} // namespace sign
