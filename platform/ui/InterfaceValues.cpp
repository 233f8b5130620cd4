#include "platform/ui/InterfaceValues.h"

#include "platform/environment/Environment.h"
#include "platform/graphics/Image.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"
#include "platform/ui/ScrollView.h"

#include <QJsonArray>

#include <array>
#include <cmath>
#include <map>

namespace platform::interface_values {
namespace {

[[noreturn]] void fail(const QString& key, const QString& expected) {
    throw InterfaceProblem{QStringLiteral("'%1' must be %2").arg(key, expected)};
}

// A name from a fixed list, or the number the platform gives it.
template <typename Enum, std::size_t N>
Enum named(const QJsonValue& value, const QString& key,
           const std::array<std::pair<const char*, Enum>, N>& names) {
    if (value.isDouble()) {
        const int n = integer(value, key);
        for (const auto& [name, e] : names) {
            if (static_cast<int>(e) == n) {
                return e;
            }
        }
    } else if (value.isString()) {
        for (const auto& [name, e] : names) {
            if (value.toString().compare(QLatin1String(name), Qt::CaseInsensitive) == 0) {
                return e;
            }
        }
    }
    QStringList known;
    for (const auto& entry : names) {
        known << QLatin1String(entry.first);
    }
    fail(key, QStringLiteral("one of %1").arg(known.join(QStringLiteral(", "))));
}

constexpr std::array<std::pair<const char*, ContentMode>, 13> kContentModes{{
    {"scaleToFill", ContentMode::ScaleToFill},
    {"scaleAspectFit", ContentMode::ScaleAspectFit},
    {"scaleAspectFill", ContentMode::ScaleAspectFill},
    {"redraw", ContentMode::Redraw},
    {"center", ContentMode::Center},
    {"top", ContentMode::Top},
    {"bottom", ContentMode::Bottom},
    {"left", ContentMode::Left},
    {"right", ContentMode::Right},
    {"topLeft", ContentMode::TopLeft},
    {"topRight", ContentMode::TopRight},
    {"bottomLeft", ContentMode::BottomLeft},
    {"bottomRight", ContentMode::BottomRight},
}};

constexpr std::array<std::pair<const char*, TextAlignment>, 5> kAlignments{{
    {"left", TextAlignment::Left},
    {"center", TextAlignment::Center},
    {"right", TextAlignment::Right},
    {"justified", TextAlignment::Justified},
    {"natural", TextAlignment::Natural},
}};

constexpr std::array<std::pair<const char*, LayoutAttribute>, 11> kAttributes{{
    {"notAnAttribute", LayoutAttribute::NotAnAttribute},
    {"left", LayoutAttribute::Left},
    {"right", LayoutAttribute::Right},
    {"top", LayoutAttribute::Top},
    {"bottom", LayoutAttribute::Bottom},
    {"leading", LayoutAttribute::Leading},
    {"trailing", LayoutAttribute::Trailing},
    {"width", LayoutAttribute::Width},
    {"height", LayoutAttribute::Height},
    {"centerX", LayoutAttribute::CenterX},
    {"centerY", LayoutAttribute::CenterY},
}};

constexpr std::array<std::pair<const char*, LayoutRelation>, 6> kRelations{{
    {"==", LayoutRelation::Equal},
    {"<=", LayoutRelation::LessThanOrEqual},
    {">=", LayoutRelation::GreaterThanOrEqual},
    {"equal", LayoutRelation::Equal},
    {"lessThanOrEqual", LayoutRelation::LessThanOrEqual},
    {"greaterThanOrEqual", LayoutRelation::GreaterThanOrEqual},
}};

constexpr std::array<std::pair<const char*, ButtonType>, 2> kButtonTypes{{
    {"custom", ButtonType::Custom},
    {"system", ButtonType::System},
}};

const QStringList kWeights = {
    QStringLiteral("thin"),     QStringLiteral("ultralight"), QStringLiteral("extralight"),
    QStringLiteral("light"),    QStringLiteral("regular"),    QStringLiteral("medium"),
    QStringLiteral("semibold"), QStringLiteral("demibold"),   QStringLiteral("bold"),
    QStringLiteral("heavy"),    QStringLiteral("black"),
};

QFont font(const QJsonValue& value, const QString& key) {
    const QJsonObject description = object(value, key);
    for (auto it = description.begin(); it != description.end(); ++it) {
        if (it.key() != QLatin1String("family") && it.key() != QLatin1String("size") &&
            it.key() != QLatin1String("weight")) {
            throw InterfaceProblem{QStringLiteral("unknown font key '%1'").arg(it.key())};
        }
    }
    const double size = description.contains(QLatin1String("size"))
                            ? number(description.value(QLatin1String("size")), key + ".size")
                            : 17.0;
    const QString weight = description.contains(QLatin1String("weight"))
                               ? string(description.value(QLatin1String("weight")), key + ".weight")
                               : QStringLiteral("regular");
    if (!kWeights.contains(weight.toLower())) {
        fail(key + ".weight", QStringLiteral("one of %1").arg(kWeights.join(QStringLiteral(", "))));
    }
    const QString family = description.contains(QLatin1String("family"))
                               ? string(description.value(QLatin1String("family")), key + ".family")
                               : QString();
    // An unknown family falls back to the system one with the same weight.
    return fontWithName(
        (family.isEmpty() ? QStringLiteral("System") : family) + QLatin1Char('-') + weight, size);
}

template <typename T>
T& as(View& view, const QString& key, const char* kind) {
    auto* typed = dynamic_cast<T*>(&view);
    if (typed == nullptr) {
        throw InterfaceProblem{QStringLiteral("'%1' does not apply to %2 (only to %3)")
                                   .arg(key, view.typeName(), QLatin1String(kind))};
    }
    return *typed;
}

struct Context {
    const std::shared_ptr<Bundle>& bundle;
    const std::function<void(const QString&)>& warn;
};

ImagePtr image(const QJsonValue& value, const QString& key, const Context& context) {
    const QString name = string(value, key);
    auto found = Image::named(name, context.bundle, Screen::main().scale());
    if (!found) {
        context.warn(QStringLiteral("no image named '%1'; the view shows none").arg(name));
    }
    return found;
}

void applyAccessibility(View& view, const QJsonValue& value) {
    const QJsonObject a = object(value, QStringLiteral("accessibility"));
    for (auto it = a.begin(); it != a.end(); ++it) {
        const QString key = QStringLiteral("accessibility.") + it.key();
        if (it.key() == QLatin1String("isElement")) {
            view.setIsAccessibilityElement(boolean(it.value(), key));
        } else if (it.key() == QLatin1String("label")) {
            view.setAccessibilityLabel(string(it.value(), key));
        } else if (it.key() == QLatin1String("hint")) {
            view.setAccessibilityHint(string(it.value(), key));
        } else if (it.key() == QLatin1String("value")) {
            view.setAccessibilityValue(string(it.value(), key));
        } else {
            throw InterfaceProblem{QStringLiteral("unknown key '%1'").arg(key)};
        }
    }
}

using Setter = std::function<void(View&, const QJsonValue&, const QString&, const Context&)>;

const std::map<QString, Setter>& setters() {
    static const std::map<QString, Setter> table = {
        {QStringLiteral("frame"), [](View& v, const QJsonValue& j, const QString& k,
                                     const Context&) { v.setFrame(rect(j, k)); }},
        {QStringLiteral("backgroundColor"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.setBackgroundColor(color(j, k));
         }},
        {QStringLiteral("alpha"), [](View& v, const QJsonValue& j, const QString& k,
                                     const Context&) { v.setAlpha(number(j, k)); }},
        {QStringLiteral("hidden"), [](View& v, const QJsonValue& j, const QString& k,
                                      const Context&) { v.setHidden(boolean(j, k)); }},
        {QStringLiteral("clipsToBounds"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.setClipsToBounds(boolean(j, k));
         }},
        {QStringLiteral("cornerRadius"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.layer()->setCornerRadius(number(j, k));
         }},
        {QStringLiteral("translatesAutoresizingMaskIntoConstraints"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.setTranslatesAutoresizingMaskIntoConstraints(boolean(j, k));
         }},
        {QStringLiteral("autoresizingMask"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.setAutoresizingMask(static_cast<unsigned>(integer(j, k)));
         }},
        {QStringLiteral("userInteractionEnabled"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.setUserInteractionEnabled(boolean(j, k));
         }},
        {QStringLiteral("tag"), [](View& v, const QJsonValue& j, const QString& k,
                                   const Context&) { v.setTag(integer(j, k)); }},
        {QStringLiteral("contentMode"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             v.setContentMode(named(j, k, kContentModes));
         }},
        {QStringLiteral("accessibility"), [](View& v, const QJsonValue& j, const QString&,
                                             const Context&) { applyAccessibility(v, j); }},
        {QStringLiteral("text"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<Label>(v, k, "Label").setText(string(j, k));
         }},
        {QStringLiteral("font"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             if (auto* button = dynamic_cast<Button*>(&v)) {
                 button->titleLabel()->setFont(font(j, k));
             } else {
                 as<Label>(v, k, "Label, Button").setFont(font(j, k));
             }
         }},
        {QStringLiteral("textColor"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<Label>(v, k, "Label").setTextColor(color(j, k));
         }},
        {QStringLiteral("textAlignment"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<Label>(v, k, "Label").setTextAlignment(named(j, k, kAlignments));
         }},
        {QStringLiteral("numberOfLines"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<Label>(v, k, "Label").setNumberOfLines(integer(j, k));
         }},
        {QStringLiteral("image"),
         [](View& v, const QJsonValue& j, const QString& k, const Context& c) {
             if (auto* button = dynamic_cast<Button*>(&v)) {
                 button->setImage(image(j, k, c), control_state::kNormal);
             } else {
                 as<ImageView>(v, k, "ImageView, Button").setImage(image(j, k, c));
             }
         }},
        {QStringLiteral("contentSize"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<ScrollView>(v, k, "ScrollView").setContentSize(size(j, k));
         }},
        {QStringLiteral("buttonType"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             // Chosen when the button is made; here it is only checked.
             (void)named(j, k, kButtonTypes);
             as<Button>(v, k, "Button");
         }},
        {QStringLiteral("title"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<Button>(v, k, "Button").setTitle(string(j, k), control_state::kNormal);
         }},
        {QStringLiteral("titleColor"),
         [](View& v, const QJsonValue& j, const QString& k, const Context&) {
             as<Button>(v, k, "Button").setTitleColor(color(j, k), control_state::kNormal);
         }},
    };
    return table;
}

}  // namespace

double number(const QJsonValue& value, const QString& key) {
    if (!value.isDouble() || !std::isfinite(value.toDouble())) {
        fail(key, QStringLiteral("a number"));
    }
    return value.toDouble();
}

int integer(const QJsonValue& value, const QString& key) {
    const double n = number(value, key);
    if (n != std::floor(n) || std::abs(n) > 2147483647.0) {
        fail(key, QStringLiteral("a whole number"));
    }
    return static_cast<int>(n);
}

bool boolean(const QJsonValue& value, const QString& key) {
    if (!value.isBool()) {
        fail(key, QStringLiteral("true or false"));
    }
    return value.toBool();
}

QString string(const QJsonValue& value, const QString& key) {
    if (!value.isString()) {
        fail(key, QStringLiteral("a string"));
    }
    return value.toString();
}

QJsonObject object(const QJsonValue& value, const QString& key) {
    if (!value.isObject()) {
        fail(key, QStringLiteral("an object"));
    }
    return value.toObject();
}

QRectF rect(const QJsonValue& value, const QString& key) {
    const QJsonArray a = value.toArray();
    if (!value.isArray() || a.size() != 4) {
        fail(key, QStringLiteral("[x, y, width, height]"));
    }
    return {number(a[0], key), number(a[1], key), number(a[2], key), number(a[3], key)};
}

QSizeF size(const QJsonValue& value, const QString& key) {
    const QJsonArray a = value.toArray();
    if (!value.isArray() || a.size() != 2) {
        fail(key, QStringLiteral("[width, height]"));
    }
    return {number(a[0], key), number(a[1], key)};
}

QColor color(const QJsonValue& value, const QString& key) {
    if (value.isString()) {
        if (value.toString() == QLatin1String("clear")) {
            return Qt::transparent;
        }
        const QColor named = QColor::fromString(value.toString());
        if (named.isValid()) {
            return named;
        }
    } else if (value.isArray()) {
        const QJsonArray a = value.toArray();
        if (a.size() == 3 || a.size() == 4) {
            std::array<double, 4> c{0.0, 0.0, 0.0, 1.0};
            for (qsizetype i = 0; i < a.size(); ++i) {
                c[static_cast<std::size_t>(i)] = number(a[i], key);
                if (c[static_cast<std::size_t>(i)] < 0.0 || c[static_cast<std::size_t>(i)] > 1.0) {
                    fail(key, QStringLiteral("components between 0 and 1"));
                }
            }
            return QColor::fromRgbF(static_cast<float>(c[0]), static_cast<float>(c[1]),
                                    static_cast<float>(c[2]), static_cast<float>(c[3]));
        }
    }
    fail(key, QStringLiteral("a colour (\"#rrggbb\", a name, \"clear\" or [r, g, b, a])"));
}

LayoutAttribute attribute(const QJsonValue& value, const QString& key) {
    return named(value, key, kAttributes);
}

LayoutRelation relation(const QJsonValue& value, const QString& key) {
    return named(value, key, kRelations);
}

bool isStructuralKey(const QString& key) {
    static const QStringList keys = {
        QStringLiteral("type"),     QStringLiteral("id"),          QStringLiteral("outlet"),
        QStringLiteral("subviews"), QStringLiteral("constraints"), QStringLiteral("gestures"),
    };
    return keys.contains(key);
}

void applyProperties(View& view, const QJsonObject& description,
                     const std::shared_ptr<Bundle>& bundle,
                     const std::function<void(const QString&)>& warn) {
    const Context context{bundle, warn};
    // The frame first, so that sizes set later (content sizes, masks) see it.
    if (description.contains(QLatin1String("frame"))) {
        setters().at(QStringLiteral("frame"))(view, description.value(QLatin1String("frame")),
                                              QStringLiteral("frame"), context);
    }
    for (auto it = description.begin(); it != description.end(); ++it) {
        if (isStructuralKey(it.key()) || it.key() == QLatin1String("frame")) {
            continue;
        }
        const auto setter = setters().find(it.key());
        if (setter == setters().end()) {
            throw InterfaceProblem{
                QStringLiteral("unknown property '%1' for %2").arg(it.key(), view.typeName())};
        }
        setter->second(view, it.value(), it.key(), context);
    }
}

}  // namespace platform::interface_values
