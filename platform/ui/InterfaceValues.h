#pragma once

#include "platform/ui/LayoutConstraint.h"
#include "platform/ui/View.h"

#include <QColor>
#include <QJsonObject>
#include <QJsonValue>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <functional>
#include <memory>

namespace platform {

class Bundle;

/// A problem in an interface file: what is wrong, and where.
struct InterfaceProblem {
    QString message;
};

/// Reads the values of interface files and sets a view's properties from
/// them; every reader throws InterfaceProblem for a value of the wrong kind,
/// naming the key. Internal to the interface loader.
namespace interface_values {

double number(const QJsonValue& value, const QString& key);
int integer(const QJsonValue& value, const QString& key);
bool boolean(const QJsonValue& value, const QString& key);
QString string(const QJsonValue& value, const QString& key);
QJsonObject object(const QJsonValue& value, const QString& key);
QRectF rect(const QJsonValue& value, const QString& key);
QSizeF size(const QJsonValue& value, const QString& key);
QColor color(const QJsonValue& value, const QString& key);
LayoutAttribute attribute(const QJsonValue& value, const QString& key);
LayoutRelation relation(const QJsonValue& value, const QString& key);

/// The keys of a view description that the loader handles itself rather
/// than as properties.
bool isStructuralKey(const QString& key);

/// Sets every property key of description on view. Missing images are
/// reported through `warn` and leave the view without one.
void applyProperties(View& view, const QJsonObject& description,
                     const std::shared_ptr<Bundle>& bundle,
                     const std::function<void(const QString&)>& warn);

}  // namespace interface_values

}  // namespace platform
