#include "sign/bundle/SealWalk.h"

#include "base/FileDescriptor.h"
#include "base/Leftovers.h"
#include "base/Printable.h"
#include "sign/bundle/FileWatch.h"
#include "sign/bundle/NewFiles.h"

#include <array>

#include <fcntl.h>

namespace sign {

namespace {

constexpr unsigned mostFolders = 200;

class Walk {
public:
    Walk(const Bundle& bundle, const SealRules& rules, const SealWalking& walking)
        : bundle_(bundle), rules_(rules), walking_(walking) {}

    base::Outcome enter(const std::string& prefix, unsigned depth) {
        if (depth > mostFolders)
            return base::Error{base::ErrorKind::Unsupported,
                               "The folders in \"" + base::printable(bundle_.path) +
                                   "\" are nested deeper than 200 levels. Make them flatter."};
        const std::string folder = bundle_.codeRoot + "/" + prefix;
        auto entries = walking_.watch != nullptr ? walking_.watch->list(folder, prefix.empty())
                                                 : entriesOf(folder);
        if (!entries)
            return entries.error();
        if (walking_.newFiles != nullptr)
            walking_.newFiles->applyTo(folder, *entries);
        for (const FileEntry& entry : *entries) {
            std::string path = prefix + entry.name;
            const auto rule = rules_.find(path);
            if (rule && rule->exclude)
                continue;
            if (passesOver(folder, entry))
                continue;
            if (!entry.isFolder()) {
                items_.push_back({std::move(path),
                                  entry.isFile()   ? SealItemKind::File
                                  : entry.isLink() ? SealItemKind::Link
                                                   : SealItemKind::Other,
                                  rule, entry.stamp.size});
            } else if (isItem(entry, path, rule)) {
                items_.push_back({std::move(path), SealItemKind::Bundle, rule, 0});
            } else if (auto entered = enter(path + "/", depth + 1); !entered) {
                return entered;
            }
        }
        return {};
    }

    std::vector<SealItem> take() { return std::move(items_); }

private:
    bool isItem(const FileEntry& entry, const std::string& path,
                const std::optional<SealRule>& rule) const {
        if (entry.name.find('.') == std::string::npos)
            return false;
        return (rule && rule->nested) ||
               (walking_.isBundle && walking_.isBundle(bundle_.codeRoot + "/" + path));
    }

    /// What a killed signing has left must not become part of the package.
    bool passesOver(const std::string& folder, const FileEntry& entry) const {
        if (walking_.leftovers == Leftovers::AreItems || !entry.isFile() ||
            !base::isTemporaryName(entry.name))
            return false;
        if (walking_.leftovers == Leftovers::AreRemoved)
            base::removeLeftover(folder, entry.name);
        return true;
    }

    const Bundle& bundle_;
    const SealRules& rules_;
    const SealWalking& walking_;
    std::vector<SealItem> items_;
};

std::string_view nameIn(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// By its first bytes (RFC 1740): a file may have such a name for other reasons.
bool isAppleDouble(const std::string& path) {
    constexpr std::array<std::uint8_t, 4> magic = {0x00, 0x05, 0x16, 0x07};
    std::array<std::uint8_t, 4> start{};
    const auto file =
        base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return file.open() && base::readAt(file.get(), start.data(), start.size(), 0) == start.size() &&
           start == magic;
}

} // namespace

base::Result<std::vector<SealItem>> sealItems(const Bundle& bundle, const SealRules& rules,
                                              const SealWalking& walking) {
    Walk walk(bundle, rules, walking);
    if (auto walked = walk.enter("", 0); !walked)
        return walked.error();
    return walk.take();
}

bool SealItem::isForbidden() const {
    return kind == SealItemKind::Other ||
           (kind == SealItemKind::Link && nameIn(path) == ".DS_Store");
}

base::Outcome checkSealable(const Bundle& bundle, const SealItem& item) {
    const std::string path = bundle.codeRoot + "/" + item.path;
    const std::string_view name = nameIn(item.path);
    if (item.isForbidden())
        return base::Error{base::ErrorKind::Unsupported,
                           "\"" + base::printable(path) +
                               (item.kind == SealItemKind::Link
                                    ? "\" is a link, which macOS does not let pass. Delete it."
                                    : "\" is neither a file nor a folder nor a link. Delete it.")};
    if (item.kind == SealItemKind::File && name.starts_with("._") && isAppleDouble(path))
        return base::Error{base::ErrorKind::Unsupported,
                           "\"" + base::printable(path) +
                               "\" is an AppleDouble file, which macOS turns into attributes of "
                               "another file, so that the seal breaks. Delete it."};
    return {};
}

} // namespace sign
