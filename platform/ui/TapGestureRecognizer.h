#pragma once

#include "platform/ui/GestureRecognizer.h"

#include <QPointF>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

namespace platform {

/// Recognises taps, like the platform's tap recogniser: numberOfTapsRequired
/// taps of numberOfTouchesRequired fingers each, every finger lifting within
/// 10 points of where it went down, each further tap starting within 0.35 s
/// (on the run loop's clock) of the previous lift and within 45 points of
/// the first tap. It recognises when the last finger of the last tap lifts
/// and fails as soon as any of this is broken. Main thread only.
class TapGestureRecognizer : public GestureRecognizer {
public:
    static constexpr double kAllowableMovement = 10.0;
    static constexpr double kMaximumTapInterval = 0.35;
    static constexpr double kMaximumTapDistance = 45.0;

    static std::shared_ptr<TapGestureRecognizer> create();
    ~TapGestureRecognizer() override;

    int numberOfTapsRequired() const { return _tapsRequired; }
    void setNumberOfTapsRequired(int taps) { _tapsRequired = std::max(1, taps); }
    int numberOfTouchesRequired() const { return _touchesRequired; }
    void setNumberOfTouchesRequired(int touches) { _touchesRequired = std::max(1, touches); }

protected:
    TapGestureRecognizer() = default;
    void handleTouchesBegan(const std::vector<Touch>& touches) override;
    void handleTouchesMoved(const std::vector<Touch>& touches) override;
    void handleTouchesEnded(const std::vector<Touch>& touches) override;
    void resetProgress() override;

private:
    void fail();
    bool movedTooFar(const std::vector<Touch>& touches) const;

    int _tapsRequired = 1;
    int _touchesRequired = 1;
    int _taps = 0;
    std::size_t _fingersDown = 0;
    std::size_t _fingersInTap = 0;
    std::vector<QPointF> _tapStarts;
    std::optional<QPointF> _firstTap;
};

}  // namespace platform
