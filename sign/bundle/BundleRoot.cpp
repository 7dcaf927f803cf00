#include "sign/bundle/BundleRoot.h"

#include "base/Printable.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/files/FileTree.h"

#include <algorithm>

namespace sign {

namespace {

using namespace std::string_view_literals;

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Whether a link leads to a folder beside it.
bool isOneComponent(std::string_view target) {
    if (target.starts_with("./"))
        target.remove_prefix(2);
    return !isOneOf(target, {"", ".", ".."}) && target.find('/') == std::string_view::npos;
}

/// Whether a link NAME leads to Versions/Current/NAME, or to the same in the current version.
bool leadsIntoVersion(const std::string& name, std::string_view target, std::string_view current) {
    if (target.starts_with("./"))
        target.remove_prefix(2);
    const std::string before = "Versions/";
    const std::string after = "/" + name;
    if (!target.starts_with(before) || !target.ends_with(after) ||
        target.size() < before.size() + after.size())
        return false;
    return isOneOf(target.substr(before.size(), target.size() - before.size() - after.size()),
                   {"Current"sv, current});
}

base::Outcome checkVersions(const std::string& versions, std::vector<LayoutFault>& faults) {
    const auto entries = entriesOf(versions);
    if (!entries)
        return entries.error();
    for (const FileEntry& entry : *entries) {
        const std::string path = versions + "/" + entry.name;
        const bool allowed =
            entry.name == "Current"
                ? entry.isLink() && isOneComponent(*linkTarget(path))
                : entry.isFolder() || (entry.name == ".DS_Store" && entry.isFile());
        if (!allowed)
            faults.push_back({FaultCode::UnsealedFrameworkRoot, path});
    }
    return {};
}

std::string remedyFor(FaultCode code, const std::string& file) {
    const std::string named = ": \"" + base::printable(file) + "\". ";
    if (code == FaultCode::UnsealedAppRoot)
        return named + "Move it into Contents/Resources, or delete it.";
    if (code == FaultCode::UnsealedFrameworkRoot)
        return named + "Beside the folder Versions, a framework has only links into the current "
                       "version.";
    return named + "Put the file itself in the place of the link.";
}

} // namespace

base::Result<std::vector<LayoutFault>> applicationRootFaults(const std::string& bundle) {
    const auto entries = entriesOf(bundle);
    if (!entries)
        return entries.error();
    std::vector<LayoutFault> faults;
    for (const FileEntry& entry : *entries) {
        const bool isContents = entry.isFolder() && sameWithoutCase(entry.name, "Contents");
        const bool isDesktops = isOneOf(entry.name, {".LSOverride", ".DS_Store", "Icon\r",
                                                     ".SoftwareDepot.tracking"}) &&
                                entry.isPlainData();
        if (!isContents && !isDesktops)
            faults.push_back({FaultCode::UnsealedAppRoot, bundle + "/" + entry.name});
    }
    return faults;
}

base::Result<std::vector<LayoutFault>> frameworkRootFaults(const std::string& framework) {
    const auto entries = entriesOf(framework);
    if (!entries)
        return entries.error();
    std::vector<LayoutFault> faults;
    std::string current = linkTarget(framework + "/Versions/Current").value_or("Current");
    if (current.starts_with("./"))
        current.erase(0, 2);
    for (const FileEntry& entry : *entries) {
        const std::string path = framework + "/" + entry.name;
        const bool allowed =
            entry.isLink()
                ? leadsIntoVersion(entry.name, linkTarget(path).value_or(""), current)
                : (entry.isFolder() && entry.name == "Versions") ||
                      (isOneOf(entry.name, {".DS_Store", "module.map"}) && entry.isPlainData());
        if (!allowed)
            faults.push_back({FaultCode::UnsealedFrameworkRoot, path});
    }
    if (auto checked = checkVersions(framework + "/Versions", faults); !checked)
        return checked.error();
    return faults;
}

base::Outcome checkSignable(const Bundle& bundle) {
    if (auto executable = checkExecutable(bundle); !executable)
        return executable;
    if (bundle.info.find("CFBundleResourceSpecification"))
        return base::Error{base::ErrorKind::Unsupported,
                           "\"" + base::printable(bundle.infoPlist) +
                               "\" names resource rules of its own "
                               "(CFBundleResourceSpecification), which macOS no longer accepts. "
                               "Take the key out."};
    if (auto layout = checkLayout(bundle); !layout)
        return layout;
    return checkSignatureFolder(bundle.signatureFolder());
}

base::Outcome checkExecutable(const Bundle& bundle) {
    if (!bundle.infoProblem.empty())
        return base::Error{base::ErrorKind::Damaged, bundle.infoProblem};
    const std::string* executable = bundle.info.findString("CFBundleExecutable");
    if (executable && !bundle.hasExecutable)
        return base::Error{base::ErrorKind::NotFound,
                           "The executable \"" + base::printable(*executable) + "\", which \"" +
                               base::printable(bundle.infoPlist) +
                               "\" names, is missing. Build the package anew."};
    return {};
}

base::Outcome checkLayout(const Bundle& bundle) {
    if (bundle.layoutFaults.empty())
        return {};
    const LayoutFault& fault = bundle.layoutFaults.front();
    return base::Error{base::ErrorKind::Conflict,
                       std::string(faultMessage(fault.code)) + remedyFor(fault.code, fault.file)};
}

} // namespace sign
