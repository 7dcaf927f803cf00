#pragma once

#include "core/OrderedSet.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// The paths waiting to be processed, each once, in order of arrival. Two queues touch it, so it
/// guards itself: any thread may call anything. Paths that are spelled differently are different.
class WorkSet {
public:
    /// False if `path` was there already.
    bool add(const std::string& path);
    /// False if `path` was not there.
    bool remove(const std::string& path);
    [[nodiscard]] std::size_t count() const;
    /// The paths at this moment, the one that came first in front.
    [[nodiscard]] std::vector<std::string> allObjects() const;

private:
    mutable std::mutex mutex_;
    OrderedSet<std::string> paths_;
};

void describe(BoundedText& out, const WorkSet& set);
