#pragma once

#include "Quad.h"

#include <optional>

namespace scanner {

/// Turns per-frame detections into the outline to show: it steadies jitter,
/// follows real motion, ignores a one-frame flash (a detection appears only
/// after it is seen in several frames running and disappears only after
/// several frames without it) and says how long the outline has stayed
/// put. Not thread-safe: feed it from one queue.
class OutlineSmoother {
public:
    struct Settings {
        int framesToShow = 2;           ///< detections running before an outline shows
        int framesToHide = 4;           ///< misses running before it goes
        double steadyTolerance = 0.03;  ///< movement, over the outline's diagonal, still steady
    };

    OutlineSmoother() : OutlineSmoother(Settings{}) {}
    explicit OutlineSmoother(Settings settings);

    /// One frame's detection (or none) at time seconds; returns the outline
    /// to show now.
    const std::optional<Quad>& update(const std::optional<Quad>& detected, double seconds);

    const std::optional<Quad>& outline() const { return _shown; }
    /// How long, up to now, the shown outline has stayed within the steady
    /// tolerance; 0 without an outline.
    double steadySeconds(double now) const;
    /// How long an outline has been shown without a break; 0 without one.
    double shownSeconds(double now) const;
    void reset();

private:
    void show(const Quad& quad, double seconds);

    Settings _settings;
    std::optional<Quad> _shown;
    std::optional<Quad> _pending;
    int _pendingCount = 0;
    int _misses = 0;
    Quad _anchor{};
    double _steadySince = 0;
    double _shownSince = 0;
};

}  // namespace scanner
