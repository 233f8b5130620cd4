#pragma once

#include "platform/layout/VisualFormat.h"

#include <QString>
#include <QVariantMap>

#include <map>
#include <memory>
#include <vector>

namespace platform {

class View;
using ViewPtr = std::shared_ptr<View>;

/// The platform's layout attributes, with its numbers (shared with the
/// visual-format parser).
using LayoutAttribute = layout::LayoutAttribute;

enum class LayoutRelation { LessThanOrEqual = -1, Equal = 0, GreaterThanOrEqual = 1 };

/// Layout priorities: 1 to 1000, where 1000 is required.
namespace layout_priority {
inline constexpr float kRequired = 1000.0f;
inline constexpr float kDefaultHigh = 750.0f;
inline constexpr float kDefaultLow = 250.0f;
inline constexpr float kFittingSizeLevel = 50.0f;
}  // namespace layout_priority

/// Visual-format options: align all views of a format on one attribute.
namespace format_options {
inline constexpr unsigned kAlignAllCenterX = 1u << 9;
inline constexpr unsigned kAlignAllCenterY = 1u << 10;
}  // namespace format_options

/// One linear relation between two attributes of views:
/// first.attribute1 (relation) second.attribute2 × multiplier + constant.
///
/// A constraint takes effect when a view holds it (View::addConstraint) or
/// when it is activated (added to the nearest common ancestor of its items).
/// The constant may change at any time and takes effect at the next layout
/// pass; the priority may change unless that turns a held constraint from
/// required to optional or back. Items are held weakly. Main thread only.
class LayoutConstraint : public std::enable_shared_from_this<LayoutConstraint> {
public:
    static std::shared_ptr<LayoutConstraint> create(const ViewPtr& firstItem,
                                                    LayoutAttribute firstAttribute,
                                                    LayoutRelation relation,
                                                    const ViewPtr& secondItem,
                                                    LayoutAttribute secondAttribute,
                                                    double multiplier, double constant);

    /// The constraints a visual format string describes, for the views bound
    /// to its names. Throws VisualFormatError (naming the format and the
    /// position) for a malformed string.
    static std::vector<std::shared_ptr<LayoutConstraint>> constraintsWithVisualFormat(
        const QString& format, unsigned options, const QVariantMap& metrics,
        const std::map<QString, ViewPtr>& views);

    static void activateConstraints(const std::vector<std::shared_ptr<LayoutConstraint>>& list);
    static void deactivateConstraints(const std::vector<std::shared_ptr<LayoutConstraint>>& list);

    ViewPtr firstItem() const { return _firstItem.lock(); }
    LayoutAttribute firstAttribute() const { return _firstAttribute; }
    LayoutRelation relation() const { return _relation; }
    ViewPtr secondItem() const { return _secondItem.lock(); }
    LayoutAttribute secondAttribute() const { return _secondAttribute; }
    double multiplier() const { return _multiplier; }

    double constant() const { return _constant; }
    void setConstant(double constant);
    float priority() const { return _priority; }
    void setPriority(float priority);
    bool isActive() const;
    void setActive(bool active);
    const QString& identifier() const { return _identifier; }
    void setIdentifier(const QString& identifier) { _identifier = identifier; }

    /// The view that holds the constraint, if any.
    ViewPtr owner() const { return _owner.lock(); }

    /// Readable form, e.g. "Label.top == View.top + 20 @750".
    QString description() const;

private:
    friend class View;
    LayoutConstraint() = default;

    std::weak_ptr<View> _firstItem;
    LayoutAttribute _firstAttribute = LayoutAttribute::NotAnAttribute;
    LayoutRelation _relation = LayoutRelation::Equal;
    std::weak_ptr<View> _secondItem;
    LayoutAttribute _secondAttribute = LayoutAttribute::NotAnAttribute;
    double _multiplier = 1.0;
    double _constant = 0.0;
    float _priority = layout_priority::kRequired;
    QString _identifier;
    std::weak_ptr<View> _owner;
};

using LayoutConstraintPtr = std::shared_ptr<LayoutConstraint>;

}  // namespace platform
