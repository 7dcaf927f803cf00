#include "sign/bundle/NestedCode.h"

#include "base/Printable.h"
#include "sign/bundle/Bundle.h"
#include "sign/bundle/MachOFile.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <set>

namespace sign {

namespace {

constexpr unsigned mostNesting = 64;

/// A bundle in a place for resources is code only if it has some.
bool isBundleWithCode(const std::string& folder) {
    const auto bundle = openBundle(folder);
    if (!bundle || !bundle->hasExecutable)
        return false;
    const auto isCode = isSignableMachO(bundle->executable);
    return isCode && *isCode;
}

/// The name of the version that was opened.
std::string_view versionOf(const Bundle& framework) {
    return std::string_view(framework.root).substr(framework.root.rfind('/') + 1);
}

using Folders = std::set<std::string, std::less<>>;

bool isBare(const base::Error& reason) {
    return reason.sentence == faultMessage(FaultCode::BadBundleFormat);
}

/// What openBundle() says of a folder stands behind its path.
base::Error named(const std::string& folder, const base::Error& reason) {
    if (!reason.sentence.starts_with(faultMessage(FaultCode::BadBundleFormat)))
        return reason;
    return {reason.kind, "\"" + base::printable(folder) + "\": " + reason.sentence};
}

base::Error noVersion(const std::string& folder, const base::Error& reason) {
    if (!isBare(reason))
        return named(folder, reason);
    return {reason.kind, "\"" + base::printable(folder) +
                             "\" is a version of a framework, but has neither an Info.plist nor "
                             "code. Build the framework anew, or delete that version."};
}

class Planner {
public:
    explicit Planner(Leftovers leftovers) : leftovers_(leftovers) {}

    base::Outcome addBundle(Bundle bundle, unsigned depth, bool isHashed) {
        if (depth > mostNesting)
            return base::Error{base::ErrorKind::Unsupported,
                               "The bundles in \"" + base::printable(bundle.path) +
                                   "\" are nested deeper than 64 levels. Make them flatter."};
        if (auto signable = checkSignable(bundle); !signable)
            return signable;
        if (auto inside = addInside(bundle, depth); !inside)
            return inside;
        if (bundle.isVersioned) {
            for (const std::string& version : otherVersions(bundle.path, versionOf(bundle))) {
                auto other = openBundle(version);
                if (!other)
                    return noVersion(version, other.error());
                if (auto added = addBundle(std::move(*other), depth, isHashed); !added)
                    return added;
            }
        }
        objects_.push_back({std::move(bundle.path), depth, true, isHashed,
                            bundle.hasExecutable ? std::move(bundle.executable) : std::string()});
        return {};
    }

    std::vector<CodeObject> take() {
        std::stable_sort(
            objects_.begin(), objects_.end(),
            [](const CodeObject& a, const CodeObject& b) { return a.depth > b.depth; });
        return std::move(objects_);
    }

private:
    base::Outcome addInside(const Bundle& bundle, unsigned depth) {
        const auto rules =
            SealRules::read(SealRules::standard(bundle.form), bundle, bundle.infoPlist);
        const auto oldRules =
            SealRules::read(SealRules::standardVersion1(bundle.form), bundle, bundle.infoPlist);
        if (!rules || !oldRules)
            return rules ? oldRules.error() : rules.error();
        const auto items = sealItems(bundle, *rules, {isBundleWithCode, leftovers_});
        if (!items)
            return items.error();
        std::vector<const SealItem*> code;
        for (const SealItem& item : *items) {
            if (auto sealable = checkSealable(bundle, item); !sealable)
                return sealable;
            const auto isCode = item.kind == SealItemKind::File
                                    ? isSignableMachO(bundle.codeRoot + "/" + item.path)
                                    : base::Result<bool>(item.kind == SealItemKind::Bundle);
            if (!isCode && item.isSealed() && !isExcluded)
                return isCode.error();
            if (isCode && *isCode)
                code.push_back(&item);
        }
        const Folders undotted = bundlesOf(code, bundle.codeRoot);
        for (const std::string& folder : undotted)
            if (!liesInOneOf(undotted, folder))
                if (auto added = openAndAdd(bundle.codeRoot + "/" + folder, depth + 1, true);
                    !added)
                    return added;
        for (const SealItem* item : code)
            if (!liesInOneOf(undotted, item->path))
                if (auto added = addItem(*item, *oldRules, bundle.codeRoot, depth + 1); !added)
                    return added;
        return {};
    }

    /// The bundles whose main executables are among what a bundle is sealed with. They have no dot
    /// in their names, so that they are no items of their own.
    Folders bundlesOf(const std::vector<const SealItem*>& code, const std::string& codeRoot) {
        Folders bundles;
        const std::string root = realPath(codeRoot).value_or(codeRoot);
        for (const SealItem* item : code)
            if (item->kind == SealItemKind::File)
                if (auto bundle = owners_.findIn(root, codeRoot + "/" + item->path))
                    bundles.insert(std::move(*bundle));
        return bundles;
    }

    base::Outcome addItem(const SealItem& item, const SealRules& oldRules,
                          const std::string& codeRoot, unsigned depth) {
        const std::string path = codeRoot + "/" + item.path;
        const bool isNested = item.rule && item.rule->nested;
        if (item.kind == SealItemKind::Bundle)
            return openAndAdd(path, depth, !isNested);
        const auto oldRule = oldRules.find(item.path);
        objects_.push_back({path, depth, false, !isNested || (oldRule && !oldRule->omit)});
        return {};
    }

    base::Outcome openAndAdd(const std::string& path, unsigned depth, bool isHashed) {
        auto bundle = openBundle(path);
        if (!bundle)
            return noBundle(path, bundle.error());
        return addBundle(std::move(*bundle), depth, isHashed);
    }

    const Leftovers leftovers_;
    ExecutableOwners owners_;
    std::vector<CodeObject> objects_;
};

} // namespace

base::Error noBundle(const std::string& folder, const base::Error& reason) {
    if (!isBare(reason))
        return named(folder, reason);
    return {reason.kind,
            "\"" + base::printable(folder) +
                "\" has a dot in its name and lies in a place for code, so macOS takes "
                "it for a bundle, which it is not: " +
                reason.sentence +
                ". Move it to the folder Resources of the bundle around it and leave "
                "a link to it in its place."};
}

base::Result<std::vector<CodeObject>> planOf(std::string_view path, Leftovers leftovers,
                                             std::string_view version) {
    const std::string given(path);
    const auto owner = isFolder(given) ? std::optional(given) : bundleOfExecutable(given);
    if (!owner) {
        if (!isFile(given))
            return base::systemError("find", given, ENOENT);
        return std::vector<CodeObject>{{given}};
    }
    auto bundle = openBundle(*owner, version);
    if (!bundle)
        return bundle.error();
    Planner planner(leftovers);
    if (auto added = planner.addBundle(std::move(*bundle), 0, false); !added)
        return added.error();
    return planner.take();
}

} // namespace sign
