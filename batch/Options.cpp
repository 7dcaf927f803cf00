#include "batch/Options.h"

#include "base/Number.h"

#include <algorithm>
#include <numeric>

#include <strings.h>

namespace {

constexpr int mostJobs = 1024;

/// An option has either a flag or a value.
struct Option {
    std::string_view name;
    std::string_view shortName;
    std::string_view valueName;
    std::string_view help; ///< one line or more
    bool Options::*flag = nullptr;
    std::optional<std::string> Options::*value = nullptr;
};

const Option options[] = {
    {"--process-all", "", "", "process everything without asking", &Options::processAll},
    {"--identity", "", "IDENTITY",
     "sign as IDENTITY: a line of --list-identities, the hash in it, the\n"
     "holder, or any part of the name that fits one only",
     nullptr, &Options::identity},
    {"--do-not-codesign", "", "", "pack without signing", &Options::doNotCodesign},
    {"--require-signature", "", "", "a package that cannot be signed is not packed, and fails",
     &Options::requireSignature},
    {"--entitlements", "", "FILE", "of each application, in place of Name.entitlements beside it",
     nullptr, &Options::entitlements},
    {"--timestamp", "", "URL", "the time stamp server, or none; Apple's if not given", nullptr,
     &Options::timestamp},
    {"--level", "", "N", "compress from 1 (quick) to 9 (small), 5 if not given", nullptr,
     &Options::level},
    {"--reproducible", "", "",
     "the same package gives the same archive: every time in it is\n"
     "SOURCE_DATE_EPOCH, or 1980-01-01 if that is not set",
     &Options::reproducible},
    {"--jobs", "-j", "N", "work on N packages at once, as many as pay off if not given", nullptr,
     &Options::jobs},
    {"--list-identities", "", "", "print the signing identities, and end",
     &Options::listIdentities},
    {"--list-packages", "", "", "print the packages that would be processed, and end",
     &Options::listPackages},
    {"--null", "-0", "", "with --list-packages: end each with a zero byte, not a line break",
     &Options::nullSeparated},
    {"--json", "", "", "print one object a line: each package as it ends, then a summary",
     &Options::json},
    {"--quiet", "-q", "", "print what failed, and nothing else", &Options::quiet},
    {"--verbose", "", "", "log on standard error too", &Options::verbose},
    {"--help", "-h", "", "print this, and end", &Options::help},
    {"--version", "", "", "print the version, and end", &Options::version},
};

base::Error usageError(std::string sentence) {
    return {base::ErrorKind::Usage, std::move(sentence) + " See --help."};
}

const Option* optionNamed(std::string_view name) {
    const auto* found = std::ranges::find_if(options, [name](const Option& option) {
        return name == option.name || (!option.shortName.empty() && name == option.shortName);
    });
    return found == std::end(options) ? nullptr : found;
}

base::Error unknownOption(const std::string& given) {
    std::vector<std::string_view> names;
    for (const Option& option : options)
        names.push_back(option.name);
    const std::string_view meant = nearest(given.substr(0, given.find('=')), names);
    if (meant.empty())
        return usageError("There is no option " + given + ".");
    return usageError("There is no option " + given + ". Did you mean " + std::string(meant) + "?");
}

/// Why these options cannot be together; success if they can.
base::Outcome checkCombination(const Options& given) {
    for (const Option& option : options) {
        if (option.value != nullptr && given.*(option.value) && (given.*(option.value))->empty())
            return usageError(std::string(option.name) + " needs " + std::string(option.valueName) +
                              " behind it, not an empty text.");
    }
    if (given.identity && given.doNotCodesign)
        return usageError("--identity and --do-not-codesign exclude each other.");
    if (given.requireSignature && !given.identity)
        return usageError("--require-signature needs an --identity to sign with.");
    if (given.level && !base::numberIn<int>(*given.level, 1, 9))
        return usageError("The level is \"" + *given.level + "\". Give a number from 1 to 9.");
    if (given.jobs && !base::numberIn<int>(*given.jobs, 1, mostJobs))
        return usageError("The number of jobs is \"" + *given.jobs +
                          "\". Give a number from 1 to " + std::to_string(mostJobs) + ".");
    // A scheme may be written in capitals too.
    if (given.timestamp && *given.timestamp != "none" &&
        ::strncasecmp(given.timestamp->c_str(), "http://", 7) != 0)
        return usageError("The time stamp server is \"" + *given.timestamp +
                          "\". Give an address that begins with http://, or none.");
    if (given.nullSeparated && !given.listPackages)
        return usageError("--null goes with --list-packages only.");
    if (given.json && given.quiet)
        return usageError("--json and --quiet exclude each other.");
    return {};
}

} // namespace

std::string_view nearest(std::string_view given, const std::vector<std::string_view>& known) {
    // Levenshtein's distance; a third of the letters may be wrong.
    std::string_view best;
    std::size_t least = given.size() / 3 + 1;
    for (const std::string_view candidate : known) {
        std::vector<std::size_t> row(candidate.size() + 1);
        std::iota(row.begin(), row.end(), 0U);
        for (std::size_t i = 0; i < given.size(); ++i) {
            std::size_t diagonal = std::exchange(row[0], i + 1);
            for (std::size_t j = 0; j < candidate.size(); ++j) {
                const std::size_t replaced = diagonal + (given[i] == candidate[j] ? 0 : 1);
                diagonal = row[j + 1];
                row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
            }
        }
        if (row.back() < least) {
            least = row.back();
            best = candidate;
        }
    }
    return best;
}

unsigned Options::jobCount() const {
    return jobs ? base::numberIn<unsigned>(*jobs, 1, mostJobs).value_or(0) : 0;
}

base::Result<Options> parseOptions(const std::vector<std::string>& arguments) {
    Options parsed;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (optionsEnded || argument.size() < 2 || argument.front() != '-') {
            parsed.paths.push_back(argument);
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
            continue;
        }
        const bool isLong = argument.starts_with("--");
        const std::string name = argument.substr(0, isLong ? argument.find('=') : 2);
        const bool isJoined = name.size() < argument.size(); // --jobs=3, -j3
        const Option* option = optionNamed(name);
        if (option == nullptr)
            return unknownOption(argument);
        if (option->flag != nullptr && isJoined)
            return usageError(std::string(option->name) + " takes no value.");
        if (option->flag != nullptr)
            parsed.*(option->flag) = true;
        else if (isJoined)
            parsed.*(option->value) = argument.substr(name.size() + (isLong ? 1 : 0));
        else if (i + 1 < arguments.size())
            parsed.*(option->value) = arguments[++i];
        else
            return usageError(argument + " needs " + std::string(option->valueName) +
                              " behind it.");
    }
    if (const auto checked = checkCombination(parsed); !checked)
        return checked.error();
    return parsed;
}

std::string helpText() {
    std::string text =
        R"help(usage: kelpmoray-batch [OPTION...] PATH...

Signs and packs application packages. Each PATH is a package (Name.app) or a folder that holds
packages; Name.zip is written beside each. The program asks about every folder first: Process, Skip or
Stop, and whether to codesign. Return and the end of input mean Stop.

)help";
    constexpr std::size_t column = 27;
    for (const Option& option : options) {
        std::string line =
            option.shortName.empty() ? "  " : "  " + std::string(option.shortName) + ", ";
        line.append(option.name);
        if (option.value != nullptr)
            line.append(" ").append(option.valueName);
        line.append(line.size() < column - 1 ? column - line.size() : 2, ' ');
        for (const char c : option.help) {
            line += c;
            if (c == '\n')
                line.append(column, ' ');
        }
        text += line + '\n';
    }
    return text + R"help(
Without --identity and --do-not-codesign packages are packed as they are, as with "Do NOT Codesign" in
the window.

To read the log, with what each script said: journalctl SYSLOG_IDENTIFIER=kelpmoray-batch

Exit status: 0 all done, 1 some package or PATH failed, 2 wrong usage or nothing to do, 3 stopped.
)help";
}
