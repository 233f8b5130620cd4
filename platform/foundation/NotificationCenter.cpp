#include "platform/foundation/NotificationCenter.h"

#include <algorithm>

namespace platform {

NotificationCenter& NotificationCenter::defaultCenter() {
    // Never destroyed, like every process-wide object: an engine or a screen
    // released on its own queue while the process exits still reaches it.
    static NotificationCenter& center = *new NotificationCenter;
    return center;
}

void NotificationCenter::addObserver(const void* observer, const QString& name, const void* sender,
                                     Handler handler) {
    auto registration =
        std::make_shared<Registration>(Registration{observer, name, sender, std::move(handler)});
    std::lock_guard lock(_mutex);
    _registrations.push_back(std::move(registration));
}

void NotificationCenter::removeObserver(const void* observer) {
    removeMatching([observer](const Registration& r) { return r.observer == observer; });
}

void NotificationCenter::removeObserver(const void* observer, const QString& name,
                                        const void* sender) {
    removeMatching([&](const Registration& r) {
        return r.observer == observer && (name.isEmpty() || r.name == name) &&
               (sender == nullptr || r.sender == sender);
    });
}

void NotificationCenter::removeMatching(const std::function<bool(const Registration&)>& match) {
    std::lock_guard lock(_mutex);
    auto it = std::remove_if(_registrations.begin(), _registrations.end(),
                             [&](const std::shared_ptr<Registration>& r) {
                                 if (match(*r)) {
                                     r->removed = true;
                                     return true;
                                 }
                                 return false;
                             });
    _registrations.erase(it, _registrations.end());
}

void NotificationCenter::post(const Notification& notification) {
    std::vector<std::shared_ptr<Registration>> targets;
    {
        std::lock_guard lock(_mutex);
        for (const auto& r : _registrations) {
            const bool nameMatches = r->name.isEmpty() || r->name == notification.name;
            const bool senderMatches = r->sender == nullptr || r->sender == notification.object;
            if (nameMatches && senderMatches) {
                targets.push_back(r);
            }
        }
    }
    for (const auto& r : targets) {
        bool removed;
        {
            std::lock_guard lock(_mutex);
            removed = r->removed;
        }
        if (!removed) {
            r->handler(notification);
        }
    }
}

void NotificationCenter::post(const QString& name, const void* object,
                              const QVariantMap& userInfo) {
    post(Notification{name, object, userInfo});
}

std::size_t NotificationCenter::observerCount() const {
    std::lock_guard lock(_mutex);
    return _registrations.size();
}

}  // namespace platform
