#include "platform/ui/TapGestureRecognizer.h"

#include "platform/foundation/RunLoop.h"

#include <QLineF>

#include <algorithm>

namespace platform {
namespace {

QPointF centroid(const std::vector<QPointF>& points) {
    QPointF sum;
    for (const QPointF& point : points) {
        sum += point;
    }
    return points.empty() ? sum : sum / static_cast<double>(points.size());
}

}  // namespace

std::shared_ptr<TapGestureRecognizer> TapGestureRecognizer::create() {
    return std::shared_ptr<TapGestureRecognizer>(new TapGestureRecognizer());
}

TapGestureRecognizer::~TapGestureRecognizer() {
    RunLoop::main().cancelPreviousPerformRequests(this);
}

void TapGestureRecognizer::handleTouchesBegan(const std::vector<Touch>& touches) {
    RunLoop::main().cancelPreviousPerformRequests(this);
    if (_fingersDown == 0) {
        _fingersInTap = 0;
        _tapStarts.clear();
    }
    for (const Touch& touch : touches) {
        _tapStarts.push_back(touch.locationInWindow);
    }
    _fingersDown += touches.size();
    _fingersInTap = std::max(_fingersInTap, _fingersDown);
    const bool farFromFirstTap =
        _firstTap && QLineF(*_firstTap, centroid(_tapStarts)).length() > kMaximumTapDistance;
    if (farFromFirstTap || _fingersInTap > static_cast<std::size_t>(_touchesRequired)) {
        fail();
    }
}

void TapGestureRecognizer::handleTouchesMoved(const std::vector<Touch>& touches) {
    if (movedTooFar(touches)) {
        fail();
    }
}

void TapGestureRecognizer::handleTouchesEnded(const std::vector<Touch>& touches) {
    if (movedTooFar(touches)) {
        fail();
        return;
    }
    _fingersDown -= std::min(_fingersDown, touches.size());
    if (_fingersDown > 0) {
        return;
    }
    if (_fingersInTap != static_cast<std::size_t>(_touchesRequired)) {
        fail();
        return;
    }
    if (!_firstTap) {
        _firstTap = centroid(_tapStarts);
    }
    if (++_taps >= _tapsRequired) {
        setState(State::Ended);
        return;
    }
    std::weak_ptr<GestureRecognizer> weak = weak_from_this();
    RunLoop::main().performAfterDelay(this, kMaximumTapInterval, [weak] {
        const auto self = std::static_pointer_cast<TapGestureRecognizer>(weak.lock());
        if (self && self->state() == State::Possible) {
            self->fail();
        }
    });
}

bool TapGestureRecognizer::movedTooFar(const std::vector<Touch>& touches) const {
    return std::any_of(touches.begin(), touches.end(), [this](const Touch& touch) {
        return std::none_of(_tapStarts.begin(), _tapStarts.end(), [&](const QPointF& start) {
            return QLineF(start, touch.locationInWindow).length() <= kAllowableMovement;
        });
    });
}

void TapGestureRecognizer::fail() {
    RunLoop::main().cancelPreviousPerformRequests(this);
    setState(State::Failed);
}

void TapGestureRecognizer::resetProgress() {
    RunLoop::main().cancelPreviousPerformRequests(this);
    _taps = 0;
    _fingersDown = 0;
    _fingersInTap = 0;
    _tapStarts.clear();
    _firstTap.reset();
}

}  // namespace platform
