#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <limits>
#include <memory>
#include <vector>

namespace platform {

class Animation;

/// Told when an animation starts and stops. Called on the main run loop.
/// finished is false when the animation was removed before it ended.
class AnimationDelegate {
public:
    virtual ~AnimationDelegate() = default;
    virtual void animationDidStart(Animation& /*animation*/) {}
    virtual void animationDidStop(Animation& /*animation*/, bool /*finished*/) {}
};

/// Pacing of an animation's progress.
enum class TimingFunction { Linear, EaseIn, EaseOut, EaseInEaseOut, Default };

/// Base of all animations: timing (begin time, duration, repeat, autoreverse,
/// fill), the delegate and whether the layer drops it when it ends.
///
/// Animations are values: adding one to a layer stores a copy, so changing
/// the original afterwards does not affect the running one. Main thread only.
class Animation {
public:
    static constexpr float kRepeatForever = std::numeric_limits<float>::infinity();

    virtual ~Animation() = default;
    virtual std::shared_ptr<Animation> clone() const = 0;

    /// Seconds; 0 means the default of 0.25 s.
    double duration() const { return _duration; }
    void setDuration(double d) { _duration = d; }
    /// Absolute clock time at which the animation starts; 0 means "when added".
    double beginTime() const { return _beginTime; }
    void setBeginTime(double t) { _beginTime = t; }
    float repeatCount() const { return _repeatCount; }
    void setRepeatCount(float count) { _repeatCount = count; }
    bool autoreverses() const { return _autoreverses; }
    void setAutoreverses(bool a) { _autoreverses = a; }
    /// When false, the animation stays on its layer after it ends and keeps
    /// showing its final value.
    bool isRemovedOnCompletion() const { return _removedOnCompletion; }
    void setRemovedOnCompletion(bool r) { _removedOnCompletion = r; }
    /// Keep the final value after the end for as long as the animation stays
    /// on its layer (inside a group: until the group ends).
    bool fillsForwards() const { return _fillsForwards; }
    void setFillsForwards(bool f) { _fillsForwards = f; }
    /// Show the first value before the begin time (for delayed animations).
    bool fillsBackwards() const { return _fillsBackwards; }
    void setFillsBackwards(bool f) { _fillsBackwards = f; }
    TimingFunction timingFunction() const { return _timing; }
    void setTimingFunction(TimingFunction f) { _timing = f; }
    /// Added under a key that holds a running animation, this one takes the
    /// key over and the earlier one runs on unseen to its own end, where it
    /// stops finished (the way view animation blocks combine). Otherwise the
    /// earlier one is removed and stops unfinished.
    bool letsEarlierFinish() const { return _letsEarlierFinish; }
    void setLetsEarlierFinish(bool lets) { _letsEarlierFinish = lets; }

    /// Held strongly, as the platform does for animation delegates.
    const std::shared_ptr<AnimationDelegate>& delegate() const { return _delegate; }
    void setDelegate(std::shared_ptr<AnimationDelegate> delegate) {
        _delegate = std::move(delegate);
    }

    /// The duration actually used (the default when 0).
    double effectiveDuration() const;
    /// The whole active time: duration × repeats (× 2 when autoreversing);
    /// infinity for endless ones.
    double activeDuration() const;

    /// Local progress in [0, 1] (after timing function) at time seconds
    /// since the start, or a negative number when the animation is not in
    /// effect then (before its start, or after its end without fill).
    double progressAt(double elapsed) const;

protected:
    Animation() = default;
    Animation(const Animation&) = default;

private:
    double _duration = 0.0;
    double _beginTime = 0.0;
    float _repeatCount = 0.0f;
    bool _autoreverses = false;
    bool _removedOnCompletion = true;
    bool _fillsForwards = false;
    bool _fillsBackwards = false;
    bool _letsEarlierFinish = false;
    TimingFunction _timing = TimingFunction::Linear;
    std::shared_ptr<AnimationDelegate> _delegate;
};

/// An animation of one key path ("opacity", "position", "bounds.size",
/// "transform.scale.xy", ...). See LayerState for the key paths a layer knows.
class PropertyAnimation : public Animation {
public:
    const QString& keyPath() const { return _keyPath; }
    void setKeyPath(const QString& keyPath) { _keyPath = keyPath; }
    /// The value at local progress p in [0, 1], given the layer's model value
    /// for the key path (used where from or to is missing).
    virtual QVariant valueAt(double progress, const QVariant& modelValue) const = 0;

protected:
    explicit PropertyAnimation(QString keyPath) : _keyPath(std::move(keyPath)) {}
    PropertyAnimation(const PropertyAnimation&) = default;

private:
    QString _keyPath;
};

/// From one value to another. A missing from or to is the model value.
class BasicAnimation : public PropertyAnimation {
public:
    static std::shared_ptr<BasicAnimation> create(const QString& keyPath);
    std::shared_ptr<Animation> clone() const override;

    const QVariant& fromValue() const { return _from; }
    void setFromValue(const QVariant& v) { _from = v; }
    const QVariant& toValue() const { return _to; }
    void setToValue(const QVariant& v) { _to = v; }

    QVariant valueAt(double progress, const QVariant& modelValue) const override;

protected:
    explicit BasicAnimation(const QString& keyPath) : PropertyAnimation(keyPath) {}
    BasicAnimation(const BasicAnimation&) = default;

private:
    QVariant _from;
    QVariant _to;
};

/// Through a list of values at key times (fractions of the duration). Key
/// times outside [0, 1] are kept as given; sampling clamps progress into the
/// range the key times cover, so a last key time beyond 1 is never reached
/// and the value at the end lies between the last two values.
class KeyframeAnimation : public PropertyAnimation {
public:
    static std::shared_ptr<KeyframeAnimation> create(const QString& keyPath);
    std::shared_ptr<Animation> clone() const override;

    const QVariantList& values() const { return _values; }
    void setValues(const QVariantList& values) { _values = values; }
    /// Empty means evenly spaced.
    const std::vector<double>& keyTimes() const { return _keyTimes; }
    void setKeyTimes(std::vector<double> keyTimes) { _keyTimes = std::move(keyTimes); }

    QVariant valueAt(double progress, const QVariant& modelValue) const override;

private:
    explicit KeyframeAnimation(const QString& keyPath) : PropertyAnimation(keyPath) {}
    KeyframeAnimation(const KeyframeAnimation&) = default;

    QVariantList _values;
    std::vector<double> _keyTimes;
};

/// A damped spring from fromValue to toValue: progress follows the motion of
/// a mass on a spring released with an initial velocity. duration is usually
/// set to settlingDuration().
class SpringAnimation : public BasicAnimation {
public:
    static std::shared_ptr<SpringAnimation> create(const QString& keyPath);
    std::shared_ptr<Animation> clone() const override;

    double mass() const { return _mass; }
    void setMass(double m) { _mass = m; }
    double stiffness() const { return _stiffness; }
    void setStiffness(double k) { _stiffness = k; }
    double damping() const { return _damping; }
    void setDamping(double c) { _damping = c; }
    /// In units of the whole distance a second.
    double initialVelocity() const { return _initialVelocity; }
    void setInitialVelocity(double v) { _initialVelocity = v; }

    /// The time after which the spring stays within 0.1% of its target.
    double settlingDuration() const;
    /// Spring position (0 at from, 1 at to) at t seconds.
    double springProgress(double t) const;

    QVariant valueAt(double progress, const QVariant& modelValue) const override;

private:
    explicit SpringAnimation(const QString& keyPath) : BasicAnimation(keyPath) {}
    SpringAnimation(const SpringAnimation&) = default;

    double _mass = 1.0;
    double _stiffness = 100.0;
    double _damping = 10.0;
    double _initialVelocity = 0.0;
};

/// Runs its animations together within its own timing; each child's time is
/// relative to the group's start. A child without a duration (0) runs for the
/// group's duration, fixed when the group is copied onto a layer.
class AnimationGroup : public Animation {
public:
    static std::shared_ptr<AnimationGroup> create();
    std::shared_ptr<Animation> clone() const override;

    const std::vector<std::shared_ptr<Animation>>& animations() const { return _animations; }
    void setAnimations(std::vector<std::shared_ptr<Animation>> animations);

private:
    AnimationGroup() = default;
    AnimationGroup(const AnimationGroup& other);

    std::vector<std::shared_ptr<Animation>> _animations;
};

/// Interpolates between two values of the same kind (numbers, QPointF,
/// QSizeF, QRectF, QColor, QTransform); returns to when they cannot be
/// interpolated.
QVariant interpolate(const QVariant& from, const QVariant& to, double t);

}  // namespace platform
