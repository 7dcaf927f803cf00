#include "core/WorkSet.h"

bool WorkSet::add(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return paths_.insert(path);
}

bool WorkSet::remove(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return paths_.erase(path);
}

void WorkSet::moveToEnd(const std::string& path) {
    const std::lock_guard lock(mutex_);
    paths_.moveToEnd(path);
}

std::size_t WorkSet::count() const {
    const std::lock_guard lock(mutex_);
    return paths_.members().size();
}

std::vector<std::string> WorkSet::allObjects() const {
    const std::lock_guard lock(mutex_);
    return paths_.members();
}

void describe(BoundedText& out, const WorkSet& set) {
    describeElements(out, set.allObjects(), "{(", ")}");
}
