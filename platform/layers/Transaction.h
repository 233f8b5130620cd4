#pragma once

#include <functional>

namespace platform {

/// Groups layer changes. Transactions nest; the outermost commit runs the
/// completion handlers once every animation added inside has finished.
/// Actions (implicit animations) can be switched off for the changes made
/// inside. Without an explicit transaction, changes run in an implicit one.
/// Main thread only; the state is per thread.
class Transaction {
public:
    static void begin();
    static void commit();
    /// Commits pending changes now, as rendering does: the implicit
    /// transaction ends, and every layer made so far counts as committed.
    static void flush();

    static bool disableActions();
    static void setDisableActions(bool disable);
    /// Duration of implicit animations: 0.25 s unless set.
    static double animationDuration();
    static void setAnimationDuration(double seconds);
    static void setCompletionBlock(std::function<void()> completion);

    /// begin() on construction, commit() on destruction.
    class Scope {
    public:
        Scope() { begin(); }
        explicit Scope(bool disableActions) {
            begin();
            setDisableActions(disableActions);
        }
        ~Scope() { commit(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };
};

}  // namespace platform
