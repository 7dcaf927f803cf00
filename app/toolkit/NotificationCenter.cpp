#include "app/toolkit/NotificationCenter.h"

void describe(BoundedText& out, const Notification& notification) {
    out.append("{name = ");
    out.append(notification.name);
    if (!std::holds_alternative<std::monostate>(notification.object))
        out.append("; object = ");
    if (const auto* item = std::get_if<LocationItem>(&notification.object))
        describe(out, *item);
    else if (const auto* list = std::get_if<LocationList>(&notification.object))
        describe(out, *list);
    out.append("}");
}

void NotificationCenter::addObserver(std::string name, Handler handler) {
    const std::lock_guard lock(mutex_);
    observers_.emplace_back(std::move(name), std::move(handler));
}

void NotificationCenter::post(std::string name, NotificationObject object) {
    std::vector<Handler> handlers; // called without the lock, since they may post or register
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [observed, handler] : observers_)
            if (observed == name)
                handlers.push_back(handler);
    }
    const Notification notification{std::move(name), std::move(object)};
    for (const Handler& handler : handlers)
        handler(notification);
}
