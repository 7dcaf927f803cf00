#pragma once

#include "core/OrderedSet.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// The paths waiting to be processed, each once, in order of arrival unless one is moved back. Two
/// queues touch it, so it guards itself: any thread may call anything. Paths that are spelled
/// differently are different.
class WorkSet {
public:
    /// False if `path` was there already.
    bool add(const std::string& path);
    /// False if `path` was not there.
    bool remove(const std::string& path);
    /// Lets `path` wait behind all others; nothing happens if it is not there.
    void moveToEnd(const std::string& path);
    [[nodiscard]] std::size_t count() const;
    /// The paths at this moment, the next one in front.
    [[nodiscard]] std::vector<std::string> allObjects() const;

private:
    mutable std::mutex mutex_;
    OrderedSet<std::string> paths_;
};

void describe(BoundedText& out, const WorkSet& set);
