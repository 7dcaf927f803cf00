#include "sign/bundle/LooseSignature.h"

#include "base/Leftovers.h"
#include "sign/AsideFile.h"
#include "sign/bundle/FileTree.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
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

} // namespace

std::vector<std::string> signatureFiles(const LooseSignature& signature) {
    std::vector<std::string> names = {"CodeResources"};
    for (const Part& part : partsOf(signature))
        names.push_back(part.name);
    return names;
}

base::Outcome removeUnusedSignatureFiles(const Bundle& bundle,
                                         const std::vector<std::string>& kept) {
    const auto entries = entriesOf(bundle.signatureFolder());
    if (!entries)
        return entries.error();
    for (const FileEntry& entry : *entries) {
        const std::string path = bundle.signatureFolder() + "/" + entry.name;
        const bool isOurs = entry.name.starts_with("Code") && !entry.isFolder();
        if (isOurs && std::find(kept.begin(), kept.end(), entry.name) == kept.end() &&
            unlink(path.c_str()) != 0)
            return base::systemError("delete", path, errno);
    }
    return {};
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

base::Outcome writeLooseSignature(const Bundle& bundle, const LooseSignature& signature,
                                  base::Bytes seal) {
    const std::string folder = bundle.signatureFolder();
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST)
        return base::systemError("make the folder", folder, errno);
    std::vector<Part> parts = {{"CodeResources", seal}};
    for (Part& part : partsOf(signature))
        parts.push_back(std::move(part));
    base::removeLeftovers(folder); // The walk over the package does not enter this folder.
    std::vector<AsideFile> files;
    files.reserve(parts.size());
    for (const Part& part : parts) {
        auto file = AsideFile::createFor(folder + "/" + part.name);
        if (!file)
            return file.error();
        files.push_back(std::move(*file));
        if (auto written = files.back().write(part.bytes, 0); !written)
            return written;
        if (auto synced = files.back().sync(); !synced)
            return synced;
    }
    std::vector<AsideFile*> all;
    for (AsideFile& file : files)
        all.push_back(&file);
    if (auto named = AsideFile::commit(all); !named)
        return named;
    std::vector<std::string> kept;
    for (const Part& part : parts)
        kept.push_back(part.name);
    return removeUnusedSignatureFiles(bundle, kept);
}

} // namespace sign
