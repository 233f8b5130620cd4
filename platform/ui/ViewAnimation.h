#pragma once

#include "platform/layers/Animation.h"

#include <QString>
#include <QVariant>

#include <functional>
#include <memory>

namespace platform {

class Layer;

/// The parameters of the innermost running animation block and the
/// bookkeeping of its completion. Internal to the views layer.
class ViewAnimationBlock {
public:
    struct Parameters {
        double duration = 0.2;
        double delay = 0.0;
        unsigned options = 0;
        bool spring = false;
        double dampingRatio = 1.0;
        double initialVelocity = 0.0;
    };

    /// Runs animations inside a block with these parameters, then arranges
    /// for completion to be called once every animation made in it stopped.
    static void run(const Parameters& parameters, const std::function<void()>& animations,
                    std::function<void(bool)> completion);
    /// Runs changes with animations switched off, even inside a block.
    static void runWithoutAnimation(const std::function<void()>& changes);

    /// The animation for a change of key on layer from its rendered value
    /// `from`, or null when no block is running (or animations are off).
    static std::shared_ptr<Animation> actionFor(Layer& layer, const QString& key,
                                                const QVariant& from);
    static bool isInsideBlock();
};

}  // namespace platform
