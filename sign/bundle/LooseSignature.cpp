#include "sign/bundle/LooseSignature.h"

#include "base/Leftovers.h"
#include "base/Printable.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace sign {

namespace {

constexpr std::size_t mostAlternates = 5;

/// The platform names alternate code directories after requirements.
std::string alternateName(std::size_t number) {
    return "CodeRequirements-" + std::to_string(number);
}

/// Absent if there is no such file.
base::Result<std::optional<base::OwnedBytes>> readPart(const Bundle& bundle,
                                                       const std::string& name) {
    const std::string path = bundle.signatureFolder() + "/" + name;
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT)
        return std::optional<base::OwnedBytes>();
    auto bytes = wholeFile(path, Links::Refuse);
    if (!bytes)
        return bytes.error();
    return std::optional(std::move(*bytes));
}

struct Part {
    std::string name;
    base::Bytes bytes;
};

std::vector<Part> partsOf(const LooseSignature& signature) {
    std::vector<Part> parts;
    for (std::size_t number = 0; number < signature.directories.size(); ++number)
        parts.push_back(
            {number == 0 ? "CodeDirectory" : alternateName(number), signature.directories[number]});
    for (const auto& [name, blob] : {std::pair{"CodeRequirements", &signature.requirements},
                                     {"CodeEntitlements", &signature.entitlements},
                                     {"CodeEntitlementDER", &signature.entitlementsDer},
                                     {"CodeSignature", &signature.cms}}) {
        if (*blob)
            parts.push_back({name, **blob});
    }
    return parts;
}

/// Whether a signature of any kind of bundle may have a file of that name.
bool isSignatureFile(const std::string& name) {
    LooseSignature all{std::vector<base::OwnedBytes>(mostAlternates + 1), {}, {}, {}, {}};
    all.requirements.emplace();
    all.entitlements.emplace();
    all.entitlementsDer.emplace();
    all.cms.emplace();
    const std::vector<std::string> names = signatureFiles(all);
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

std::vector<std::string> signatureFiles(const LooseSignature& signature) {
    std::vector<std::string> names = {"CodeResources"};
    for (const Part& part : partsOf(signature))
        names.push_back(part.name);
    return names;
}

base::Outcome checkSignatureFolder(const std::string& folder) {
    if (!isFolder(folder)) {
        if (access(folder.c_str(), F_OK) != 0)
            return {};
        return base::Error{base::ErrorKind::Conflict,
                           "\"" + base::printable(folder) +
                               "\" is a file in the place of the folder for the signature. "
                               "Delete it."};
    }
    const auto entries = entriesOf(folder);
    if (!entries)
        return entries.error();
    for (const FileEntry& entry : *entries)
        if (entry.isFolder() || !(isSignatureFile(entry.name) || base::isTemporaryName(entry.name)))
            return base::Error{base::ErrorKind::Conflict,
                               "\"" + base::printable(folder + "/" + entry.name) +
                                   "\" is no file of a signature, but no seal covers what lies "
                                   "beside it, so macOS refuses it. Delete it."};
    return {};
}

base::Result<std::vector<std::string>> unusedSignatureFiles(const Bundle& bundle,
                                                            const std::vector<std::string>& kept) {
    std::vector<std::string> unused;
    if (!isFolder(bundle.signatureFolder()))
        return unused;
    const auto entries = entriesOf(bundle.signatureFolder());
    if (!entries)
        return entries.error();
    for (const FileEntry& entry : *entries) {
        const bool isOurs = isSignatureFile(entry.name) && !entry.isFolder();
        if (isOurs && std::find(kept.begin(), kept.end(), entry.name) == kept.end())
            unused.push_back(bundle.signatureFolder() + "/" + entry.name);
    }
    return unused;
}

base::Result<LooseSignature> readLooseSignature(const Bundle& bundle) {
    LooseSignature signature;
    for (std::size_t number = 0; number <= mostAlternates; ++number) {
        auto directory = readPart(bundle, number == 0 ? "CodeDirectory" : alternateName(number));
        if (!directory)
            return directory.error();
        if (!*directory)
            break;
        signature.directories.push_back(std::move(**directory));
    }
    if (signature.directories.empty())
        return base::Error{base::ErrorKind::NotFound,
                           std::string(faultMessage(FaultCode::NotSigned))};
    for (const auto& [name, blob] : {std::pair{"CodeRequirements", &signature.requirements},
                                     {"CodeEntitlements", &signature.entitlements},
                                     {"CodeEntitlementDER", &signature.entitlementsDer},
                                     {"CodeSignature", &signature.cms}}) {
        auto part = readPart(bundle, name);
        if (!part)
            return part.error();
        *blob = std::move(*part);
    }
    return signature;
}

base::Result<std::vector<AsideFile>>
writeLooseSignature(const Bundle& bundle, const LooseSignature& signature, base::Bytes seal) {
    std::vector<Part> parts = partsOf(signature);
    parts.push_back({"CodeResources", seal});
    std::vector<AsideFile> files;
    files.reserve(parts.size());
    for (const Part& part : parts) {
        auto file =
            AsideFile::createFor(bundle.signatureFolder() + "/" + part.name, bundle.codeRoot);
        if (!file)
            return file.error();
        if (auto written = file->write(part.bytes, 0); !written)
            return written.error();
        if (auto synced = file->sync(); !synced)
            return synced.error();
        if (auto closed = file->close(); !closed)
            return closed.error();
        files.push_back(std::move(*file));
    }
    return files;
}

} // namespace sign
