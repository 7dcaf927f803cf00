#pragma once

#include "base/Result.h"
#include "sign/files/FileTree.h"
#include "sign/plist/PropertyList.h"
#include "sign/signature/FaultCode.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// Where a bundle keeps its parts (CoreFoundation's CFBundle layouts).
enum class BundleForm {
    Contents,  ///< R/Contents holds all: applications, plug-ins, services
    Resources, ///< R/Resources/Info.plist beside the code: versions of frameworks, old bundles
    Flat,      ///< all beside each other, as on iOS
};

/// What of a bundle breaks a rule of its layout; the file is the one that is in the way.
struct LayoutFault {
    FaultCode code;
    std::string file;
};

/// A folder that is signed as one code object. All paths start with the path that was opened.
struct Bundle {
    std::string path;           ///< as opened, without slashes at the end
    std::string root;           ///< the same, or the version of a versioned framework
    std::string codeRoot;       ///< the folder that is sealed and holds _CodeSignature
    std::string infoPlist;      ///< empty if there is none
    base::OwnedBytes infoBytes; ///< of that file, as special slot 1 hashes them
    FileStamp infoStamp;        ///< of that file
    PropertyValue info;         ///< the same, read; an empty dictionary if there is none
    std::string executable; ///< the file that is signed: of a bundle without code, its Info.plist
    bool hasExecutable = false; ///< false if `executable` is the Info.plist
    BundleForm form = BundleForm::Flat;
    bool isVersioned = false; ///< a framework with a folder Versions
    std::string infoProblem;  ///< why the Info.plist cannot be read; empty if it can
    /// Breaches that signing refuses and that verifying reports when it is strict.
    std::vector<LayoutFault> layoutFaults;

    /// Where the seal is: codeRoot/_CodeSignature/CodeResources.
    [[nodiscard]] std::string sealPath() const;
    [[nodiscard]] std::string signatureFolder() const;
    /// Whether CFBundlePackageType is APPL, which a description calls an app bundle.
    [[nodiscard]] bool isApplication() const;
};

/// Finds the parts of the bundle in the folder `path`; `version` names the version of a framework,
/// Current if empty. Unsupported if the folder is no bundle: the sentence starts with the
/// platform's message, to stand behind the path. Any thread.
[[nodiscard]] base::Result<Bundle> openBundle(std::string_view path, std::string_view version = {});

/// Whether a bundle may be signed: the first breach of its layout, rules of its own
/// (CFBundleResourceSpecification), or what does not belong beside its seal, as a sentence. Any
/// thread.
[[nodiscard]] base::Outcome checkSignable(const Bundle& bundle);

/// Whether the file that its Info.plist names is there: else the Info.plist is what is signed.
[[nodiscard]] base::Outcome checkExecutable(const Bundle& bundle);

/// The first breach of its layout, as a sentence: links may lead what is written out of the bundle.
[[nodiscard]] base::Outcome checkLayout(const Bundle& bundle);

/// The folder of the bundle whose main executable the file `path` is; absent if it is none's. A
/// lone path to it means the bundle, for signing as for verifying. Any thread.
[[nodiscard]] std::optional<std::string> bundleOfExecutable(std::string_view path);

/// Finds for many files whose main executables they are; each folder is looked at once. One thread
/// at a time.
class ExecutableOwners {
public:
    /// The bundle's folder, without links; absent if `path`, which is no link, is nobody's main
    /// executable.
    [[nodiscard]] const std::string* find(const std::string& path);
    /// Same, relative to a folder without links; absent if the bundle does not lie in that.
    [[nodiscard]] std::optional<std::string> findIn(const std::string& folder,
                                                    const std::string& path);

private:
    using Owners = std::map<std::string, std::string, std::less<>>; ///< by the names of executables

    std::map<std::string, Owners, std::less<>> folders_;
};

/// The folders of the versions of a framework beside `version`, the current one if empty; sorted,
/// none if it has no versions. Any thread.
[[nodiscard]] std::vector<std::string> otherVersions(std::string_view framework,
                                                     std::string_view version = {});

} // namespace sign
