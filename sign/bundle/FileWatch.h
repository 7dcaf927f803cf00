#pragma once

#include "sign/files/FileTree.h"

#include <deque>
#include <string>
#include <vector>

namespace sign {

/// Remembers what a package was like when it was read, to tell later whether anything in it was
/// changed, added or taken away. What this program writes aside does not count, nor do the files
/// that file browsers write where they show a folder. One thread at a time; a file in a folder
/// costs its name and a stamp.
class FileWatch {
public:
    /// A file, as it was when it was opened.
    void addFile(const std::string& path, const FileStamp& stamp) {
        files_.push_back({path, stamp});
    }
    /// entriesOf() a folder, whose path ends with a slash, which it then watches. The signature of
    /// the `codeRoot` will be written meanwhile.
    [[nodiscard]] base::Result<std::vector<FileEntry>> list(const std::string& folder,
                                                            bool isCodeRoot);

    /// Changed if something is not as it was; the sentence names the file.
    [[nodiscard]] base::Outcome check(unsigned threads) const;

private:
    struct File {
        std::string path;
        FileStamp stamp;
    };
    struct Folder {
        std::string path;
        FileStamp stamp;
        bool isCodeRoot = false;
        std::string names; ///< sorted, each with a zero byte behind it
        std::vector<FileStamp> stamps;
    };

    [[nodiscard]] static base::Outcome checkFolder(const Folder& folder);
    [[nodiscard]] static base::Outcome checkNames(const Folder& folder);

    std::vector<File> files_;
    std::deque<Folder> folders_;
};

} // namespace sign
