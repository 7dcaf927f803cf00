#include "base/ByteReader.h"
#include "base/Json.h"
#include "base/Printable.h"
#include "base/ProgramStart.h"
#include "base/ReplacedFile.h"
#include "base/Version.h"
#include "sign/files/FileTree.h"
#include "sign/identity/CertificateFile.h"
#include "sign/identity/CertificateMaker.h"
#include "sign/identity/IdentityImport.h"
#include "sign/identity/IdentityList.h"
#include "sign/identity/KeyFile.h"
#include "sign/identity/Token.h"
#include "sign/programs/SecurityOptions.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <span>

#include <openssl/pem.h>

namespace sign {
namespace {

constexpr int done = 0;
constexpr int failed = 1;
constexpr int wrongUsage = 2;

base::Error usage(const char* sentence) {
    return {base::ErrorKind::Usage, sentence};
}

void printLine(const std::string& line) {
    std::printf("%s\n", base::printable(line).c_str());
}

std::string day(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[16];
    return std::strftime(text, sizeof text, "%Y-%m-%d", &parts) > 0 ? text : "";
}

/// One numbered line for each identity, as the platform's tool prints them.
std::size_t printNumbered(const std::vector<ListedIdentity>& identities) {
    std::size_t number = 0;
    for (const ListedIdentity& identity : identities) {
        const std::string fault(nameOf(identity.fault));
        std::printf("%3zu) %s \"%s\"%s\n", ++number, identity.hash.c_str(),
                    base::printable(identity.label).c_str(),
                    fault.empty() ? "" : (" (" + fault + ')').c_str());
    }
    return number;
}

void printJson(const std::vector<ListedIdentity>& identities) {
    base::Json::Array list;
    for (const ListedIdentity& identity : identities)
        list.emplace_back(base::Json::Object{{"hash", identity.hash},
                                             {"name", identity.label},
                                             {"valid", identity.fault == IdentityFault::None},
                                             {"reason", std::string(nameOf(identity.fault))}});
    std::printf("%s\n", base::Json(std::move(list)).text().c_str());
}

base::Outcome findIdentities(const SecurityOptions& options) {
    if (options.has("-p") && options.value("-p") != "codesigning")
        return usage("The only policy is codesigning.");
    auto all = listIdentities();
    if (!all)
        return all.error();
    std::vector<ListedIdentity> valid;
    std::ranges::copy_if(*all, std::back_inserter(valid), [](const ListedIdentity& identity) {
        return identity.fault == IdentityFault::None;
    });
    if (options.has("--json")) {
        printJson(options.has("-v") ? valid : *all);
        return {};
    }
    if (!options.has("-v")) {
        std::fputs("\nPolicy: Code Signing\n  Matching identities\n", stdout);
        std::printf("     %zu identities found\n\n  Valid identities only\n", printNumbered(*all));
    }
    std::printf("     %zu valid identities found\n", printNumbered(valid));
    return {};
}

base::Result<Secret> passphraseOf(const SecurityOptions& options) {
    if (options.has("-P") && options.has("--passphrase-file"))
        return usage("-P and --passphrase-file exclude each other.");
    if (options.has("--passphrase-file"))
        return Secret::inFile(options.value("--passphrase-file"));
    return Secret(options.value("-P"));
}

void printFound(const char* what, const std::vector<Certificate>& chain) {
    const Certificate& leaf = chain.front();
    printLine(std::string(what) + " \"" + leaf.label() + "\"");
    std::printf("  SHA-1 %s, valid until %s\n", base::hex(leaf.sha1().bytes()).c_str(),
                day(leaf.notAfter()).c_str());
    for (const Certificate& issuer : std::span(chain).subspan(1))
        printLine("  issued by \"" + issuer.label() + "\"");
}

base::Outcome import(const SecurityOptions& options) {
    auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    auto passphrase = passphraseOf(options);
    if (!passphrase)
        return passphrase.error();
    auto found = findInFiles(*folder,
                             {.file = options.arguments.front(),
                              .keyFile = options.value("--key"),
                              .chainFile = options.value("--chain"),
                              .mayDownload = options.has("--download")},
                             *passphrase);
    if (!found)
        return found.error();
    printFound("Found", found->chain);
    std::fflush(stdout); // before anything is stored
    if (options.has("--dry-run"))
        return {};
    if (found->key)
        if (auto added = folder->addKey(found->key.get()); !added)
            return added;
    if (auto added = folder->addCertificate(found->chain); !added)
        return added;
    std::puts("Imported.");
    return {};
}

base::Outcome writeOutput(const std::string& path, base::Bytes bytes) {
    if (path.empty()) {
        std::fwrite(bytes.data(), 1, bytes.size(), stdout);
        return {};
    }
    auto file = base::ReplacedFile::createFor(path);
    if (!file)
        return file.error();
    if (!base::writeAt(file->descriptor(), bytes, 0))
        return base::systemError("write", path, errno);
    return file->commit();
}

base::Outcome createRequest(const SecurityOptions& options) {
    if (options.value("--name").empty() || options.value("--email").empty())
        return usage("Give --name and --email.");
    const std::size_t at = options.value("--email").find('@');
    if (at == 0 || at >= options.value("--email").size() - 1)
        return usage("The value of --email is no address. Give one such as jo@example.org.");
    // The key of an earlier request would wait for its certificate in vain.
    if (std::error_code code; std::filesystem::exists(options.value("--output"), code))
        return base::Error{base::ErrorKind::Conflict,
                           options.value("--output") +
                               " is there already. Write the request to another file."};
    auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    auto key = newKey();
    if (!key)
        return key.error();
    auto request =
        certificateRequest(key->get(), options.value("--name"), options.value("--email"));
    if (!request)
        return request.error();
    if (auto added = folder->addKey(key->get()); !added)
        return added;
    if (auto written = writeOutput(options.value("--output"), *request); !written)
        return written;
    if (options.has("--output"))
        printLine("The request is in " + options.value("--output") +
                  ". Upload it to the developer portal, then import the certificate that you get.");
    return {};
}

base::Outcome createTestIdentity(const SecurityOptions& options) {
    std::string name = options.arguments.front();
    if (name.empty())
        return usage("Give a name.");
    // Lists tell the kind of an identity from its holder by the colon.
    if (name.find(": ") == std::string::npos)
        name.insert(0, "Test Identity: ");
    auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    const auto there = listIdentities();
    if (there && std::ranges::any_of(*there, [&](const ListedIdentity& identity) {
            return identity.label == name && identity.fault == IdentityFault::None;
        }))
        return base::Error{base::ErrorKind::Conflict,
                           "There is an identity \"" + name +
                               "\" already. Give another name, or remove that one first."};
    auto key = newKey();
    if (!key)
        return key.error();
    auto certificate = selfSignedCertificate(key->get(), name);
    if (!certificate)
        return certificate.error();
    if (auto added = folder->addKey(key->get()); !added)
        return added;
    if (auto added = folder->addCertificate({*certificate}); !added)
        return added;
    printFound("Made", {*certificate});
    return {};
}

/// Does `action` with the certificate whose hash is given with -Z.
base::Outcome withCertificate(
    const SecurityOptions& options,
    const std::function<base::Outcome(const IdentityFolder&, const KeptCertificate&)>& action) {
    const std::string wanted = options.value("-Z");
    if (wanted.empty())
        return usage("Give the hash of a certificate with -Z.");
    const auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    for (const KeptCertificate& certificate : folder->certificates())
        if (sameWithoutCase(certificate.hash, wanted))
            return action(*folder, certificate);
    return noIdentity(wanted);
}

base::Outcome checkKey(const SecurityOptions& options) {
    return withCertificate(
        options, [](const IdentityFolder& folder, const KeptCertificate& kept) -> base::Outcome {
            const auto key = folder.openKey(kept);
            return key ? base::Outcome{} : key.error();
        });
}

base::Outcome deleteIdentity(const SecurityOptions& options) {
    return withCertificate(options, &IdentityFolder::remove);
}

base::Outcome exportCertificate(const SecurityOptions& options) {
    return withCertificate(options, [&](const IdentityFolder&, const KeptCertificate& kept) {
        const BioOwner sink(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(sink.get(), kept.chain.front().handle());
        return writeOutput(options.value("--output"), bytesOf(sink.get()));
    });
}

base::Outcome addToken(const SecurityOptions& options) {
    const std::string& uri = options.arguments.front();
    auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    auto token = openTokenKey(uri);
    if (!token)
        return token.error();
    const std::string keyId = keyIdOf(token->key->handle());
    std::vector<Certificate> known;
    for (const char* option : {"--certificate", "--chain"}) {
        if (!options.has(option))
            continue;
        auto read = readCertificates(options.value(option));
        if (!read)
            return read.error();
        known.insert(known.end(), read->begin(), read->end());
    }
    if (token->certificate)
        known.push_back(*token->certificate);
    const auto leaf = std::ranges::find(
        known, keyId, [](const Certificate& certificate) { return keyIdOf(certificate); });
    if (leaf == known.end())
        return base::Error{base::ErrorKind::NotFound,
                           "The token has no certificate for its key. Give it with --certificate."};
    if (auto fit = checkLeaf(*leaf); !fit)
        return fit;
    std::vector<Certificate> pool = folder->pool();
    pool.insert(pool.end(), known.begin(), known.end());
    auto chain = chainFor(*leaf, std::move(pool), options.has("--download"));
    if (!chain)
        return chain.error();
    if (auto added = folder->addToken(keyId, uri); !added)
        return added;
    if (auto added = folder->addCertificate(*chain); !added)
        return added;
    printFound("Added", *chain);
    return {};
}

int run(const std::vector<std::string>& arguments) {
    const auto options = readSecurityOptions(arguments);
    const auto report = [](const base::Error& error) {
        std::fprintf(stderr, "kelpmoray-security: %s\n", base::printable(error.sentence).c_str());
        return error.kind == base::ErrorKind::Usage ? wrongUsage : failed;
    };
    if (!options)
        return report(options.error());
    const std::map<std::string, std::function<base::Outcome(const SecurityOptions&)>> commands = {
        {"find-identity", findIdentities},
        {"import", import},
        {"create-request", createRequest},
        {"create-test-identity", createTestIdentity},
        {"check-key", checkKey},
        {"delete-identity", deleteIdentity},
        {"export-certificate", exportCertificate},
        {"add-token", addToken},
    };
    const auto command = commands.find(options->command);
    if (command == commands.end()) {
        const std::string version = std::string("kelpmoray-security ") + base::version() + '\n';
        std::fputs(options->command == "--version" ? version.c_str() : securityUsage, stdout);
        return done;
    }
    const base::Outcome outcome = command->second(*options);
    if (!outcome)
        return report(outcome.error());
    if (std::fflush(stdout) != 0)
        return report(base::systemError("write", "standard output", errno));
    return done;
}

} // namespace
} // namespace sign

int main(int argc, char** argv) {
    base::startProgram();
    sign::hideMemory();
    return sign::run({argv + 1, argv + argc});
}
