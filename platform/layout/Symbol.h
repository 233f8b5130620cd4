#pragma once

#include <cstdint>

namespace platform::layout::detail {

/// Below this magnitude a coefficient or constant counts as zero.
inline constexpr double kEpsilon = 1e-8;

inline bool nearZero(double value) {
    return value < kEpsilon && value > -kEpsilon;
}

/// A column of the tableau: a variable of the user's (external), a slack of
/// an inequality, an error of a constraint that is not required, or a dummy
/// that marks a required equality. Slacks and errors are never negative;
/// dummies are always zero.
struct Symbol {
    enum class Kind : std::uint8_t { Invalid, External, Slack, Error, Dummy };

    std::uint32_t id = 0;
    Kind kind = Kind::Invalid;

    bool valid() const { return kind != Kind::Invalid; }
    bool isExternal() const { return kind == Kind::External; }
    bool isDummy() const { return kind == Kind::Dummy; }
    bool isRestricted() const { return kind == Kind::Slack || kind == Kind::Error; }

    friend bool operator==(Symbol a, Symbol b) { return a.id == b.id; }
};

}  // namespace platform::layout::detail
