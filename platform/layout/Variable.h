#pragma once

#include <QString>

#include <memory>

namespace platform::layout {

/// A variable of a layout system: a name for messages and dumps, and the value
/// the solver wrote last. Copies are cheap and denote the same variable;
/// identity is the handle, not the name (`==` builds a constraint, so
/// identity is asked with `is`).
class Variable {
public:
    Variable();
    explicit Variable(QString name);

    const QString& name() const { return _data->name; }
    void setName(QString name) { _data->name = std::move(name); }

    double value() const { return _data->value; }
    void setValue(double value) { _data->value = value; }

    bool is(const Variable& other) const { return _data == other._data; }
    /// A key for maps: equal exactly when `is` holds.
    const void* key() const { return _data.get(); }

    /// Whatever the owner of the variable wants to find from it (the solver
    /// never reads it); null by default.
    void* context() const { return _data->context; }
    void setContext(void* context) { _data->context = context; }

    /// The name, or "<unnamed>" when there is none.
    QString toString() const;

private:
    struct Data {
        QString name;
        double value = 0.0;
        void* context = nullptr;
    };
    std::shared_ptr<Data> _data;
};

}  // namespace platform::layout
