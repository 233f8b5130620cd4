#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

/// A posted notification: its name, the object that sent it (compared by
/// identity only, never dereferenced) and its user info.
struct Notification {
    QString name;
    const void* object = nullptr;
    QVariantMap userInfo;
};

/// Delivers notifications to observers registered by name and, optionally,
/// by sender.
///
/// Thread-safe. Delivery is synchronous on the posting thread, in the order of
/// registration; no lock is held while an observer runs, so observers may add
/// or remove observers (themselves included) during delivery. An observer
/// removed during a delivery is not called afterwards, even within that post.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// The process-wide centre.
    static NotificationCenter& defaultCenter();

    /// Registers handler for notifications called name (an empty name matches
    /// every name) from sender (null matches every sender). observer is the
    /// key by which removeObserver finds the registration.
    void addObserver(const void* observer, const QString& name, const void* sender,
                     Handler handler);

    /// Removes every registration of observer.
    void removeObserver(const void* observer);
    /// Removes observer's registrations for name (empty: any name) whose
    /// sender is sender (null: any sender).
    void removeObserver(const void* observer, const QString& name, const void* sender);

    void post(const Notification& notification);
    void post(const QString& name, const void* object = nullptr, const QVariantMap& userInfo = {});

    /// Number of registrations, for diagnostics.
    std::size_t observerCount() const;

private:
    struct Registration {
        const void* observer;
        QString name;
        const void* sender;
        Handler handler;
        bool removed = false;
    };

    void removeMatching(const std::function<bool(const Registration&)>& match);

    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<Registration>> _registrations;
};

}  // namespace platform
