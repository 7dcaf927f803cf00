#include "tests/fuzz/ArchiveComparison.h"

#include "tests/fuzz/FuzzInput.h"

#include <algorithm>
#include <clocale>
#include <fstream>
#include <memory>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

std::vector<std::string> namesIn(const fs::path& package) {
    const std::size_t start = package.string().size() - package.filename().string().size();
    std::vector<std::string> names = {package.string().substr(start) + '/'};
    for (const auto& entry : fs::recursive_directory_iterator(package))
        names.push_back(entry.path().string().substr(start) +
                        (fs::is_directory(entry.symlink_status()) ? "/" : ""));
    std::ranges::sort(names);
    return names;
}

/// The reader composes what can be composed, so that only text without combining characters has to
/// come back byte by byte.
bool isSameText(const char* read, const std::string& written) {
    const bool mayBeComposed =
        std::ranges::any_of(written, [](char c) { return static_cast<unsigned char>(c) >= 0xCC; });
    return read != nullptr && (mayBeComposed || read == written);
}

void requireSameContent(archive* reader, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string archived(1U << 16U, '\0');
    std::string onDisk = archived;
    la_ssize_t count = 0;
    while ((count = archive_read_data(reader, archived.data(), archived.size())) > 0) {
        file.read(onDisk.data(), count);
        require(file.gcount() == count &&
                    archived.compare(0, std::size_t(count), onDisk, 0, std::size_t(count)) == 0,
                "content");
    }
    require(count == 0, "the content can be read");
    require(file.peek() == std::ifstream::traits_type::eof(), "all of the content");
}

std::uint32_t asStamp(std::int64_t seconds) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(seconds, 0, std::int64_t{UINT32_MAX}));
}

void requireSameEntry(archive* reader, archive_entry* entry, const std::string& path,
                      std::optional<std::int64_t> fixedTime) {
    struct stat status {};
    require(lstat(path.c_str(), &status) == 0, "what is archived exists");
    require(archive_entry_mode(entry) == status.st_mode, "type and permissions");
    require(static_cast<std::uint32_t>(archive_entry_mtime(entry)) ==
                asStamp(fixedTime.value_or(status.st_mtime)),
            "time");
    if (S_ISLNK(status.st_mode))
        require(isSameText(archive_entry_symlink(entry), fs::read_symlink(path)), "link target");
    if (S_ISREG(status.st_mode))
        requireSameContent(reader, path);
}

} // namespace

void requireSame(const std::string& archive, const fs::path& package,
                 std::optional<std::int64_t> fixedTime) {
    // Else the reader refuses every name beyond ASCII.
    static const bool isUtf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr ||
                               std::setlocale(LC_CTYPE, "UTF-8") != nullptr;
    require(isUtf8, "there is a locale for UTF-8");
    const std::unique_ptr<struct archive, int (*)(struct archive*)> reader(archive_read_new(),
                                                                           archive_read_free);
    archive_read_support_format_zip_seekable(reader.get());
    require(archive_read_open_filename(reader.get(), archive.c_str(), 1U << 16U) == ARCHIVE_OK,
            "the archive can be opened");
    archive_entry* entry = nullptr;
    for (const std::string& name : namesIn(package)) {
        // A target need not be UTF-8 where the name is; the reader then warns.
        const int status = archive_read_next_header(reader.get(), &entry);
        require(status == ARCHIVE_OK || status == ARCHIVE_WARN, "an entry for each thing");
        require(isSameText(archive_entry_pathname(entry), name), "name");
        requireSameEntry(reader.get(), entry, package.parent_path() / name, fixedTime);
    }
    require(archive_read_next_header(reader.get(), &entry) == ARCHIVE_EOF, "no entry besides");
}
