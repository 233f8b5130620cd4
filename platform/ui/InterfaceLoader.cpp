#include "platform/ui/InterfaceLoader.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Log.h"
#include "platform/ui/Button.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/InterfaceValues.h"
#include "platform/ui/Label.h"
#include "platform/ui/ScrollView.h"
#include "platform/ui/TapGestureRecognizer.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <map>

namespace platform {
namespace {

namespace values = interface_values;

// Built-in types that read a key of their description when they are made.
using Maker = std::function<ViewPtr(const QJsonObject& description)>;

const std::map<QString, Maker>& builtInTypes() {
    static const std::map<QString, Maker> types = {
        {QStringLiteral("View"), [](const QJsonObject&) { return View::create(); }},
        {QStringLiteral("Label"), [](const QJsonObject&) { return Label::create(); }},
        {QStringLiteral("ImageView"),
         [](const QJsonObject&) { return ImageView::create(QRectF()); }},
        {QStringLiteral("ScrollView"), [](const QJsonObject&) { return ScrollView::create(); }},
        {QStringLiteral("Button"),
         [](const QJsonObject& d) {
             const bool system =
                 d.value(QLatin1String("buttonType")).toString() == QLatin1String("system") ||
                 d.value(QLatin1String("buttonType")).toInt(0) == int(ButtonType::System);
             return Button::create(system ? ButtonType::System : ButtonType::Custom);
         }},
    };
    return types;
}

// Types registered by the component; they shadow built-in ones.
std::map<QString, InterfaceLoader::ViewFactory>& registeredTypes() {
    static std::map<QString, InterfaceLoader::ViewFactory> types;
    return types;
}

QString key(const char* name) {
    return QString::fromLatin1(name);
}

QJsonArray arrayAt(const QJsonObject& object, const char* name) {
    const QJsonValue value = object.value(QLatin1String(name));
    if (value.isUndefined()) {
        return {};
    }
    if (!value.isArray()) {
        throw InterfaceProblem{QStringLiteral("'%1' must be an array").arg(key(name))};
    }
    return value.toArray();
}

struct PendingConstraint {
    ViewPtr holder;
    QJsonObject description;
};

struct PendingGesture {
    ViewPtr view;
    QJsonObject description;
};

// Builds one file's objects: views first, then the constraints and gesture
// recognisers that name them, then the owner's outlets.
class InterfaceBuilder {
public:
    InterfaceBuilder(const QString& file, const std::shared_ptr<Bundle>& bundle,
                     InterfaceOwner* owner)
        : _file(file), _bundle(bundle), _owner(owner) {}

    ~InterfaceBuilder() {
        if (!_succeeded) {
            clearOutlets();
        }
    }
    InterfaceBuilder(const InterfaceBuilder&) = delete;
    InterfaceBuilder& operator=(const InterfaceBuilder&) = delete;

    std::vector<ViewPtr> build(const QJsonDocument& document) {
        if (!document.isObject()) {
            throw InterfaceProblem{QStringLiteral("the top level must be an object")};
        }
        const QJsonObject top = document.object();
        for (auto it = top.begin(); it != top.end(); ++it) {
            if (it.key() != QLatin1String("objects")) {
                throw InterfaceProblem{QStringLiteral("unknown top-level key '%1'").arg(it.key())};
            }
        }
        if (!top.value(QLatin1String("objects")).isArray()) {
            throw InterfaceProblem{QStringLiteral("'objects' must be an array of views")};
        }
        std::vector<ViewPtr> objects;
        for (const QJsonValue& value : top.value(QLatin1String("objects")).toArray()) {
            objects.push_back(makeView(value, QStringLiteral("objects")));
        }
        for (const auto& pending : _constraints) {
            makeConstraint(pending);
        }
        for (const auto& pending : _gestures) {
            makeGesture(pending);
        }
        connectOutlets();
        _succeeded = true;
        return objects;
    }

private:
    ViewPtr makeView(const QJsonValue& value, const QString& where) {
        const QJsonObject d = values::object(value, where);
        const QString type = values::string(d.value(QLatin1String("type")), where + ".type");
        ViewPtr view = create(type, d);
        if (!view) {
            throw InterfaceProblem{QStringLiteral("unknown view type '%1'").arg(type)};
        }
        values::applyProperties(*view, d, _bundle, [this](const QString& warning) {
            log::write(QStringLiteral("InterfaceLoader: %1: %2").arg(_file, warning));
        });
        QString id;
        if (d.contains(QLatin1String("outlet"))) {
            const QString outlet = values::string(d.value(QLatin1String("outlet")), key("outlet"));
            _viewOutlets.emplace_back(outlet, view);
            id = outlet;
        }
        if (d.contains(QLatin1String("id"))) {
            id = values::string(d.value(QLatin1String("id")), key("id"));
        }
        if (!id.isEmpty() && !_views.emplace(id, view).second) {
            throw InterfaceProblem{QStringLiteral("two views are named '%1'").arg(id)};
        }
        const QString name = id.isEmpty() ? type : id;
        for (const QJsonValue& subview : arrayAt(d, "subviews")) {
            view->addSubview(makeView(subview, name + QStringLiteral(".subviews")));
        }
        for (const QJsonValue& c : arrayAt(d, "constraints")) {
            _constraints.push_back(
                {view, values::object(c, name + QStringLiteral(".constraints"))});
        }
        for (const QJsonValue& g : arrayAt(d, "gestures")) {
            _gestures.push_back({view, values::object(g, name + QStringLiteral(".gestures"))});
        }
        return view;
    }

    static ViewPtr create(const QString& type, const QJsonObject& description) {
        if (const auto it = registeredTypes().find(type); it != registeredTypes().end()) {
            return it->second();
        }
        if (const auto it = builtInTypes().find(type); it != builtInTypes().end()) {
            return it->second(description);
        }
        return nullptr;
    }

    ViewPtr viewNamed(const QJsonValue& value, const QString& where) {
        const QString name = values::string(value, where);
        const auto it = _views.find(name);
        if (it == _views.end()) {
            throw InterfaceProblem{QStringLiteral("%1 names unknown view '%2'").arg(where, name)};
        }
        return it->second;
    }

    void makeConstraint(const PendingConstraint& pending) {
        const QJsonObject& d = pending.description;
        static const QStringList known = {
            QStringLiteral("item"),     QStringLiteral("attribute"),  QStringLiteral("relation"),
            QStringLiteral("item2"),    QStringLiteral("attribute2"), QStringLiteral("multiplier"),
            QStringLiteral("constant"), QStringLiteral("priority"),   QStringLiteral("identifier"),
            QStringLiteral("outlet"),
        };
        for (auto it = d.begin(); it != d.end(); ++it) {
            if (!known.contains(it.key())) {
                throw InterfaceProblem{QStringLiteral("unknown constraint key '%1'").arg(it.key())};
            }
        }
        const ViewPtr first = viewNamed(d.value(QLatin1String("item")), key("constraint item"));
        const LayoutAttribute attribute =
            values::attribute(d.value(QLatin1String("attribute")), key("attribute"));
        ViewPtr second;
        LayoutAttribute attribute2 = LayoutAttribute::NotAnAttribute;
        if (d.contains(QLatin1String("item2"))) {
            second = viewNamed(d.value(QLatin1String("item2")), key("constraint item2"));
            attribute2 = values::attribute(d.value(QLatin1String("attribute2")), key("attribute2"));
        }
        auto number = [&](const char* name, double fallback) {
            return d.contains(QLatin1String(name))
                       ? values::number(d.value(QLatin1String(name)), key(name))
                       : fallback;
        };
        const LayoutRelation relation =
            d.contains(QLatin1String("relation"))
                ? values::relation(d.value(QLatin1String("relation")), key("relation"))
                : LayoutRelation::Equal;
        auto constraint =
            LayoutConstraint::create(first, attribute, relation, second, attribute2,
                                     number("multiplier", 1.0), number("constant", 0.0));
        constraint->setPriority(static_cast<float>(number("priority", layout_priority::kRequired)));
        if (d.contains(QLatin1String("identifier"))) {
            constraint->setIdentifier(
                values::string(d.value(QLatin1String("identifier")), key("identifier")));
        }
        pending.holder->addConstraint(constraint);
        if (d.contains(QLatin1String("outlet"))) {
            _constraintOutlets.emplace_back(
                values::string(d.value(QLatin1String("outlet")), key("constraint outlet")),
                constraint);
        }
    }

    void makeGesture(const PendingGesture& pending) {
        const QJsonObject& d = pending.description;
        const QString type = values::string(d.value(QLatin1String("type")), key("gesture type"));
        if (type != QLatin1String("tap")) {
            throw InterfaceProblem{QStringLiteral("unknown gesture type '%1'").arg(type)};
        }
        auto tap = TapGestureRecognizer::create();
        for (auto it = d.begin(); it != d.end(); ++it) {
            const QString& k = it.key();
            if (k == QLatin1String("type")) {
                continue;
            }
            if (k == QLatin1String("taps")) {
                tap->setNumberOfTapsRequired(values::integer(it.value(), k));
            } else if (k == QLatin1String("touches")) {
                tap->setNumberOfTouchesRequired(values::integer(it.value(), k));
            } else if (k == QLatin1String("cancelsTouchesInView")) {
                tap->setCancelsTouchesInView(values::boolean(it.value(), k));
            } else if (k == QLatin1String("delaysTouchesEnded")) {
                tap->setDelaysTouchesEnded(values::boolean(it.value(), k));
            } else if (k == QLatin1String("action")) {
                const QString name = values::string(it.value(), k);
                auto action =
                    _owner != nullptr ? _owner->actionNamed(name) : GestureRecognizer::Action();
                if (!action) {
                    throw InterfaceProblem{
                        QStringLiteral("the owner has no action '%1'").arg(name)};
                }
                tap->addTarget(_owner, std::move(action));
            } else {
                throw InterfaceProblem{QStringLiteral("unknown gesture key '%1'").arg(k)};
            }
        }
        pending.view->addGestureRecognizer(tap);
    }

    void connectOutlets() {
        for (const auto& [name, view] : _viewOutlets) {
            if (_owner == nullptr || !_owner->setOutlet(name, view)) {
                throw InterfaceProblem{QStringLiteral("the owner has no outlet '%1'").arg(name)};
            }
            _connected.push_back(name);
        }
        for (const auto& [name, constraint] : _constraintOutlets) {
            if (_owner == nullptr || !_owner->setConstraintOutlet(name, constraint)) {
                throw InterfaceProblem{
                    QStringLiteral("the owner has no constraint outlet '%1'").arg(name)};
            }
            _connectedConstraints.push_back(name);
        }
    }

    void clearOutlets() {
        for (const QString& name : _connected) {
            _owner->setOutlet(name, nullptr);
        }
        for (const QString& name : _connectedConstraints) {
            _owner->setConstraintOutlet(name, nullptr);
        }
    }

    QString _file;
    std::shared_ptr<Bundle> _bundle;
    InterfaceOwner* _owner;
    std::map<QString, ViewPtr> _views;
    std::vector<std::pair<QString, ViewPtr>> _viewOutlets;
    std::vector<std::pair<QString, LayoutConstraintPtr>> _constraintOutlets;
    std::vector<PendingConstraint> _constraints;
    std::vector<PendingGesture> _gestures;
    std::vector<QString> _connected;
    std::vector<QString> _connectedConstraints;
    bool _succeeded = false;
};

}  // namespace

std::vector<ViewPtr> InterfaceLoader::load(const QString& name,
                                           const std::shared_ptr<Bundle>& bundle,
                                           InterfaceOwner* owner) {
    const QString file = name + QStringLiteral(".json");
    auto report = [&](const QString& problem) {
        log::write(QStringLiteral("InterfaceLoader: %1: %2").arg(file, problem));
        return std::vector<ViewPtr>();
    };
    if (!bundle) {
        return report(QStringLiteral("no bundle to load from"));
    }
    const QString path = bundle->pathForResource(name, QStringLiteral("json"));
    if (path.isEmpty()) {
        return report(QStringLiteral("no such file in %1").arg(bundle->bundlePath()));
    }
    QFile input(path);
    if (!input.open(QIODevice::ReadOnly)) {
        return report(QStringLiteral("cannot be read: %1").arg(input.errorString()));
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(input.readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        return report(QStringLiteral("malformed JSON at offset %1: %2")
                          .arg(error.offset)
                          .arg(error.errorString()));
    }
    try {
        InterfaceBuilder builder(file, bundle, owner);
        return builder.build(document);
    } catch (const InterfaceProblem& problem) {
        return report(problem.message);
    }
}

void InterfaceLoader::registerViewType(const QString& type, ViewFactory factory) {
    if (factory) {
        registeredTypes()[type] = std::move(factory);
    }
}

void InterfaceLoader::unregisterViewType(const QString& type) {
    registeredTypes().erase(type);
}

bool InterfaceLoader::isViewTypeRegistered(const QString& type) {
    return registeredTypes().count(type) != 0 || builtInTypes().count(type) != 0;
}

}  // namespace platform
