#include "OutlineSmoother.h"

#include <QLineF>

#include <algorithm>

namespace scanner {
namespace {

double diagonal(const Quad& quad) {
    return std::max(QLineF(quad[0], quad[2]).length(), QLineF(quad[1], quad[3]).length());
}

Quad blend(const Quad& from, const Quad& to, double share) {
    Quad out;
    for (int i = 0; i < 4; ++i) {
        out[i] = from[i] + (to[i] - from[i]) * share;
    }
    return out;
}

}  // namespace

OutlineSmoother::OutlineSmoother(Settings settings) : _settings(settings) {}

void OutlineSmoother::reset() {
    _shown.reset();
    _pending.reset();
    _pendingCount = 0;
    _misses = 0;
}

void OutlineSmoother::show(const Quad& quad, double seconds) {
    if (!_shown) {
        _shownSince = seconds;
    }
    _shown = quad;
    _anchor = quad;
    _steadySince = seconds;
}

const std::optional<Quad>& OutlineSmoother::update(const std::optional<Quad>& detected,
                                                   double seconds) {
    if (!detected) {
        _pending.reset();
        _pendingCount = 0;
        if (_shown && ++_misses >= _settings.framesToHide) {
            _shown.reset();
            _misses = 0;
        }
        return _shown;
    }
    if (_shown) {
        const double size = std::max(1.0, diagonal(*_shown));
        const double moved = largestCornerDistance(*_shown, *detected);
        if (moved < 0.12 * size) {
            // Small changes are mostly jitter: move part of the way. Larger
            // ones are the page or the camera moving: follow quickly.
            const double share = std::clamp(moved / (0.04 * size), 0.3, 1.0);
            _shown = blend(*_shown, *detected, share);
            _misses = 0;
            _pending.reset();
            _pendingCount = 0;
            if (largestCornerDistance(*_shown, _anchor) > _settings.steadyTolerance * size) {
                _anchor = *_shown;
                _steadySince = seconds;
            }
            return _shown;
        }
        // Somewhere else entirely: the shown outline loses this frame.
        if (++_misses >= _settings.framesToHide) {
            _shown.reset();
            _misses = 0;
        }
    }
    if (_pending &&
        largestCornerDistance(*_pending, *detected) < 0.12 * std::max(1.0, diagonal(*detected))) {
        ++_pendingCount;
    } else {
        _pendingCount = 1;
    }
    _pending = detected;
    if (_pendingCount >= _settings.framesToShow) {
        _shown.reset();
        show(*detected, seconds);
        _misses = 0;
        _pending.reset();
        _pendingCount = 0;
    }
    return _shown;
}

double OutlineSmoother::steadySeconds(double now) const {
    return _shown ? std::max(0.0, now - _steadySince) : 0.0;
}

double OutlineSmoother::shownSeconds(double now) const {
    return _shown ? std::max(0.0, now - _shownSince) : 0.0;
}

}  // namespace scanner
