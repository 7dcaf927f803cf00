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
            if (!isCode && item.isSealed())
                return isCode.error();
            if (isCode && *isCode)
                code.push_back(&item);
        }
        return addCode(bundle.codeRoot, code, *oldRules, depth + 1);
    }

    base::Outcome addCode(const std::string& codeRoot, const std::vector<const SealItem*>& code,
                          const SealRules& oldRules, unsigned depth) {
        const auto undotted = addUndotted(codeRoot, code, depth);
        if (!undotted)
            return undotted.error();
        for (const SealItem* item : code) {
            const std::string path = codeRoot + "/" + item->path;
            base::Outcome added;
            if (!liesInOneOf(*undotted, item->path))
                added = addItem(*item, oldRules, codeRoot, depth);
            else if (isNested(*item) && !isPlanned(path))
                added = addForBoth(*item, path);
            if (!added)
                return added;
        }
        return {};
    }

    /// Adds the bundles whose main executables are among what a bundle is sealed with: they have no
    /// dot in their names, so that they are no items of their own. In a place for data, such a one
    /// may be left as it is, with lone files in it.
    base::Result<Folders> addUndotted(const std::string& codeRoot,
                                      const std::vector<const SealItem*>& code, unsigned depth) {
        Folders undotted;
        Folders inPlacesForCode;
        const std::string root = realPath(codeRoot).value_or(codeRoot);
        for (const SealItem* item : code)
            if (item->kind == SealItemKind::File)
                if (auto bundle = owners_.findIn(root, codeRoot + "/" + item->path)) {
                    if (isNested(*item))
                        inPlacesForCode.insert(*bundle);
                    undotted.insert(std::move(*bundle));
                }
        for (auto folder = undotted.begin(); folder != undotted.end();) {
            const auto planned = std::ptrdiff_t(objects_.size());
            base::Outcome added;
            if (!liesInOneOf(undotted, *folder))
                added = openAndAdd(codeRoot + "/" + *folder, depth, true);
            if (added) {
                ++folder;
                continue;
            }
            if (inPlacesForCode.contains(*folder))
                return added.error();
            objects_.erase(objects_.begin() + planned, objects_.end());
            folder = undotted.erase(folder);
        }
        return undotted;
    }

    /// Adds what is no code for the bundle without a dot in its name that it lies in, but is for
    /// the one around that.
    base::Outcome addForBoth(const SealItem& item, const std::string& path) {
        if (item.kind == SealItemKind::Bundle)
            return openAndAdd(path, depthIn(path), true);
        objects_.push_back({path, depthIn(path), false, true});
        return {};
    }

    static bool isNested(const SealItem& item) { return item.rule && item.rule->nested; }

    bool isPlanned(const std::string& path) const {
        return std::ranges::any_of(objects_, [&](const CodeObject& object) {
            return object.path == path || object.executable == path;
        });
    }

    /// Deeper than all that is planned around a path.
    unsigned depthIn(std::string_view path) const {
        unsigned depth = 0;
        for (const CodeObject& object : objects_)
            if (path.starts_with(object.path + "/"))
                depth = std::max(depth, object.depth + 1);
        return depth;
    }

    base::Outcome addItem(const SealItem& item, const SealRules& oldRules,
                          const std::string& codeRoot, unsigned depth) {
        const std::string path = codeRoot + "/" + item.path;
        if (item.kind == SealItemKind::Bundle)
            return openAndAdd(path, depth, !isNested(item));
        const auto oldRule = oldRules.find(item.path);
        objects_.push_back({path, depth, false, !isNested(item) || (oldRule && !oldRule->omit)});
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
