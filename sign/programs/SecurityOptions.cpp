#include "sign/programs/SecurityOptions.h"

#include <algorithm>
#include <array>
#include <span>

namespace sign {
namespace {

struct Option {
    std::string_view name;
    bool hasValue = true;
};

struct Command {
    std::string_view name;
    std::size_t arguments; ///< how many stand for themselves
    std::span<const Option> options;
};

constexpr std::array findOptions = {Option{"-v", false}, Option{"-p"}, Option{"--json", false}};
constexpr std::array importOptions = {
    Option{"-P"},    Option{"--passphrase-file"}, Option{"--chain"},
    Option{"--key"}, Option{"--download", false}, Option{"--dry-run", false}};
constexpr std::array requestOptions = {Option{"--name"}, Option{"--email"}, Option{"--output"}};
constexpr std::array hashOptions = {Option{"-Z"}, Option{"--output"}};
constexpr std::array tokenOptions = {Option{"--certificate"}, Option{"--chain"},
                                     Option{"--download", false}};

constexpr std::array<Command, 8> commands = {{
    {"find-identity", 0, findOptions},
    {"import", 1, importOptions},
    {"create-request", 0, requestOptions},
    {"create-test-identity", 1, {}},
    {"check-key", 0, std::span(hashOptions).first(1)},
    {"delete-identity", 0, std::span(hashOptions).first(1)},
    {"export-certificate", 0, hashOptions},
    {"add-token", 1, tokenOptions},
}};

base::Error usage(std::string sentence) {
    return {base::ErrorKind::Usage, std::move(sentence) + " See kelpmoray-security --help."};
}

} // namespace

const char* const securityUsage = R"(usage: kelpmoray-security COMMAND [OPTION]...
Keeps the identities that kelpmoray-codesign signs with.

  find-identity [-v] [-p codesigning] [--json]
      list the identities; with -v only those that can sign; with --json as an array of objects
  import FILE [-P PASSPHRASE | --passphrase-file FILE] [--key FILE] [--chain FILE]
              [--download] [--dry-run]
      store the identity in FILE (PKCS#12, or a certificate with its key in PEM or DER), or the
      certificate in FILE whose key is here; "-" reads the passphrase from standard input; --chain
      adds issuers' certificates, --download fetches missing ones from the addresses that
      certificates name; --dry-run tells what is in FILE and stores nothing
  create-request --name NAME --email ADDRESS [--output FILE]
      make a key, and a request for its certificate to upload to the developer portal
  create-test-identity NAME
      make an identity for trying things; other machines do not trust it
  add-token URI [--certificate FILE] [--chain FILE] [--download]
      use a key on a token (pkcs11: URI); the certificate is the token's or in FILE
  check-key -Z HASH
      see whether the key can be used: it is not locked, or its token is there
  export-certificate -Z HASH [--output FILE]
      write the certificate as PEM
  delete-identity -Z HASH
      remove the certificate and its key
  -h, --help, --version
      show this text, or the version

-P shows the passphrase to other users of this machine; prefer --passphrase-file.

The identities are in KELPMORAY_IDENTITIES, or kelpmoray/identities in the user's data folder. The
passphrase of their keys is kept by the desktop, or is in the file that KELPMORAY_PASSPHRASE_FILE
names. KELPMORAY_PIN_FILE names the file with a token's PIN.

Exit status: 0 done, 1 failed, 2 wrong usage.
)";

base::Result<SecurityOptions> readSecurityOptions(const std::vector<std::string>& arguments) {
    SecurityOptions read;
    if (arguments.empty())
        return usage("Give a command.");
    read.command = arguments.front();
    if (read.command == "--help" || read.command == "-h" || read.command == "--version")
        return read;
    const auto command = std::ranges::find(commands, read.command, &Command::name);
    if (command == commands.end())
        return usage("There is no command " + read.command + '.');
    for (std::size_t at = 1; at < arguments.size(); ++at) {
        const std::string& argument = arguments[at];
        if (!argument.starts_with('-') || argument == "-") {
            read.arguments.push_back(argument);
            continue;
        }
        if (argument == "--help" || argument == "-h")
            return SecurityOptions{.command = "--help", .options = {}, .arguments = {}};
        const auto option = std::ranges::find(command->options, argument, &Option::name);
        if (option == command->options.end())
            return usage(read.command + " has no option " + argument + '.');
        if (option->hasValue && at + 1 == arguments.size())
            return usage("The option " + argument + " needs a value.");
        read.options.insert_or_assign(argument, option->hasValue ? arguments[++at] : "");
    }
    if (read.arguments.size() != command->arguments)
        return usage(command->arguments == 0 ? read.command + " takes options only."
                                             : read.command + " takes exactly one argument.");
    return read;
}

} // namespace sign
