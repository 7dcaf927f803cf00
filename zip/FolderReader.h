#pragma once

#include "base/FileDescriptor.h"
#include "zip/PackageTree.h"

#include <memory>
#include <optional>

namespace zip {

/// Reads which names folders hold, one folder after the other. Each thread needs one of its own.
class FolderReader {
public:
    struct Child {
        /// Valid until the next call of the reader.
        const char* name = nullptr;
        /// Absent if the folder does not tell, or if it is of another type.
        std::optional<EntryType> type;
    };

    /// Throws std::bad_alloc.
    FolderReader();
    ~FolderReader();

    /// Goes on with `folder`, which is open for reading. False on failure, with errno set.
    [[nodiscard]] bool start(base::FileDescriptor folder);

    /// The next child, but "." and "..". Absent at the end, then errno is 0, and on failure.
    [[nodiscard]] std::optional<Child> next();

    /// Of the folder.
    [[nodiscard]] int descriptor() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace zip
