#include "zip/FolderReader.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

#include <dirent.h>

namespace zip {

#ifdef __linux__

/// Without a DIR, which asks three things of the system that are known here.
struct FolderReader::State {
    base::FileDescriptor folder;
    alignas(dirent64) std::array<std::byte, std::size_t{32} << 10> list{};
    std::size_t at = 0;
    std::size_t size = 0;

    bool start(base::FileDescriptor opened) {
        folder = std::move(opened);
        at = size = 0;
        return true;
    }

    const dirent64* next() {
        if (at == size) {
            const ssize_t count =
                base::retried([&] { return ::getdents64(folder.get(), list.data(), list.size()); });
            if (count <= 0)
                return nullptr;
            at = 0;
            size = static_cast<std::size_t>(count);
        }
        const auto* const child = reinterpret_cast<const dirent64*>(&list[at]);
        at += child->d_reclen;
        return child;
    }

    [[nodiscard]] int descriptor() const { return folder.get(); }
};

#else

struct FolderReader::State {
    struct Close {
        void operator()(DIR* opened) const { ::closedir(opened); }
    };
    std::unique_ptr<DIR, Close> directory;

    bool start(base::FileDescriptor opened) {
        directory.reset(::fdopendir(opened.get()));
        if (directory)
            (void)opened.release();
        return directory != nullptr;
    }

    const dirent* next() { return ::readdir(directory.get()); }

    [[nodiscard]] int descriptor() const { return ::dirfd(directory.get()); }
};

#endif

FolderReader::FolderReader() : state_(std::make_unique<State>()) {}

FolderReader::~FolderReader() = default;

bool FolderReader::start(base::FileDescriptor folder) {
    return state_->start(std::move(folder));
}

std::optional<FolderReader::Child> FolderReader::next() {
    errno = 0;
    while (const auto* const child = state_->next()) {
        const std::string_view name = child->d_name;
        if (name == "." || name == "..")
            continue;
        switch (child->d_type) {
        case DT_DIR:
            return Child{child->d_name, EntryType::Folder};
        case DT_REG:
            return Child{child->d_name, EntryType::File};
        case DT_LNK:
            return Child{child->d_name, EntryType::Link};
        default:
            return Child{child->d_name, std::nullopt};
        }
    }
    return std::nullopt;
}

int FolderReader::descriptor() const {
    return state_->descriptor();
}

} // namespace zip
