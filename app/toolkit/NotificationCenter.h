#pragma once

#include "core/Location.h"

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// What a notification is about: nothing, one location, or a list of them.
using NotificationObject = std::variant<std::monostate, LocationItem, LocationList>;

struct Notification {
    std::string name;
    NotificationObject object;
};

void describe(BoundedText& out, const Notification& notification);

/// Hands each notification to the observers of its name. Any thread.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    /// Calls `handler` for each notification of that name from now on, without end.
    void addObserver(std::string name, Handler handler);
    /// Calls the observers one after the other, first the one that came first, on this thread;
    /// returns after the last.
    void post(std::string name, NotificationObject object = {});

private:
    std::mutex mutex_;
    std::vector<std::pair<std::string, Handler>> observers_;
};
