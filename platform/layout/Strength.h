#pragma once

namespace platform::layout {

/// How strongly a constraint holds, as a layout priority from 0 to 1000.
/// 1000 is required: the solver satisfies it or refuses it. Below that the
/// priorities are levels, not weights: the solver satisfies higher levels as
/// well as it can first, so one constraint of a higher priority wins over any
/// number of lower ones, and only constraints of one level trade errors.
class Strength {
public:
    static const Strength required;
    static const Strength high;
    static const Strength low;
    static const Strength fitting;

    /// A priority, clamped to [0, 1000].
    constexpr Strength(double priority = 1000.0)
        : _priority(priority < 0.0 ? 0.0 : (priority > 1000.0 ? 1000.0 : priority)) {}

    constexpr double priority() const { return _priority; }
    constexpr bool isRequired() const { return _priority >= 1000.0; }

    friend constexpr bool operator==(Strength a, Strength b) { return a._priority == b._priority; }

private:
    double _priority;
};

inline constexpr Strength Strength::required{1000.0};
inline constexpr Strength Strength::high{750.0};
inline constexpr Strength Strength::low{250.0};
inline constexpr Strength Strength::fitting{50.0};

}  // namespace platform::layout
