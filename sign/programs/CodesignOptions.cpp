#include "sign/programs/CodesignOptions.h"

#include "base/ByteReader.h"
#include "base/Number.h"
#include "sign/cms/TimeStamp.h"
#include "sign/files/FileTree.h"
#include "sign/signature/CodeDirectory.h"
#include "sign/signature/RequirementText.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include <getopt.h>

namespace sign {

namespace {

enum LongOption : int {
    Verify = 256,
    Deep,
    Prefix,
    RuntimeVersion,
    Entitlements,
    HelperEntitlements,
    Timestamp,
    Preserve,
    PageSize,
    BundleVersion,
    Strict,
    Remove,
    Plan,
    Verbose,
    Json,
    Help,
    Version,
};

const std::array longOptions{
    option{"sign", required_argument, nullptr, 's'},
    option{"verify", no_argument, nullptr, Verify},
    option{"display", no_argument, nullptr, 'd'},
    option{"remove-signature", no_argument, nullptr, Remove},
    option{"plan", no_argument, nullptr, Plan},
    option{"force", no_argument, nullptr, 'f'},
    option{"deep", no_argument, nullptr, Deep},
    option{"identifier", required_argument, nullptr, 'i'},
    option{"prefix", required_argument, nullptr, Prefix},
    option{"options", required_argument, nullptr, 'o'},
    option{"runtime-version", required_argument, nullptr, RuntimeVersion},
    option{"entitlements", required_argument, nullptr, Entitlements},
    option{"helper-entitlements", required_argument, nullptr, HelperEntitlements},
    option{"requirements", required_argument, nullptr, 'r'},
    option{"timestamp", optional_argument, nullptr, Timestamp},
    option{"preserve-metadata", optional_argument, nullptr, Preserve},
    option{"pagesize", required_argument, nullptr, PageSize},
    option{"bundle-version", required_argument, nullptr, BundleVersion},
    option{"strict", optional_argument, nullptr, Strict},
    option{"test-requirement", required_argument, nullptr, 'R'},
    option{"verbose", optional_argument, nullptr, Verbose},
    option{"json", no_argument, nullptr, Json},
    option{"help", no_argument, nullptr, Help},
    option{"version", no_argument, nullptr, Version},
    option{nullptr, 0, nullptr, 0},
};

constexpr const char* appleTimestampServer = "http://timestamp.apple.com/ts01";

base::Error usage(const std::string& sentence) {
    return {base::ErrorKind::Usage, sentence};
}

base::Result<std::uint32_t> versionNumber(std::string_view text) {
    std::uint32_t version = 0;
    unsigned parts = 0;
    for (std::size_t at = 0; at <= text.size(); ++parts) {
        const std::size_t end = std::min(text.find('.', at), text.size());
        const auto number = base::numberIn<std::uint32_t>(text.substr(at, end - at), 0,
                                                          parts == 0 ? 0xFFFFU : 0xFFU);
        if (!number || parts > 2)
            return usage("The runtime version is \"" + std::string(text) +
                         "\". Give it like 13.3.0.");
        version |= *number << (16U - 8U * parts);
        at = end + 1;
    }
    return version;
}

/// The text behind "=", or what a file holds.
base::Result<base::OwnedBytes> textOrFile(const std::string& value) {
    if (value.starts_with("="))
        return base::OwnedBytes(value.begin() + 1, value.end());
    auto bytes = wholeFile(value, Links::Follow);
    if (!bytes)
        return usage(bytes.error().sentence);
    return bytes;
}

class OptionReader {
public:
    base::Result<CodesignOptions> read(int count, char** arguments) {
        int option = 0;
        ::opterr = 0;
        ::optind = 1;
        for (int at = -1; (option = ::getopt_long(count, arguments, ":s:dfi:o:r:R:vh",
                                                  longOptions.data(), &at)) != -1;
             at = -1) {
            const bool isShort = optopt > 0 && optopt < Verify;
            const std::string given =
                isShort ? std::string{'-', static_cast<char>(optopt)} : arguments[optind - 1];
            // A variable that a script has not set.
            if (optarg != nullptr && *optarg == '\0')
                return usage("The value of " +
                             (at < 0 ? std::string{'-', static_cast<char>(option)}
                                     : "--" + std::string(longOptions[std::size_t(at)].name)) +
                             " is empty. Give one, or leave the option out.");
            if (auto applied = apply(option, optarg == nullptr ? "" : optarg, given); !applied)
                return applied.error();
        }
        for (int index = optind; index < count; ++index)
            options_.paths.emplace_back(arguments[index]);
        return finish();
    }

private:
    base::Outcome choose(Operation operation) {
        if (options_.operation != Operation::None && options_.operation != operation)
            return usage("Give one operation only. See kelpmoray-codesign --help.");
        options_.operation = operation;
        return {};
    }

    base::Outcome apply(int option, const std::string& value, const std::string& given) {
        switch (option) {
        case 's':
            options_.identity = value;
            return choose(Operation::Sign);
        case 'd':
            return choose(Operation::Display);
        case Verify:
            return choose(Operation::Verify);
        case Remove:
            return choose(Operation::RemoveSignature);
        case Plan:
            return choose(Operation::Plan);
        case 'h':
        case Help:
            options_.operation = Operation::Help;
            return {};
        case Version:
            options_.operation = Operation::Version;
            return {};
        case ':':
            return usage("The option " + given + " needs a value. See kelpmoray-codesign --help.");
        case '?':
            return usage("There is no option " + given + ". See kelpmoray-codesign --help.");
        default:
            return applySetting(option, value);
        }
    }

    base::Outcome applySetting(int option, const std::string& value) {
        SigningOptions& signing = options_.signing;
        switch (option) {
        case 'f':
            signing.force = true;
            return {};
        case 'v':
            ++options_.verbosity;
            return {};
        case Deep:
            signing.deep = true;
            return {};
        case Strict:
            options_.strict = true;
            return {};
        case Json:
            options_.json = true;
            return {};
        case 'i':
            signing.identifier = value;
            return {};
        case Prefix:
            signing.prefix = value;
            return {};
        case BundleVersion:
            signing.bundleVersion = value;
            return {};
        case Timestamp:
            timestamp_ = value.empty() ? appleTimestampServer : value;
            return {};
        default:
            return applyRead(option, value);
        }
    }

    /// Settings whose value is read here.
    base::Outcome applyRead(int option, const std::string& value) {
        switch (option) {
        case 'o':
            return take(flagsOfNames(value), options_.signing.flags);
        case RuntimeVersion:
            return take(versionNumber(value), options_.signing.runtime);
        case PageSize:
            if (value != "4096" && value != "16384")
                return usage("The page size is \"" + value + "\". Give 4096 or 16384.");
            options_.signing.pageShift = value == "4096" ? 12 : 14;
            return {};
        case Verbose: {
            const auto level = base::numberIn<unsigned>(value.empty() ? "1" : value, 0, 9);
            if (!level)
                return usage("The level is \"" + value + "\". Give a number from 0 to 9.");
            options_.verbosity += *level;
            return {};
        }
        case Entitlements:
            options_.signing.entitlementsFile = value;
            return {};
        case HelperEntitlements:
            options_.signing.helperEntitlementsFile = value;
            return {};
        case 'r':
            requirements_ = value;
            return {};
        case 'R':
            return readTestRequirement(value);
        default:
            return preserve(value);
        }
    }

    template <typename Value>
    static base::Outcome take(base::Result<Value> value, std::optional<Value>& to) {
        if (!value)
            return value.error();
        to = *value;
        return {};
    }

    base::Outcome preserve(std::string_view list) {
        PreservedMetadata& kept = options_.signing.preserve;
        if (list.empty())
            list = "identifier,entitlements,requirements,flags,runtime";
        while (!list.empty()) {
            const std::string_view word = list.substr(0, list.find(','));
            list.remove_prefix(std::min(list.size(), word.size() + 1));
            const std::array words{std::pair{"identifier", &kept.identifier},
                                   std::pair{"entitlements", &kept.entitlements},
                                   std::pair{"requirements", &kept.requirements},
                                   std::pair{"flags", &kept.flags},
                                   std::pair{"runtime", &kept.runtime}};
            const auto* found =
                std::ranges::find_if(words, [word](const auto& one) { return one.first == word; });
            if (found == words.end())
                return usage("--preserve-metadata does not know \"" + std::string(word) +
                             "\". Give identifier, entitlements, requirements, flags or runtime.");
            *found->second = true;
        }
        return {};
    }

    base::Outcome readTestRequirement(const std::string& value) {
        auto bytes = textOrFile(value);
        if (!bytes)
            return bytes.error();
        const bool isBlob = magicOf(*bytes) == std::uint32_t(BlobMagic::OneRequirement);
        auto requirement =
            isBlob ? readRequirement(*bytes) : parsedRequirement(base::textOf(*bytes));
        if (!requirement)
            return usage(requirement.error().sentence);
        options_.requirement = std::move(*requirement);
        return {};
    }

    base::Outcome readRequirements() {
        auto bytes = textOrFile(requirements_);
        if (!bytes)
            return bytes.error();
        const bool isBlob = magicOf(*bytes) == std::uint32_t(BlobMagic::Requirements);
        auto set = isBlob ? readRequirementSet(*bytes) : parsedRequirementSet(base::textOf(*bytes));
        if (!set)
            return usage(set.error().sentence);
        options_.signing.requirements = std::move(*set);
        return {};
    }

    base::Outcome finishSigning() {
        if (!requirements_.empty())
            if (auto done = readRequirements(); !done)
                return done;
        SigningOptions& signing = options_.signing;
        if (!signing.helperEntitlementsFile.empty() && !signing.deep)
            return usage("--helper-entitlements has no effect without --deep. Give both.");
        for (const auto& [file, to] :
             {std::pair{&signing.entitlementsFile, &signing.entitlements},
              std::pair{&signing.helperEntitlementsFile, &signing.helperEntitlements}}) {
            if (file->empty())
                continue;
            auto bytes = wholeFile(*file, Links::Follow);
            if (!bytes)
                return usage(bytes.error().sentence);
            *to = std::move(*bytes);
        }
        if (timestamp_.empty() || timestamp_ == "none")
            return {};
        signing.timestampUrl = timestamp_;
        return checkStampUrl(timestamp_);
    }

    base::Outcome finishDisplay() {
        if (!requirements_.empty() && requirements_ != "-")
            return usage("With --display, -r takes only - for standard output.");
        const std::string& entitlements = options_.signing.entitlementsFile;
        if (!entitlements.empty() && entitlements != ":-" && entitlements != "-")
            return usage("With --display, --entitlements takes only :- for standard output.");
        options_.showRequirements = !requirements_.empty();
        options_.showEntitlements = !entitlements.empty();
        return {};
    }

    base::Result<CodesignOptions> finish() {
        const Operation given = options_.operation;
        if (given == Operation::Help || given == Operation::Version)
            return std::move(options_);
        // Without an operation, -v is one.
        if (given == Operation::None && options_.verbosity > 0) {
            options_.operation = Operation::Verify;
            --options_.verbosity;
        }
        if (options_.operation == Operation::None)
            return usage("Say what to do: --sign, --verify, --display, --remove-signature or "
                         "--plan. See kelpmoray-codesign --help.");
        if (options_.paths.empty())
            return usage("Give a file or a bundle. See kelpmoray-codesign --help.");
        if (options_.json && (options_.operation == Operation::Sign ||
                              options_.operation == Operation::RemoveSignature))
            return usage("--json goes with --verify, --display and --plan only.");
        base::Outcome finished;
        if (options_.operation == Operation::Sign)
            finished = finishSigning();
        else if (options_.operation == Operation::Display)
            finished = finishDisplay();
        if (!finished)
            return finished.error();
        return std::move(options_);
    }

    CodesignOptions options_;
    std::string requirements_;
    std::string timestamp_;
};

} // namespace

base::Result<CodesignOptions> readCodesignOptions(int count, char** arguments) {
    return OptionReader().read(count, arguments);
}

} // namespace sign
