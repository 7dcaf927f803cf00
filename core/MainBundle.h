#pragma once

#include <map>
#include <optional>
#include <string>

/// The identifier of the application, whatever bundle it runs from: "com.quenbark.kelpmoray".
extern const char* const applicationIdentifier;

/// The application as it lies on disk, and what its build says of it. On systems without
/// application bundles the executable's place decides: PREFIX/bin/NAME has its resources in
/// PREFIX/share/kelpmoray. Inside a bundle they are in Contents/Resources.
struct MainBundle {
    std::string bundlePath; ///< what the user takes for the application
    std::string executablesFolder;
    std::string resourcesFolder;
    std::string identifier;
    std::map<std::string, std::string> infoDictionary;

    /// The bundle around `executable` (an absolute path), with the values of this build.
    [[nodiscard]] static MainBundle ofExecutable(const std::string& executable);
    /// The bundle of the running program.
    [[nodiscard]] static MainBundle ofThisProcess();

    /// The folder that holds the application.
    [[nodiscard]] std::string ownFolder() const;
    /// The resource file NAME.TYPE, or NAME if the type is empty; none if it is not there.
    [[nodiscard]] std::optional<std::string> pathForResource(const std::string& name,
                                                             const std::string& type) const;
    /// The file of that name beside the executable; none if it is not there.
    [[nodiscard]] std::optional<std::string>
    pathForAuxiliaryExecutable(const std::string& name) const;
};

/// "NAME - vVERSION [XC-TOOL sdk-KIT]": the one line that names the build, from the keys
/// CFBundleDisplayName (or CFBundleName), CFBundleShortVersionString, DTXcode and DTSDKName.
[[nodiscard]] std::string appVersionText(const std::map<std::string, std::string>& infoDictionary);
