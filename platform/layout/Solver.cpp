#include "platform/layout/Solver.h"

#include "platform/layout/Engine.h"

namespace platform::layout {

Solver::Solver() : _engine(std::make_unique<detail::Engine>()) {}
Solver::~Solver() = default;
Solver::Solver(Solver&&) noexcept = default;
Solver& Solver::operator=(Solver&&) noexcept = default;

void Solver::addConstraint(const Constraint& constraint) {
    _engine->addConstraint(constraint);
}

void Solver::removeConstraint(const Constraint& constraint) {
    _engine->removeConstraint(constraint);
}

bool Solver::hasConstraint(const Constraint& constraint) const {
    return _engine->hasConstraint(constraint);
}

void Solver::updateConstant(const Constraint& constraint, double constant) {
    _engine->updateConstant(constraint, constant);
}

void Solver::addEditVariable(const Variable& variable, Strength strength) {
    _engine->addEditVariable(variable, strength);
}

void Solver::removeEditVariable(const Variable& variable) {
    _engine->removeEditVariable(variable);
}

bool Solver::hasEditVariable(const Variable& variable) const {
    return _engine->hasEditVariable(variable);
}

void Solver::suggestValue(const Variable& variable, double value) {
    _engine->suggestValue(variable, value);
}

const std::vector<const Variable*>* Solver::updateChangedVariables() {
    return _engine->updateVariables();
}

void Solver::updateVariables() {
    _engine->updateVariables();
}

void Solver::reset() {
    _engine->reset();
}

QString Solver::dump() const {
    return _engine->dump();
}

}  // namespace platform::layout
