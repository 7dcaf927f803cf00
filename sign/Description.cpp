#include "sign/Description.h"

#include "base/Printable.h"
#include "sign/DesignatedCode.h"
#include "sign/SignatureCms.h"
#include "sign/files/FileTree.h"
#include "sign/signature/RequirementText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace sign {
namespace {

std::string hexNumber(std::uint64_t number) {
    std::array<char, 32> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "0x%llx", static_cast<unsigned long long>(number));
    return buffer.data();
}

std::string versionText(std::uint32_t version) {
    return std::to_string(version >> 16U) + '.' + std::to_string(version >> 8U & 0xFFU) + '.' +
           std::to_string(version & 0xFFU);
}

std::string timeText(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (::localtime_r(&time, &local) == nullptr)
        return "unknown";
    constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::array<char, 64> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%s %d, %d at %02d:%02d:%02d",
                  months.at(static_cast<std::size_t>(local.tm_mon)), local.tm_mday,
                  local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
    return buffer.data();
}

class Describer {
public:
    Describer(const StaticCode& code, const SignatureParts& parts, std::size_t index)
        : code_(code), parts_(parts), best_(parts.best()), index_(index) {}

    base::Result<std::string> describe(unsigned level) {
        line("Executable", realPath(code_.file().path()).value_or(code_.file().path()));
        if (level == 0)
            return text_;
        const DirectoryFacts& facts = best_.facts();
        line("Identifier", facts.identifier);
        line("Format", formatOf(code_));
        text_ += "CodeDirectory v=" + hexNumber(facts.version).substr(2) +
                 " size=" + std::to_string(best_.blob().size()) +
                 " flags=" + hexNumber(facts.flags) + '(' + flagNames(facts.flags) +
                 ") hashes=" + std::to_string(facts.codeCount()) + '+' +
                 std::to_string(facts.specialCount) + " location=embedded\n";
        if (level >= 4)
            addVersion();
        if (level >= 3)
            addHashes();
        if (level >= 4)
            addExecSegment();
        if (level >= 3)
            line("CDHash", base::hex(best_.cdhash().bytes()));
        addSigners(level);
        return addSealed();
    }

private:
    void line(const char* key, const std::string& value) {
        text_.append(key).append("=").append(base::printable(value)).append("\n");
    }
    void line(const char* key, std::uint64_t value) { line(key, std::to_string(value)); }

    void addVersion() {
        if (!code_.file().isMachO() || !code_.file().slices()[index_].version)
            return;
        const MachVersion& version = *code_.file().slices()[index_].version;
        line("VersionPlatform", version.platform);
        line("VersionMin", version.minimum);
        line("VersionSDK", version.sdk);
    }

    void addHashes() {
        text_ += "Hash type=" + std::string(digestName(best_.facts().hashType)) +
                 " size=" + std::to_string(best_.hashSize()) + '\n';
        std::vector<const CodeDirectory*> sorted;
        for (const CodeDirectory& directory : parts_.directories)
            sorted.push_back(&directory);
        std::ranges::sort(sorted, {}, [](const auto* one) { return one->facts().hashType; });
        std::string choices;
        for (const CodeDirectory* directory : sorted) {
            const std::string name(digestName(directory->facts().hashType));
            text_ +=
                "CandidateCDHash " + name + '=' + base::hex(directory->cdhash().bytes()) + '\n';
            text_ +=
                "CandidateCDHashFull " + name + '=' + base::hex(directory->digest().bytes()) + '\n';
            choices.append(choices.empty() ? "" : ",").append(name);
        }
        line("Hash choices", choices);
        // The CMS covers the primary directory by SHA-256, whatever that one's own hash is.
        line("CMSDigest",
             base::hex(digestOf(HashType::Sha256, parts_.directories.front().blob()).bytes()));
        line("CMSDigestType", std::uint64_t(HashType::Sha256));
    }

    void addExecSegment() {
        constexpr std::uint32_t withExecSegment = 0x20400;
        const DirectoryFacts& facts = best_.facts();
        if (facts.version >= withExecSegment) {
            line("Executable Segment base", facts.execBase);
            line("Executable Segment limit", facts.execLimit);
            line("Executable Segment flags", hexNumber(facts.execFlags));
        }
        line("Page size", facts.pageSize() == 0 ? "none" : std::to_string(facts.pageSize()));
    }

    void addSigners(unsigned level) {
        if (parts_.cms.empty()) {
            const bool isAdhoc = (best_.facts().flags & flag::adhoc) != 0;
            isAdhoc ? line("Signature", "adhoc") : line("Signature size", 0);
            return;
        }
        line("Signature size", parts_.cms.size());
        const SignerFacts signer = signerFactsOf(parts_.cms);
        if (level >= 2)
            for (const std::string& name : signer.authorities)
                line("Authority", name);
        if (signer.timestamp)
            line("Timestamp", timeText(*signer.timestamp));
        else if (signer.signingTime)
            line("Signed Time", timeText(*signer.signingTime));
    }

    base::Result<std::string> addSealed() {
        if (code_.bundle() && isFile(code_.bundle()->codeRoot + "/CodeResources"))
            line("Notarization Ticket", "stapled");
        auto info = code_.infoPlist(index_);
        if (!info)
            return info.error();
        const bool isBound = *info && best_.special(slot::infoPlist);
        if (isBound) {
            const auto plist = readPropertyList(**info, code_.path());
            const auto* entries = plist ? plist->dictionary() : nullptr;
            text_ +=
                "Info.plist entries=" + std::to_string(entries == nullptr ? 0 : entries->size()) +
                '\n';
        } else {
            line("Info.plist", "not bound");
        }
        const DirectoryFacts& facts = best_.facts();
        line("TeamIdentifier", facts.team.empty() ? "not set" : facts.team);
        if (facts.runtime != 0)
            line("Runtime Version", versionText(facts.runtime));
        auto seal = code_.seal();
        if (!seal)
            return seal.error();
        const auto sealed = *seal ? sealFacts(**seal, code_.path()) : base::Result(SealFacts());
        if (!*seal || !sealed)
            line("Sealed Resources", "none");
        else
            text_ += "Sealed Resources version=" + std::to_string(sealed->version) +
                     " rules=" + std::to_string(sealed->rules) +
                     " files=" + std::to_string(sealed->files) + '\n';
        const base::OwnedBytes* requirements = parts_.component(slot::requirements);
        const auto set = requirements ? readRequirementSet(*requirements)
                                      : base::Result<RequirementSet>(RequirementSet());
        if (requirements == nullptr)
            line("Internal requirements", "none");
        else
            text_ += "Internal requirements count=" + std::to_string(set ? set->size() : 0) +
                     " size=" + std::to_string(requirements->size()) + '\n';
        return text_;
    }

    const StaticCode& code_;
    const SignatureParts& parts_;
    const CodeDirectory& best_;
    std::size_t index_;
    std::string text_;
};

std::size_t nativeOf(const StaticCode& code) {
    return code.file().isMachO() ? code.file().nativeSlice() : 0;
}

} // namespace

std::string formatOf(const StaticCode& code) {
    std::string file = "generic";
    if (code.file().isMachO()) {
        std::vector<const MachSlice*> slices;
        for (const MachSlice& slice : code.file().slices())
            slices.push_back(&slice);
        std::ranges::stable_sort(slices, {}, [](const MachSlice* slice) { return slice->cpuType; });
        file = code.file().isUniversal() ? "Mach-O universal (" : "Mach-O thin (";
        for (const MachSlice* slice : slices)
            file.append(slice == slices.front() ? "" : " ").append(slice->architecture());
        file += ')';
    }
    if (!code.bundle())
        return file;
    if (!code.bundle()->hasExecutable)
        return "bundle";
    return (code.bundle()->isApplication() ? "app bundle with " : "bundle with ") + file;
}

base::Result<std::string> describe(const StaticCode& code, unsigned level) {
    const std::size_t native = nativeOf(code);
    const auto parts = code.signature(native);
    if (!parts)
        return parts.error();
    return Describer(code, *parts, native).describe(level);
}

base::Result<std::string> requirementsOf(const StaticCode& code) {
    const auto parts = code.signature(nativeOf(code));
    if (!parts)
        return parts.error();
    RequirementSet set;
    if (const base::OwnedBytes* blob = parts->component(slot::requirements)) {
        auto read = readRequirementSet(*blob);
        if (!read)
            return read.error();
        set = std::move(*read);
    }
    std::string text;
    for (const auto& [kind, requirement] : set)
        text +=
            std::string(requirementKindName(kind)) + " => " + requirementText(requirement) + '\n';
    if (set.contains(RequirementKind::Designated))
        return text;
    const auto implied = designatedRequirement(code);
    if (!implied)
        return implied.error();
    return text + "# designated => " + requirementText(*implied) + '\n';
}

base::Result<base::OwnedBytes> entitlementsOf(const StaticCode& code) {
    const auto parts = code.signature(nativeOf(code));
    if (!parts)
        return parts.error();
    const base::OwnedBytes* blob = parts->component(slot::entitlements);
    if (blob == nullptr)
        return base::OwnedBytes();
    const base::Bytes xml = contentOf(*blob);
    return base::OwnedBytes(xml.begin(), xml.end());
}

} // namespace sign
