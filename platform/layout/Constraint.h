#pragma once

#include "platform/layout/Expression.h"
#include "platform/layout/Strength.h"

#include <QString>

#include <memory>

namespace platform::layout {

/// How a constraint's expression relates to zero, numbered as the platform
/// numbers layout relations.
enum class Relation { LessThanOrEqual = -1, Equal = 0, GreaterThanOrEqual = 1 };

namespace detail {
struct ConstraintAccess;
}

/// A linear constraint `expression relation 0` with a strength. Copies are
/// cheap and denote the same constraint; identity is the handle, so two
/// constraints built alike are still two constraints.
class Constraint {
public:
    Constraint(const Expression& expression, Relation relation,
               Strength strength = Strength::required);
    /// The same expression and relation with another strength: a new constraint.
    Constraint(const Constraint& other, Strength strength);

    const Expression& expression() const { return _data->expression; }
    Relation relation() const { return _data->relation; }
    Strength strength() const { return _data->strength; }

    bool is(const Constraint& other) const { return _data == other._data; }
    /// A key for maps: equal exactly when `is` holds.
    const void* key() const { return _data.get(); }

    /// Whether the variables' current values break the constraint.
    bool violated() const;

    /// Reads as written: terms with a positive coefficient on the left, the
    /// others moved to the right ("left + 20 == width"); a priority below
    /// required follows as " @750".
    QString toString() const;

private:
    friend struct detail::ConstraintAccess;

    struct Data {
        Expression expression;
        Relation relation;
        Strength strength;
    };
    std::shared_ptr<Data> _data;
};

Constraint operator==(const Expression& a, const Expression& b);
Constraint operator<=(const Expression& a, const Expression& b);
Constraint operator>=(const Expression& a, const Expression& b);
/// `(x >= 0) | Strength::low`: the constraint with another strength.
Constraint operator|(const Constraint& constraint, Strength strength);

}  // namespace platform::layout
