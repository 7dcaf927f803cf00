#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include <stdlib.h>
#include <unistd.h>

/// A folder of a test's own, whose name has a blank unless another is asked for; gone with all that
/// is in it at the end.
class TemporaryFolder {
public:
    static constexpr const char* withoutBlank = "kelpmoray-test-XXXXXX";

    explicit TemporaryFolder(const char* nameTemplate = "kelpmoray test XXXXXX") {
        std::string name = std::filesystem::temp_directory_path() / nameTemplate;
        path_ = std::filesystem::canonical(mkdtemp(name.data()));
    }
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] std::string path() const { return path_; }
    [[nodiscard]] std::string path(const std::string& name) const { return path_ / name; }

    std::string makeFolder(const std::string& name) const {
        std::filesystem::create_directories(path_ / name);
        return path_ / name;
    }
    std::string makeFile(const std::string& name, const std::string& content = "x") const {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name, std::ios::binary) << content;
        return path_ / name;
    }
    std::string makeExecutable(const std::string& name, const std::string& content) const {
        makeFile(name, content);
        std::filesystem::permissions(path_ / name, std::filesystem::perms::owner_all);
        return path_ / name;
    }
    std::string makeLink(const std::string& name, const std::string& target) const {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::filesystem::create_symlink(target, path_ / name);
        return path_ / name;
    }
    /// A well-formed application with one executable.
    std::string makeApplication(const std::string& name) const {
        makeFile(name + "/Contents/Info.plist",
                 "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>run</string>"
                 "<key>CFBundlePackageType</key><string>APPL</string></dict></plist>");
        makeExecutable(name + "/Contents/MacOS/run", "#!/bin/sh\n");
        return path(name);
    }

private:
    std::filesystem::path path_;
};

[[nodiscard]] inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
