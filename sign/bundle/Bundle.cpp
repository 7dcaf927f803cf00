#include "sign/bundle/Bundle.h"

#include "base/Printable.h"
#include "sign/bundle/BundleRoot.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <array>

#include <limits.h>
#include <sys/stat.h>

namespace sign {

namespace {

base::Error unrecognized(std::string_view remedy = {}) {
    std::string sentence(faultMessage(FaultCode::BadBundleFormat));
    sentence += remedy;
    return {base::ErrorKind::Unsupported, std::move(sentence)};
}

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// Of a path without links.
std::string parentOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

std::string nameWithoutExtension(const std::string& path) {
    // "." and ".." name a folder by where it stands.
    const std::string real = realPath(path).value_or(path);
    const std::string_view name = lastComponent(real);
    const std::size_t dot = name.rfind('.');
    return std::string(name.substr(0, dot == 0 ? name.size() : dot));
}

bool isPlainFile(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// Whether no folder on the way to what is in a folder is a link: what is sealed would be another
/// file than what is signed, and signing might write outside.
bool isReachedWithoutLinks(const std::string& path, const std::string& folder) {
    for (std::size_t slash = path.find('/', folder.size() + 1); slash != std::string::npos;
         slash = path.find('/', slash + 1))
        if (linkTarget(path.substr(0, slash)))
            return false;
    return true;
}

/// The entry of that name, whatever the case of its letters; empty if there is none.
std::string entryNamed(const std::vector<std::string>& names, std::string_view wanted) {
    std::string first;
    for (const std::string& name : names) {
        if (sameWithoutCase(name, wanted) && (first.empty() || name < first))
            first = name;
    }
    return first;
}

/// Goes into the version of a framework, if the folder is a versioned one.
base::Outcome findRoot(Bundle& bundle, std::string_view version) {
    const std::string& path = bundle.path;
    bundle.root = path;
    if (isFolder(path + "/Contents")) {
        auto faults = applicationRootFaults(path);
        if (!faults)
            return faults.error();
        bundle.layoutFaults = std::move(*faults);
        return {};
    }
    const std::string current = path + "/Versions/Current";
    if (isFolder(path + "/Support Files") ||
        (!isFolder(current) && (version.empty() || !isFolder(path + "/Versions"))))
        return {};
    auto faults = frameworkRootFaults(path);
    if (!faults)
        return faults.error();
    bundle.layoutFaults = std::move(*faults);
    bundle.isVersioned = true;
    const std::string target = linkTarget(current).value_or("Current");
    const std::string_view wanted = version.empty() ? lastComponent(target) : version;
    bundle.root = path + "/Versions/" + std::string(wanted);
    if (wanted != "." && wanted != ".." && wanted.find('/') == std::string_view::npos &&
        isFolder(bundle.root))
        return {};
    return unrecognized(version.empty()
                            ? ". Versions/Current leads to no version of the framework: mend the "
                              "link."
                            : ". The framework has no version \"" + base::printable(wanted) +
                                  "\": name a folder in its folder Versions.");
}

/// Finds form, code root and Info.plist in the root.
base::Outcome findForm(Bundle& bundle) {
    auto names = namesIn(bundle.root);
    if (!names)
        return names.error();
    std::array<std::string_view, 3> order = {"Contents", "Resources", "Support Files"};
    if (!bundle.isVersioned && bundle.root.ends_with(".framework"))
        std::swap(order[0], order[1]);
    std::string found;
    std::string_view form;
    for (const std::string_view name : order) {
        found = entryNamed(*names, name);
        if (!found.empty() && isFolder(bundle.root + "/" + found)) {
            form = name;
            break;
        }
    }
    bundle.codeRoot = bundle.root;
    std::string infoFolder = bundle.root;
    if (form == "Support Files")
        return unrecognized(". Bundles with a folder \"Support Files\" are of a form that macOS no "
                            "longer signs: build it anew with a folder Contents.");
    if (form == "Contents") {
        bundle.form = BundleForm::Contents;
        bundle.codeRoot = infoFolder = bundle.root + "/" + found;
    } else if (form == "Resources") {
        bundle.form = BundleForm::Resources;
        infoFolder = bundle.root + "/" + found;
    }
    if (infoFolder != bundle.root)
        names = namesIn(infoFolder);
    if (!names)
        return names.error();
    std::string info = entryNamed(*names, "Info-macos.plist");
    if (info.empty())
        info = entryNamed(*names, "Info.plist");
    if (!info.empty())
        bundle.infoPlist = infoFolder + "/" + info;
    if (linkTarget(bundle.signatureFolder()))
        bundle.layoutFaults.push_back({FaultCode::UnsealedAppRoot, bundle.signatureFolder()});
    return {};
}

base::Outcome readInfo(Bundle& bundle) {
    if (bundle.infoPlist.empty())
        return {};
    if (!isPlainFile(bundle.infoPlist))
        bundle.layoutFaults.push_back({FaultCode::RegularFile, bundle.infoPlist});
    const auto target = realPath(bundle.infoPlist);
    if (!target || !isFile(*target))
        return {};
    auto bytes = wholeFile(*target, Links::Refuse, mostPropertyListBytes, &bundle.infoStamp);
    if (!bytes)
        return bytes.error();
    bundle.infoBytes = std::move(*bytes);
    auto info = readPropertyList(bundle.infoBytes, bundle.infoPlist);
    // A damaged one must not hide what else is wrong: its hash will tell, too.
    if (!info)
        bundle.infoProblem = info.error().sentence;
    else if (!info->dictionary())
        bundle.infoProblem = "\"" + base::printable(bundle.infoPlist) +
                             "\" is not a dictionary of settings. Get the package anew from where "
                             "it was built.";
    else
        bundle.info = std::move(*info);
    return {};
}

std::string executableName(const Bundle& bundle) {
    for (const std::string_view key : {"CFBundleExecutable", "NSExecutable"}) {
        const std::string* name = bundle.info.findString(key);
        if (name && !name->empty())
            return *name;
    }
    return nameWithoutExtension(bundle.path);
}

base::Outcome findExecutable(Bundle& bundle) {
    const std::string name = executableName(bundle);
    if (name.size() > NAME_MAX || name.find('/') != std::string::npos || name == "." ||
        name == "..")
        return unrecognized(". CFBundleExecutable in its Info.plist must be the name of a file, "
                            "of at most 255 bytes and without a folder.");
    std::vector<std::string> places = {bundle.root};
    if (bundle.form == BundleForm::Contents)
        places = {bundle.codeRoot + "/MacOS", bundle.codeRoot, bundle.root};
    for (const std::string& place : places) {
        const std::string candidate = place + "/" + name;
        const auto isThere = hasFile(candidate);
        if (!isThere)
            return isThere.error();
        if (!*isThere)
            continue;
        bundle.executable = candidate;
        bundle.hasExecutable = true;
        if (!isPlainFile(candidate) || !isReachedWithoutLinks(candidate, bundle.root))
            bundle.layoutFaults.push_back({FaultCode::RegularFile, candidate});
        return {};
    }
    bundle.executable = bundle.infoPlist;
    if (!bundle.executable.empty())
        return {};
    return isFolder(bundle.path + "/Versions") && !bundle.isVersioned
               ? unrecognized(". The framework has versions, but no link Versions/Current to one "
                              "of them: make it, or unpack the package with a tool that keeps "
                              "links.")
               : unrecognized();
}

/// The bundles whose main executables may lie in a folder, outermost first.
std::vector<std::string> bundlesAround(std::string folder) {
    if (sameWithoutCase(lastComponent(folder), "MacOS"))
        folder = parentOf(parentOf(folder));
    std::vector<std::string> bundles = {folder};
    if (sameWithoutCase(lastComponent(folder), "Contents"))
        bundles.insert(bundles.begin(), parentOf(folder));
    if (lastComponent(parentOf(folder)) == "Versions")
        bundles.insert(bundles.begin(), parentOf(parentOf(folder)));
    return bundles;
}

} // namespace

std::string Bundle::signatureFolder() const {
    return codeRoot + "/_CodeSignature";
}

std::string Bundle::sealPath() const {
    return signatureFolder() + "/CodeResources";
}

bool Bundle::isApplication() const {
    const std::string* type = info.findString("CFBundlePackageType");
    return type && *type == "APPL";
}

base::Result<Bundle> openBundle(std::string_view path, std::string_view version) {
    Bundle bundle;
    bundle.path = withoutSlashes(path);
    for (auto* step : {+[](Bundle&b, std::string_view v) { return findRoot(b, v); },
                       +[](Bundle&b, std::string_view) { return findForm(b); },
                       +[](Bundle&b, std::string_view) { return readInfo(b); },
                       +[](Bundle&b, std::string_view) { return findExecutable(b); }}) {
        if (auto done = step(bundle, version); !done)
            return done.error();
    }
    return bundle;
}

std::optional<std::string> bundleOfExecutable(std::string_view path) {
    const auto real = realPath(std::string(path));
    if (!real || !isFile(*real))
        return std::nullopt;
    ExecutableOwners owners;
    const std::string* owner = owners.find(*real);
    return owner != nullptr ? std::optional(*owner) : std::nullopt;
}

const std::string* ExecutableOwners::find(const std::string& path) {
    const std::string folder = parentOf(path);
    const auto [at, isNew] = folders_.try_emplace(folder);
    Owners& owners = at->second;
    if (const auto real = isNew ? realPath(folder) : std::nullopt)
        for (const std::string& candidate : bundlesAround(*real)) {
            const auto bundle = openBundle(candidate);
            if (!bundle || !bundle->hasExecutable || bundle->infoPlist.empty())
                continue;
            const auto executable = realPath(bundle->executable);
            if (executable && parentOf(*executable) == *real)
                owners.emplace(lastComponent(*executable), candidate);
        }
    const auto found = owners.find(lastComponent(path));
    return found == owners.end() ? nullptr : &found->second;
}

std::optional<std::string> ExecutableOwners::findIn(const std::string& folder,
                                                    const std::string& path) {
    const std::string* owner = find(path);
    return owner != nullptr && owner->starts_with(folder + "/")
               ? std::optional(owner->substr(folder.size() + 1))
               : std::nullopt;
}

std::vector<std::string> otherVersions(std::string_view framework, std::string_view version) {
    const std::string versions = withoutSlashes(framework) + "/Versions";
    std::vector<std::string> others;
    const auto entries = entriesOf(versions);
    if (!entries)
        return others;
    const auto taken =
        realPath(versions + "/" + std::string(version.empty() ? "Current" : version));
    for (const FileEntry& entry : *entries) {
        std::string path = versions + "/" + entry.name;
        if (entry.isFolder() && entry.name != "Current" && realPath(path) != taken)
            others.push_back(std::move(path));
    }
    return others;
}

} // namespace sign
