#include "batch/Options.h"

#include <map>

namespace {

base::Error usageError(std::string sentence) {
    return {base::ErrorKind::Usage, std::move(sentence)};
}

} // namespace

base::Result<Options> parseOptions(const std::vector<std::string>& arguments) {
    const std::map<std::string, bool Options::*> flags = {
        {"--process-all", &Options::processAll},
        {"--do-not-codesign", &Options::doNotCodesign},
        {"--list-identities", &Options::listIdentities},
        {"--verbose", &Options::verbose},
        {"--help", &Options::help},
        {"--version", &Options::version}};
    Options options;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (optionsEnded || !argument.starts_with('-')) {
            options.paths.push_back(argument);
        } else if (argument == "--") {
            optionsEnded = true;
        } else if (const auto flag = flags.find(argument); flag != flags.end()) {
            options.*(flag->second) = true;
        } else if (argument.starts_with("--identity=")) {
            options.identity = argument.substr(argument.find('=') + 1);
        } else if (argument == "--identity" && i + 1 < arguments.size()) {
            options.identity = arguments[++i];
        } else if (argument == "--identity") {
            return usageError("--identity needs the holder of an identity behind it. See --help.");
        } else {
            return usageError("There is no option " + argument + ". See --help.");
        }
    }
    if (options.identity && options.doNotCodesign)
        return usageError("--identity and --do-not-codesign exclude each other. See --help.");
    if (options.identity && options.identity->empty())
        return usageError(
            "--identity needs the holder of an identity, not an empty text. See --help.");
    return options;
}

const char* helpText() {
    return R"help(usage: kelpmoray-batch [OPTION...] PATH...

Signs and packs application packages. Each PATH is a package (Name.app) or a folder that holds
packages; Name.zip is written beside each. The program asks about every folder first: Process, Skip or
Stop, and whether to codesign. Return and the end of input mean Stop.

  --process-all        process everything without asking
  --do-not-codesign    pack without signing
  --identity HOLDER    sign as HOLDER, such as "Jane Doe (TEAMID)"
  --list-identities    print the signing identities, and end
  --verbose            log on standard error too
  --help, --version    print this, or the version, and end

Without --identity and --do-not-codesign packages are packed as they are, as with "Do NOT Codesign" in
the window.

To read the log, with what each script said: journalctl SYSLOG_IDENTIFIER=kelpmoray-batch

Exit status: 0 all done, 1 some package or PATH failed, 2 wrong usage or nothing to do, 3 stopped.
)help";
}
