#pragma once

// An animation running on a layer. Private to the layer's sources.

#include "platform/layers/Animation.h"
#include "platform/layers/Layer.h"
#include "platform/layers/TransactionTracking.h"

#include <cstdint>
#include <memory>

namespace platform {

struct Layer::Running {
    std::shared_ptr<Animation> animation;
    double start = 0.0;
    std::uint64_t generation = 0;
    bool stopped = false;
    // Taken over by a later animation of the same key: no longer rendered,
    // but it still runs to its end.
    bool superseded = false;
    std::unique_ptr<detail::TransactionMembership> membership;
};

}  // namespace platform
