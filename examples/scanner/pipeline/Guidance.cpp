#include "Guidance.h"

namespace scanner {
namespace {

// A page smaller than this share of the frame is too far away to read well.
constexpr double kCloseEnough = 0.2;
// The same advice is not given twice within this many seconds.
constexpr double kRepeatPause = 4.0;

}  // namespace

QString adviceText(Advice advice) {
    switch (advice) {
        case Advice::NoDocument:
            return QStringLiteral("No document found");
        case Advice::MoveCloser:
            return QStringLiteral("Move closer");
        case Advice::HoldStill:
            return QStringLiteral("Hold still");
        case Advice::None:
            break;
    }
    return {};
}

Advice Guidance::adviceFor(const Situation& situation) {
    if (!situation.outline) {
        return situation.missingSeconds >= 2.0 ? Advice::NoDocument : Advice::None;
    }
    if (situation.coverage < kCloseEnough) {
        return Advice::MoveCloser;
    }
    // Shown for a while but never settling: the hands are moving.
    if (situation.shownSeconds >= 1.5 && situation.steadySeconds < 0.5) {
        return Advice::HoldStill;
    }
    return Advice::None;
}

std::optional<Advice> Guidance::update(const Situation& situation, double now) {
    const Advice advice = adviceFor(situation);
    const bool begins = advice != _standing;
    _standing = advice;
    if (!begins || advice == Advice::None) {
        return std::nullopt;
    }
    if (advice == _lastGiven && now - _lastGivenAt < kRepeatPause) {
        return std::nullopt;
    }
    _lastGiven = advice;
    _lastGivenAt = now;
    return advice;
}

}  // namespace scanner
