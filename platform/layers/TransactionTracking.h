#pragma once

#include <cstdint>
#include <memory>
#include <vector>

// Internal to the layer system: how animations take part in the completion
// of the transactions open when they were added.
namespace platform::detail {

struct CompletionGroup;

/// An animation's stake in the open transactions' completions. Destroying it
/// (when the animation stops, or goes away with its layer) lets those
/// transactions complete.
class TransactionMembership {
public:
    explicit TransactionMembership(std::vector<std::shared_ptr<CompletionGroup>> groups);
    ~TransactionMembership();
    TransactionMembership(const TransactionMembership&) = delete;
    TransactionMembership& operator=(const TransactionMembership&) = delete;

private:
    std::vector<std::shared_ptr<CompletionGroup>> _groups;
};

/// Joins every transaction open on this thread; null when there is none.
std::unique_ptr<TransactionMembership> joinOpenTransactions();

/// The number of commits so far on this thread: a commit happens when the
/// outermost transaction ends (the implicit one at the end of the run loop
/// turn) or when the tree is rendered. Reading it opens the implicit
/// transaction, so that what is made now is committed by the next commit.
std::uint64_t commitCount();

}  // namespace platform::detail
