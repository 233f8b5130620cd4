#include "platform/layers/Transaction.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/TransactionTracking.h"

#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace platform {
namespace detail {

/// The completion of one transaction level: its block runs once the level is
/// committed and every animation added while it was open has stopped.
struct CompletionGroup {
    std::function<void()> completion;
    int pending = 0;
    bool committed = false;

    void fireIfDone() {
        if (!committed || pending > 0 || !completion) {
            return;
        }
        RunLoop::main().post(std::exchange(completion, nullptr));
    }
};

}  // namespace detail

namespace {

constexpr double kDefaultAnimationDuration = 0.25;

struct Level {
    std::uint64_t id = 0;
    bool disableActions = false;
    double animationDuration = kDefaultAnimationDuration;
    std::shared_ptr<detail::CompletionGroup> group = std::make_shared<detail::CompletionGroup>();
    // Opened by a change outside any transaction; committed at the end of
    // the run loop turn, or as soon as the levels above it are once that
    // turn has ended.
    bool implicit = false;
    bool flushRequested = false;
};

// Trivially destructible, so it can still be read once the stack is gone.
thread_local bool stackAlive = true;

struct Stack {
    std::vector<Level> levels;
    std::uint64_t nextId = 1;

    Stack() = default;
    ~Stack() { stackAlive = false; }
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;
};

thread_local Stack stack;
thread_local std::uint64_t commits = 0;

void pushLevel(bool implicit) {
    Level level;
    if (!stack.levels.empty()) {
        level.disableActions = stack.levels.back().disableActions;
        level.animationDuration = stack.levels.back().animationDuration;
    }
    level.id = stack.nextId++;
    level.implicit = implicit;
    stack.levels.push_back(std::move(level));
}

void popLevel() {
    const std::shared_ptr<detail::CompletionGroup> group = std::move(stack.levels.back().group);
    stack.levels.pop_back();
    if (stack.levels.empty()) {
        ++commits;
    }
    group->committed = true;
    group->fireIfDone();
}

// Commits the implicit level when it ends up on top with its turn over.
void popFlushedImplicitLevel() {
    if (!stack.levels.empty() && stack.levels.back().implicit &&
        stack.levels.back().flushRequested) {
        popLevel();
    }
}

// Commits the implicit level at the end of the turn. The flush also runs if
// the posted task is dropped without running (a test resetting the run loop),
// so an implicit level never outlives its turn.
class ImplicitFlush {
public:
    explicit ImplicitFlush(std::uint64_t levelId)
        : _levelId(levelId), _thread(std::this_thread::get_id()) {}
    ~ImplicitFlush() { flush(); }
    ImplicitFlush(const ImplicitFlush&) = delete;
    ImplicitFlush& operator=(const ImplicitFlush&) = delete;

    void flush() {
        if (_done || std::this_thread::get_id() != _thread || !stackAlive) {
            return;
        }
        _done = true;
        if (stack.levels.empty() || stack.levels.front().id != _levelId) {
            return;
        }
        stack.levels.front().flushRequested = true;
        popFlushedImplicitLevel();
    }

private:
    std::uint64_t _levelId;
    std::thread::id _thread;
    bool _done = false;
};

Level& currentLevel() {
    if (stack.levels.empty()) {
        pushLevel(true);
        auto flush = std::make_shared<ImplicitFlush>(stack.levels.back().id);
        RunLoop::main().post([flush] { flush->flush(); });
    }
    return stack.levels.back();
}

}  // namespace

namespace detail {

TransactionMembership::TransactionMembership(std::vector<std::shared_ptr<CompletionGroup>> groups)
    : _groups(std::move(groups)) {
    for (const auto& group : _groups) {
        ++group->pending;
    }
}

TransactionMembership::~TransactionMembership() {
    for (const auto& group : _groups) {
        --group->pending;
        group->fireIfDone();
    }
}

std::uint64_t commitCount() {
    currentLevel();
    return commits;
}

std::unique_ptr<TransactionMembership> joinOpenTransactions() {
    if (stack.levels.empty()) {
        return nullptr;
    }
    std::vector<std::shared_ptr<CompletionGroup>> groups;
    groups.reserve(stack.levels.size());
    for (const Level& level : stack.levels) {
        groups.push_back(level.group);
    }
    return std::make_unique<TransactionMembership>(std::move(groups));
}

}  // namespace detail

void Transaction::begin() {
    pushLevel(false);
}

void Transaction::flush() {
    // Only the implicit level is committed here; explicit ones commit when
    // their owners end them, but what they hold is on screen from now on.
    if (stack.levels.size() == 1 && stack.levels.front().implicit) {
        popLevel();
    } else {
        ++commits;
    }
}

void Transaction::commit() {
    if (stack.levels.empty()) {
        return;
    }
    popLevel();
    popFlushedImplicitLevel();
}

bool Transaction::disableActions() {
    return stack.levels.empty() ? false : stack.levels.back().disableActions;
}

void Transaction::setDisableActions(bool disable) {
    currentLevel().disableActions = disable;
}

double Transaction::animationDuration() {
    return stack.levels.empty() ? kDefaultAnimationDuration : stack.levels.back().animationDuration;
}

void Transaction::setAnimationDuration(double seconds) {
    currentLevel().animationDuration = seconds;
}

void Transaction::setCompletionBlock(std::function<void()> completion) {
    currentLevel().group->completion = std::move(completion);
}

}  // namespace platform
