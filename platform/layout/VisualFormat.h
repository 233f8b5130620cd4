#pragma once

#include "platform/layout/Constraint.h"
#include "platform/layout/LayoutError.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <vector>

namespace platform::layout {

/// The attributes of a layout item, numbered as the platform numbers them.
enum class LayoutAttribute {
    NotAnAttribute = 0,
    Left = 1,
    Right = 2,
    Top = 3,
    Bottom = 4,
    Leading = 5,
    Trailing = 6,
    Width = 7,
    Height = 8,
    CenterX = 9,
    CenterY = 10,
};

/// The attribute's name as formats and descriptions print it ("centerX").
QString attributeName(LayoutAttribute attribute);

/// Options of a visual format, numbered as the platform numbers them: an
/// alignment bit is `1 << attribute`, the direction sits in bits 16 and 17.
enum FormatOption : unsigned {
    AlignAllLeft = 1U << 1,
    AlignAllRight = 1U << 2,
    AlignAllTop = 1U << 3,
    AlignAllBottom = 1U << 4,
    AlignAllLeading = 1U << 5,
    AlignAllTrailing = 1U << 6,
    AlignAllCenterX = 1U << 9,
    AlignAllCenterY = 1U << 10,
    AlignmentMask = 0xFFFFU,
    /// Horizontal formats use leading and trailing edges (the default)...
    DirectionLeadingToTrailing = 0U,
    /// ...or left and right, laid out left to right...
    DirectionLeftToRight = 1U << 16,
    /// ...or right to left.
    DirectionRightToLeft = 2U << 16,
    DirectionMask = 3U << 16,
};

/// One side of a constraint description: nothing, the superview (`|`), or a
/// view by its bound name.
struct FormatItem {
    enum class Kind { None, Superview, View };

    static FormatItem none() { return {}; }
    static FormatItem superview() { return {Kind::Superview, {}}; }
    static FormatItem view(QString name) { return {Kind::View, std::move(name)}; }

    /// "|" for the superview, the name for a view, "" for none.
    QString toString() const;
    friend bool operator==(const FormatItem&, const FormatItem&) = default;

    Kind kind = Kind::None;
    QString name;
};

/// A constraint described, not yet bound to views:
/// `first.attribute relation second.attribute * multiplier + constant` at a
/// priority (1000 is required). With no second item it reads
/// `first.attribute relation constant`.
struct FormatConstraint {
    FormatItem firstItem;
    LayoutAttribute firstAttribute = LayoutAttribute::NotAnAttribute;
    Relation relation = Relation::Equal;
    FormatItem secondItem;
    LayoutAttribute secondAttribute = LayoutAttribute::NotAnAttribute;
    double multiplier = 1.0;
    double constant = 0.0;
    double priority = 1000.0;

    /// "b.leading == a.trailing + 8", "a.width >= 50 @750".
    QString toString() const;
    friend bool operator==(const FormatConstraint&, const FormatConstraint&) = default;
};

/// A visual format string that does not parse. The message names the
/// problem, repeats the format and puts a caret under the position.
class VisualFormatError : public LayoutError {
public:
    VisualFormatError(const QString& format, qsizetype position, const QString& problem);

    const QString& format() const { return _format; }
    qsizetype position() const { return _position; }
    const QString& problem() const { return _problem; }

private:
    QString _format;
    qsizetype _position;
    QString _problem;
};

/// Parses a visual format such as "H:|-[cancel(==64)]-(>=8)-[shutter]-|" into
/// constraint descriptions. `metrics` maps names to numbers usable wherever a
/// number is; `viewNames` are the names views may be referred to by (see
/// `bindingNames`). Spacings read between neighbours (the later item's edge
/// against the earlier one's); "-" alone is the standard spacing, 8 between
/// views and 20 to the superview; alignment options add, for each pair of
/// neighbouring views, the later one's attribute equal to the earlier one's.
/// Throws VisualFormatError.
std::vector<FormatConstraint> parseVisualFormat(const QString& format, unsigned options = 0,
                                                const QVariantMap& metrics = {},
                                                const QStringList& viewNames = {});

/// The names a list of variables binds, as the platform's bindings macro
/// names them: "a, b, _c" gives "a", "b", "_c". Throws LayoutError for an
/// entry that is not a plain name.
QStringList bindingNames(const QString& list);

}  // namespace platform::layout
