#include "sign/SigningPlan.h"

#include "base/ByteReader.h"
#include "base/Printable.h"
#include "sign/SignatureCms.h"
#include "sign/signature/DesignatedRequirement.h"

#include <algorithm>

namespace sign {
namespace {

constexpr std::uint32_t processorArm64 = 0x100000C;
constexpr std::uint32_t processorArm64With32 = 0x200000C;
constexpr std::uint32_t processorI386 = 7;
constexpr std::uint32_t firstMacosWithSha256 = 10U << 16U | 11U << 8U | 4U;
constexpr std::uint32_t firstIosWithSha256 = 11U << 16U;
constexpr std::uint32_t firstWatchosWithSha256 = 12U << 16U;

/// Systems before these know only SHA-1.
bool needsSha1(const MachSlice& slice) {
    if (!slice.version)
        return false;
    switch (slice.version->platform) {
    case platform::macos:
        return slice.version->minimum < firstMacosWithSha256;
    case platform::ios:
    case platform::tvos:
        return slice.version->minimum < firstIosWithSha256;
    case platform::watchos:
        return slice.version->minimum < firstWatchosWithSha256;
    default:
        return false;
    }
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// What tells two files of one name apart: the linker's UUID, else a hash of header and commands.
std::string uniqueSuffix(const CodeFile& file) {
    const MachSlice& slice = file.slices()[file.nativeSlice()];
    if (slice.uuid)
        return "-" + base::hex(base::bytesOf("UUID")) + base::hex(*slice.uuid);
    constexpr std::size_t smallHeader = 28;
    Hasher hasher(HashType::Sha1);
    hasher.update(base::Bytes(slice.commands).first(smallHeader));
    hasher.update(base::Bytes(slice.commands).subspan(slice.headerSize()));
    return "-" + base::hex(hasher.finish().bytes());
}

bool isArm64(const MachSlice& slice) {
    return slice.cpuType == processorArm64 || slice.cpuType == processorArm64With32;
}

/// Whether a kernel runs the slice: it takes pages of 4 KiB, or of its own size.
bool takesPages(const MachSlice& slice, std::uint8_t shift) {
    return shift == 12 || (shift == 14 && isArm64(slice));
}

/// Flags as an Info.plist has them: as a number or as names. Absent if they are no such.
std::optional<std::uint32_t> flagsIn(const PropertyValue& value) {
    if (const std::int64_t* number = value.integer(); number != nullptr && areSettable(*number))
        return static_cast<std::uint32_t>(*number);
    if (const std::string* names = value.string())
        if (const auto flags = flagsOfNames(*names))
            return *flags;
    return std::nullopt;
}

class Planner {
public:
    Planner(const StaticCode& code, const SigningOptions& options, bool isOperand)
        : code_(code), options_(options), isOperand_(isOperand) {}

    base::Result<SigningPlan> plan() {
        if (auto pages = checkPages(); !pages)
            return pages.error();
        if (auto old = readOld(); !old)
            return old.error();
        for (const auto step :
             {&Planner::choosePlist, &Planner::chooseIdentifier, &Planner::chooseFlags,
              &Planner::chooseEntitlements, &Planner::chooseRequirements})
            if (auto done = (this->*step)(); !done)
                return done.error();
        plan_.withSha1 = std::ranges::any_of(code_.file().slices(), needsSha1);
        return std::move(plan_);
    }

private:
    [[nodiscard]] std::size_t native() const {
        return code_.file().isMachO() ? code_.file().nativeSlice() : 0;
    }

    base::Outcome checkPages() const {
        for (const MachSlice& slice : code_.file().slices())
            if (!takesPages(slice, options_.pageShift.value_or(12)))
                return base::Error{base::ErrorKind::Usage,
                                   "Cannot sign " + code_.path() +
                                       " with pages of 16384 bytes: it has code for " +
                                       slice.architecture() +
                                       ", which runs with pages of 4096 bytes only. Leave "
                                       "--pagesize out."};
        return {};
    }

    base::Outcome readOld() {
        plan_.oldPageShifts.resize(code_.signatureCount());
        for (std::size_t index = 0; index < code_.signatureCount(); ++index) {
            auto signature = code_.signature(index);
            const bool isDamaged =
                !signature && signature.error().kind != base::ErrorKind::NotFound;
            if (!isDamaged && (!signature || signature->isLinkerSigned()))
                continue;
            plan_.replaces = true;
            if (!options_.force)
                return base::Error{base::ErrorKind::Conflict, code_.path() + ": is already signed"};
            if (signature && code_.file().isMachO() &&
                takesPages(code_.file().slices()[index], signature->best().facts().pageShift))
                plan_.oldPageShifts[index] = signature->best().facts().pageShift;
            if (signature && (!old_ || index == native()))
                old_ = std::move(*signature);
        }
        return {};
    }

    base::Outcome choosePlist() {
        if (code_.bundle()) {
            if (!code_.bundle()->infoProblem.empty())
                return base::Error{base::ErrorKind::Damaged, code_.bundle()->infoProblem};
            plist_ = code_.bundle()->info;
        }
        if (code_.bundle() && !code_.bundle()->infoPlist.empty())
            return {};
        const auto bytes = code_.infoPlist(native());
        if (!bytes)
            return bytes.error();
        if (!*bytes)
            return {};
        auto read = readPropertyList(**bytes, code_.path());
        if (!read)
            return read.error();
        plist_ = std::move(*read);
        return {};
    }

    base::Outcome chooseIdentifier() {
        if (isOperand_ && !options_.identifier.empty()) {
            plan_.identifier = options_.identifier;
            return {};
        }
        if (old_ && options_.preserve.identifier && !old_->best().facts().identifier.empty()) {
            plan_.identifier = old_->best().facts().identifier;
            return {};
        }
        bool isOfPlist = true;
        if (const auto* name = plist_.findString("CFBundleIdentifier"); name && !name->empty())
            plan_.identifier = *name;
        else if (name = plist_.findString("CFBundleName"); name && !name->empty())
            plan_.identifier = *name;
        else {
            plan_.identifier = identifierOfFile(code_.file().path());
            isOfPlist = false;
        }
        const auto hasDot = [this] { return plan_.identifier.find('.') != std::string::npos; };
        if (!hasDot())
            plan_.identifier.insert(0, options_.prefix);
        if (!hasDot() && !isOfPlist && !options_.identity && code_.file().isMachO())
            plan_.identifier += uniqueSuffix(code_.file());
        if (plan_.identifier.empty())
            return base::Error{base::ErrorKind::Usage,
                               "The name of " + code_.path() +
                                   " leaves nothing for an identifier. Give one with "
                                   "--identifier, or rename the file."};
        if (plan_.identifier.find('\0') != std::string::npos)
            return base::Error{base::ErrorKind::Usage, "The identifier of " + code_.path() +
                                                           " has a zero byte. Correct its "
                                                           "Info.plist."};
        return {};
    }

    [[nodiscard]] std::string nameOfPlist() const {
        const bool isFile = code_.bundle() && !code_.bundle()->infoPlist.empty();
        return isFile ? "\"" + base::printable(code_.bundle()->infoPlist) + "\""
                      : "the Info.plist inside \"" + base::printable(code_.path()) + "\"";
    }

    base::Outcome chooseFlags() {
        if (options_.flags) {
            plan_.flags = *options_.flags;
        } else if (const auto* named = plist_.find("CSFlags")) {
            const auto flags = flagsIn(*named);
            if (!flags)
                return base::Error{base::ErrorKind::Damaged,
                                   "CSFlags in " + nameOfPlist() +
                                       " has a flag that is not known or that no signer sets. "
                                       "Correct CSFlags, or give the flags with --options."};
            plan_.flags = *flags;
        } else if (old_ && options_.preserve.flags) {
            plan_.flags = old_->best().facts().flags;
        }
        if (old_ && options_.preserve.runtime && old_->best().facts().runtime != 0) {
            plan_.flags |= flag::runtime;
            plan_.runtime = old_->best().facts().runtime;
        }
        if (options_.runtime)
            plan_.runtime = options_.runtime;
        plan_.flags &= ~(flag::adhoc | flag::linkerSigned);
        if (!options_.identity)
            plan_.flags |= flag::adhoc;
        const bool isOld32 = std::ranges::any_of(code_.file().slices(), [](const MachSlice& slice) {
            return slice.cpuType == processorI386;
        });
        constexpr std::uint32_t clash = flag::runtime | flag::libraryValidation;
        if (isOld32 && (plan_.flags & clash) == clash)
            return base::Error{base::ErrorKind::Usage,
                               "Cannot sign " + code_.path() +
                                   " with the flags runtime and library: it has code for i386. "
                                   "Leave one of them out."};
        return {};
    }

    /// Nested code has a purpose of its own, so the entitlements of what holds it are not its own.
    [[nodiscard]] const std::optional<base::OwnedBytes>& givenEntitlements() const {
        static const std::optional<base::OwnedBytes> none;
        if (isOperand_)
            return options_.entitlements;
        const bool isHelper =
            code_.bundle() && code_.bundle()->hasExecutable && code_.bundle()->isApplication();
        return isHelper ? options_.helperEntitlements : none;
    }

    base::Outcome chooseEntitlements() {
        const std::optional<base::OwnedBytes>& given = givenEntitlements();
        const base::OwnedBytes* kept =
            old_ && options_.preserve.entitlements ? old_->component(slot::entitlements) : nullptr;
        if (!given && kept == nullptr)
            return {};
        const std::string& file =
            isOperand_ ? options_.entitlementsFile : options_.helperEntitlementsFile;
        auto read =
            given ? entitlementsFromXml(*given, file) : entitlementsFromBlob(*kept, code_.path());
        if (!read)
            return read.error();
        plan_.entitlements = std::move(*read);
        return {};
    }

    base::Outcome chooseRequirements() {
        RequirementSet set;
        if (isOperand_ && options_.requirements) {
            set = *options_.requirements;
        } else if (const base::OwnedBytes* kept = old_ && options_.preserve.requirements
                                                      ? old_->component(slot::requirements)
                                                      : nullptr) {
            auto read = readRequirementSet(*kept);
            if (!read)
                return base::Error{base::ErrorKind::Damaged,
                                   "The requirements in the old signature of \"" +
                                       base::printable(code_.path()) +
                                       "\" are malformed. Leave requirements out of "
                                       "--preserve-metadata."};
            set = std::move(*read);
        }
        if (options_.identity) {
            const std::vector<CertificateFacts> chain = signingChain(*options_.identity);
            plan_.team = teamOf(chain).value_or("");
            if (!set.contains(RequirementKind::Designated))
                set.emplace(RequirementKind::Designated,
                            defaultDesignatedRequirement(plan_.identifier, chain));
        }
        plan_.requirements = requirementSetBlob(set);
        return {};
    }

    const StaticCode& code_;
    const SigningOptions& options_;
    bool isOperand_;
    SigningPlan plan_;
    PropertyValue plist_;
    std::optional<SignatureParts> old_;
};

} // namespace

std::string identifierOfFile(std::string_view path) {
    std::string_view name = path.substr(path.rfind('/') + 1);
    if (const std::size_t dot = name.rfind('.');
        dot != std::string_view::npos && (dot + 1 >= name.size() || !isDigit(name[dot + 1])))
        name = name.substr(0, dot);
    // Of a version behind the name only the first number tells one library from another.
    const std::size_t last = name.find_last_not_of(".0123456789");
    const std::size_t from = last == std::string_view::npos ? 1 : last + 2;
    if (const std::size_t dot = name.find('.', from); dot != std::string_view::npos)
        name = name.substr(0, dot);
    return std::string(name);
}

std::uint8_t pageShiftOf(const MachSlice& slice) {
    const bool isTv = slice.version && slice.version->platform == platform::tvos;
    return isArm64(slice) && !isTv ? 14 : 12;
}

base::Result<SigningPlan> planSigning(const StaticCode& code, const SigningOptions& options,
                                      bool isOperand) {
    return Planner(code, options, isOperand).plan();
}

} // namespace sign
