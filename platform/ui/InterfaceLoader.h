#pragma once

#include "platform/ui/GestureRecognizer.h"
#include "platform/ui/LayoutConstraint.h"
#include "platform/ui/View.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace platform {

class Bundle;

/// What an interface file hands its owner: named views (outlets), named
/// constraints and the actions its gesture recognisers send. Each call
/// answers whether the owner knows the name; the defaults know none.
class InterfaceOwner {
public:
    virtual ~InterfaceOwner() = default;
    /// Takes the view for outlet name; a null view clears it.
    virtual bool setOutlet(const QString& /*name*/, const ViewPtr& /*view*/) { return false; }
    virtual bool setConstraintOutlet(const QString& /*name*/,
                                     const LayoutConstraintPtr& /*constraint*/) {
        return false;
    }
    /// The action called name, or an empty function for an unknown name.
    virtual GestureRecognizer::Action actionNamed(const QString& /*name*/) { return {}; }
};

/// Builds view trees from interface files, like the platform's nib loading.
///
/// An interface file is `<name>.json` in a bundle: an object whose
/// "objects" array lists the top-level views. A view is an object with
///   "type"      View, Label, ImageView, ScrollView, Button or a registered
///               type (required);
///   "id"        the name constraints use for it (default: its outlet);
///   "outlet"    the owner's outlet that receives it;
///   "frame"     [x, y, width, height];
///   "backgroundColor", "alpha", "hidden", "clipsToBounds", "cornerRadius",
///   "translatesAutoresizingMaskIntoConstraints", "autoresizingMask",
///   "userInteractionEnabled", "tag", "contentMode" (a number or a name
///   such as "scaleAspectFit");
///   "accessibility" {"isElement", "label", "hint", "value"};
///   for labels: "text", "font" {"family" (default: the system font),
///   "size", "weight" (regular, bold, light…)}, "textColor", "textAlignment"
///   (left, center, right, justified, natural or a number), "numberOfLines";
///   for image views: "image" (a name in the bundle);
///   for scroll views: "contentSize" [width, height];
///   for buttons: "buttonType" (custom or system), "title", "titleColor",
///   "image" (normal state);
///   "subviews"  [views], back to front;
///   "constraints" [constraints this view holds];
///   "gestures"  [recognisers attached to this view].
/// Colours are "#rrggbb", "#aarrggbb", a colour name, "clear", or
/// [red, green, blue(, alpha)] in 0…1. A constraint is an object with "item",
/// "attribute", "relation" ("==", "<=", ">="; default "=="), "item2",
/// "attribute2", "multiplier" (1), "constant" (0), "priority" (1000),
/// "identifier" and "outlet"; items name views by id, attributes are the
/// platform's names (left, right, top, bottom, leading, trailing, width,
/// height, centerX, centerY). A gesture recogniser is {"type": "tap",
/// "taps", "touches", "cancelsTouchesInView", "delaysTouchesEnded",
/// "action"}; its action comes from the owner.
///
/// A file that cannot be read or parsed, an unknown type, key, view name or
/// attribute, a value of the wrong kind, or an outlet or action the owner
/// does not know fails the whole load: it logs one line naming the file and
/// the problem and returns an empty list; outlets already handed over are
/// cleared again. Main thread only.
class InterfaceLoader {
public:
    using ViewFactory = std::function<ViewPtr()>;

    /// Loads `<name>.json` from bundle with owner (may be null when the file
    /// has no outlets or actions) and returns its top-level views in order.
    static std::vector<ViewPtr> load(const QString& name, const std::shared_ptr<Bundle>& bundle,
                                     InterfaceOwner* owner);

    /// Makes `type` usable in interface files; replaces an earlier
    /// registration of the same name, built-in types included.
    static void registerViewType(const QString& type, ViewFactory factory);
    /// Forgets a registered type (built-in types come back to their own).
    static void unregisterViewType(const QString& type);
    static bool isViewTypeRegistered(const QString& type);
};

}  // namespace platform
