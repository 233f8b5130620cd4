#include "platform/layers/Animation.h"

#include "platform/layers/KeyValues.h"
#include "platform/layers/TransformParts.h"

#include <QColor>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform {
namespace {

constexpr double kDefaultDuration = 0.25;
constexpr double kSettlingTolerance = 0.001;
constexpr double kSettlingStep = 0.001;
constexpr double kLongestSettling = 1000.0;

// --- Timing functions --------------------------------------------------------

struct Bezier {
    double x1, y1, x2, y2;

    static double component(double s, double p1, double p2) {
        const double u = 1.0 - s;
        return 3.0 * u * u * s * p1 + 3.0 * u * s * s * p2 + s * s * s;
    }
    static double slope(double s, double p1, double p2) {
        const double u = 1.0 - s;
        return 3.0 * u * u * p1 + 6.0 * u * s * (p2 - p1) + 3.0 * s * s * (1.0 - p2);
    }

    // The curve parameter whose x is x: Newton's method, bisection when it
    // stalls (flat slopes near the ends).
    double parameterFor(double x) const {
        double s = x;
        for (int i = 0; i < 8; ++i) {
            const double error = component(s, x1, x2) - x;
            if (std::abs(error) < 1e-9) {
                return s;
            }
            const double d = slope(s, x1, x2);
            if (std::abs(d) < 1e-6) {
                break;
            }
            s -= error / d;
        }
        double lo = 0.0;
        double hi = 1.0;
        s = x;
        for (int i = 0; i < 60 && hi - lo > 1e-12; ++i) {
            if (component(s, x1, x2) < x) {
                lo = s;
            } else {
                hi = s;
            }
            s = 0.5 * (lo + hi);
        }
        return s;
    }

    double operator()(double x) const { return component(parameterFor(x), y1, y2); }
};

double applyTiming(TimingFunction function, double x) {
    switch (function) {
        case TimingFunction::Linear:
            return x;
        case TimingFunction::EaseIn:
            return Bezier{0.42, 0.0, 1.0, 1.0}(x);
        case TimingFunction::EaseOut:
            return Bezier{0.0, 0.0, 0.58, 1.0}(x);
        case TimingFunction::EaseInEaseOut:
            return Bezier{0.42, 0.0, 0.58, 1.0}(x);
        case TimingFunction::Default:
            return Bezier{0.25, 0.1, 0.25, 1.0}(x);
    }
    return x;
}

// --- Interpolation -----------------------------------------------------------

double lerp(double a, double b, double t) {
    return a + (b - a) * t;
}

QPointF lerp(const QPointF& a, const QPointF& b, double t) {
    return {lerp(a.x(), b.x(), t), lerp(a.y(), b.y(), t)};
}

QSizeF lerp(const QSizeF& a, const QSizeF& b, double t) {
    return {lerp(a.width(), b.width(), t), lerp(a.height(), b.height(), t)};
}

QRectF lerp(const QRectF& a, const QRectF& b, double t) {
    return {lerp(a.topLeft(), b.topLeft(), t), lerp(a.size(), b.size(), t)};
}

// A missing colour ("none") fades as the other colour made transparent.
QVariant lerpColors(QColor a, QColor b, double t) {
    if (!a.isValid() && !b.isValid()) {
        return QVariant::fromValue(b);
    }
    if (!a.isValid() && t <= 0.0) {
        return QVariant::fromValue(a);
    }
    if (!b.isValid() && t >= 1.0) {
        return QVariant::fromValue(b);
    }
    if (!a.isValid()) {
        a = b;
        a.setAlphaF(0.0f);
    }
    if (!b.isValid()) {
        b = a;
        b.setAlphaF(0.0f);
    }
    const double u = std::clamp(t, 0.0, 1.0);
    const auto mix = [u](float p, float q) {
        return static_cast<float>(lerp(static_cast<double>(p), static_cast<double>(q), u));
    };
    const QColor ra = a.toRgb();
    const QColor rb = b.toRgb();
    return QVariant::fromValue(
        QColor::fromRgbF(mix(ra.redF(), rb.redF()), mix(ra.greenF(), rb.greenF()),
                         mix(ra.blueF(), rb.blueF()), mix(ra.alphaF(), rb.alphaF())));
}

QTransform lerp(const QTransform& from, const QTransform& to, double t) {
    using detail::TransformParts;
    const TransformParts a = TransformParts::of(from);
    const TransformParts b = TransformParts::of(to);
    double turn = b.angle - a.angle;
    if (turn > std::numbers::pi) {
        turn -= 2.0 * std::numbers::pi;
    } else if (turn < -std::numbers::pi) {
        turn += 2.0 * std::numbers::pi;
    }
    TransformParts p;
    p.sx = lerp(a.sx, b.sx, t);
    p.sy = lerp(a.sy, b.sy, t);
    p.shear = lerp(a.shear, b.shear, t);
    p.angle = a.angle + turn * t;
    p.tx = lerp(a.tx, b.tx, t);
    p.ty = lerp(a.ty, b.ty, t);
    return p.toTransform();
}

}  // namespace

QVariant interpolate(const QVariant& from, const QVariant& to, double t) {
    using namespace key_values;
    const auto both = [&](bool (*kind)(const QVariant&)) { return kind(from) && kind(to); };
    if (both(isNumber)) {
        return lerp(from.toDouble(), to.toDouble(), t);
    }
    if (both(isPoint)) {
        return lerp(from.toPointF(), to.toPointF(), t);
    }
    if (both(isSize)) {
        return lerp(from.toSizeF(), to.toSizeF(), t);
    }
    if (both(isRect)) {
        return lerp(from.toRectF(), to.toRectF(), t);
    }
    if (both(isColor)) {
        return lerpColors(from.value<QColor>(), to.value<QColor>(), t);
    }
    if (both(isTransform)) {
        return QVariant::fromValue(lerp(from.value<QTransform>(), to.value<QTransform>(), t));
    }
    return to;
}

// --- Animation ---------------------------------------------------------------

double Animation::effectiveDuration() const {
    return _duration > 0.0 ? _duration : kDefaultDuration;
}

namespace {

double effectiveRepeats(float repeatCount) {
    return repeatCount > 0.0f ? static_cast<double>(repeatCount) : 1.0;
}

}  // namespace

double Animation::activeDuration() const {
    const double repeats = effectiveRepeats(_repeatCount);
    if (std::isinf(repeats)) {
        return std::numeric_limits<double>::infinity();
    }
    return effectiveDuration() * repeats * (_autoreverses ? 2.0 : 1.0);
}

double Animation::progressAt(double elapsed) const {
    const double active = activeDuration();
    if (elapsed < 0.0 && _fillsBackwards) {
        elapsed = 0.0;
    }
    if (elapsed < 0.0 || std::isnan(elapsed)) {
        return -1.0;
    }
    const bool fills = _fillsForwards || !_removedOnCompletion;
    if (elapsed > active && !fills) {
        return -1.0;
    }
    const double duration = effectiveDuration();
    const double cycle = duration * (_autoreverses ? 2.0 : 1.0);
    double position = 0.0;
    if (elapsed >= active) {
        // The end of the last (possibly partial) cycle, not the start of the next.
        const double repeats = effectiveRepeats(_repeatCount);
        const double partial = repeats - std::floor(repeats);
        position = partial > 0.0 ? partial * cycle : cycle;
    } else {
        position = std::fmod(elapsed, cycle);
    }
    double raw = position <= duration ? position / duration : (cycle - position) / duration;
    raw = std::clamp(raw, 0.0, 1.0);
    return applyTiming(_timing, raw);
}

// --- BasicAnimation ------------------------------------------------------------

std::shared_ptr<BasicAnimation> BasicAnimation::create(const QString& keyPath) {
    return std::shared_ptr<BasicAnimation>(new BasicAnimation(keyPath));
}

std::shared_ptr<Animation> BasicAnimation::clone() const {
    return std::shared_ptr<BasicAnimation>(new BasicAnimation(*this));
}

QVariant BasicAnimation::valueAt(double progress, const QVariant& modelValue) const {
    const QVariant& from = _from.isValid() ? _from : modelValue;
    const QVariant& to = _to.isValid() ? _to : modelValue;
    return interpolate(from, to, progress);
}

// --- KeyframeAnimation ---------------------------------------------------------

std::shared_ptr<KeyframeAnimation> KeyframeAnimation::create(const QString& keyPath) {
    return std::shared_ptr<KeyframeAnimation>(new KeyframeAnimation(keyPath));
}

std::shared_ptr<Animation> KeyframeAnimation::clone() const {
    return std::shared_ptr<KeyframeAnimation>(new KeyframeAnimation(*this));
}

QVariant KeyframeAnimation::valueAt(double progress, const QVariant& modelValue) const {
    const auto count = static_cast<std::size_t>(_values.size());
    if (count == 0) {
        return modelValue;
    }
    if (count == 1) {
        return _values.front();
    }
    std::vector<double> times = _keyTimes;
    if (times.size() != count) {
        times.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            times[i] = static_cast<double>(i) / static_cast<double>(count - 1);
        }
    }
    const double p = std::clamp(progress, times.front(), times.back());
    std::size_t segment = 0;
    while (segment + 2 < count && p > times[segment + 1]) {
        ++segment;
    }
    const double span = times[segment + 1] - times[segment];
    const double t = span > 0.0 ? (p - times[segment]) / span : 1.0;
    const auto index = static_cast<qsizetype>(segment);
    return interpolate(_values[index], _values[index + 1], std::clamp(t, 0.0, 1.0));
}

// --- SpringAnimation -----------------------------------------------------------

std::shared_ptr<SpringAnimation> SpringAnimation::create(const QString& keyPath) {
    return std::shared_ptr<SpringAnimation>(new SpringAnimation(keyPath));
}

std::shared_ptr<Animation> SpringAnimation::clone() const {
    return std::shared_ptr<SpringAnimation>(new SpringAnimation(*this));
}

namespace {

// The offset from the target, y = x - 1, of m·y'' + c·y' + k·y = 0 with
// y(0) = -1 and y'(0) = v0, together with a bound on |y| that only shrinks
// once t is past boundPeak.
struct SpringMotion {
    double omega0 = 0.0;  // undamped angular frequency
    double zeta = 0.0;    // damping ratio
    double v0 = 0.0;

    SpringMotion(double mass, double stiffness, double damping, double velocity) {
        const double m = std::max(mass, 1e-9);
        const double k = std::max(stiffness, 1e-9);
        omega0 = std::sqrt(k / m);
        zeta = std::max(damping, 0.0) / (2.0 * std::sqrt(k * m));
        v0 = velocity;
    }

    bool critical() const { return std::abs(zeta - 1.0) < 1e-9; }

    double offset(double t) const {
        if (critical()) {
            return (-1.0 + (v0 - omega0) * t) * std::exp(-omega0 * t);
        }
        if (zeta < 1.0) {
            const double wd = omega0 * std::sqrt(1.0 - zeta * zeta);
            const double b = (v0 - zeta * omega0) / wd;
            return std::exp(-zeta * omega0 * t) * (-std::cos(wd * t) + b * std::sin(wd * t));
        }
        const double root = omega0 * std::sqrt(zeta * zeta - 1.0);
        const double r1 = -zeta * omega0 + root;
        const double r2 = -zeta * omega0 - root;
        const double c1 = (v0 + r2) / (r1 - r2);
        const double c2 = -1.0 - c1;
        return c1 * std::exp(r1 * t) + c2 * std::exp(r2 * t);
    }

    double bound(double t) const {
        if (critical()) {
            return (1.0 + std::abs(v0 - omega0) * t) * std::exp(-omega0 * t);
        }
        if (zeta < 1.0) {
            const double wd = omega0 * std::sqrt(1.0 - zeta * zeta);
            const double b = (v0 - zeta * omega0) / wd;
            return std::hypot(1.0, b) * std::exp(-zeta * omega0 * t);
        }
        const double root = omega0 * std::sqrt(zeta * zeta - 1.0);
        const double r1 = -zeta * omega0 + root;
        const double r2 = -zeta * omega0 - root;
        const double c1 = (v0 + r2) / (r1 - r2);
        return (std::abs(c1) + std::abs(1.0 + c1)) * std::exp(r1 * t);
    }

    double boundPeak() const { return critical() ? 1.0 / omega0 : 0.0; }
};

}  // namespace

double SpringAnimation::springProgress(double t) const {
    return 1.0 + SpringMotion(_mass, _stiffness, _damping, _initialVelocity).offset(t);
}

double SpringAnimation::settlingDuration() const {
    const SpringMotion motion(_mass, _stiffness, _damping, _initialVelocity);
    // Scan until the bound guarantees the rest stays inside the tolerance,
    // remembering the last step still outside it.
    double lastOutside = -1.0;
    double t = 0.0;
    for (; t < kLongestSettling; t += kSettlingStep) {
        if (std::abs(motion.offset(t)) > kSettlingTolerance) {
            lastOutside = t;
        } else if (t > motion.boundPeak() && motion.bound(t) <= kSettlingTolerance) {
            break;
        }
    }
    if (lastOutside < 0.0) {
        return 0.0;
    }
    // Narrow down the crossing between the last step outside and the next.
    double lo = lastOutside;
    double hi = lastOutside + kSettlingStep;
    for (int i = 0; i < 40; ++i) {
        const double mid = 0.5 * (lo + hi);
        if (std::abs(motion.offset(mid)) > kSettlingTolerance) {
            lo = mid;
        } else {
            hi = mid;
        }
    }
    return hi;
}

QVariant SpringAnimation::valueAt(double progress, const QVariant& modelValue) const {
    const QVariant& from = fromValue().isValid() ? fromValue() : modelValue;
    const QVariant& to = toValue().isValid() ? toValue() : modelValue;
    return interpolate(from, to, springProgress(progress * effectiveDuration()));
}

// --- AnimationGroup ------------------------------------------------------------

std::shared_ptr<AnimationGroup> AnimationGroup::create() {
    return std::shared_ptr<AnimationGroup>(new AnimationGroup());
}

std::shared_ptr<Animation> AnimationGroup::clone() const {
    return std::shared_ptr<AnimationGroup>(new AnimationGroup(*this));
}

AnimationGroup::AnimationGroup(const AnimationGroup& other) : Animation(other) {
    _animations.reserve(other._animations.size());
    for (const auto& child : other._animations) {
        if (child) {
            _animations.push_back(child->clone());
            // As on the platform, a child without a duration of its own runs
            // for the whole group.
            if (_animations.back()->duration() <= 0.0) {
                _animations.back()->setDuration(effectiveDuration());
            }
        }
    }
}

void AnimationGroup::setAnimations(std::vector<std::shared_ptr<Animation>> animations) {
    _animations = std::move(animations);
}

}  // namespace platform
