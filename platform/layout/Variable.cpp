#include "platform/layout/Variable.h"

namespace platform::layout {

Variable::Variable() : _data(std::make_shared<Data>()) {}

Variable::Variable(QString name) : _data(std::make_shared<Data>(Data{std::move(name), 0.0})) {}

QString Variable::toString() const {
    return _data->name.isEmpty() ? QStringLiteral("<unnamed>") : _data->name;
}

}  // namespace platform::layout
