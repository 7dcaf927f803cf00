#pragma once

#include "core/Description.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

/// A set that keeps its members in the order in which they came.
template <typename T>
class OrderedSet {
public:
    /// False if `member` was there already.
    bool insert(const T& member) {
        const bool isNew = index_.insert(member).second;
        if (isNew)
            members_.push_back(member);
        return isNew;
    }

    /// False if `member` was not there.
    bool erase(const T& member) {
        if (index_.erase(member) == 0)
            return false;
        members_.erase(std::ranges::find(members_, member));
        return true;
    }

    /// Makes `member` the last one; false if it was not there.
    bool moveToEnd(const T& member) { return erase(member) && insert(member); }

    [[nodiscard]] const std::vector<T>& members() const { return members_; }

private:
    std::vector<T> members_;
    std::unordered_set<T> index_;
};

template <typename T>
void describe(BoundedText& out, const OrderedSet<T>& set) {
    describeElements(out, set.members(), "{(", ")}");
}
