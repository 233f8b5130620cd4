#pragma once

#include <QString>
#include <Qt>

#include <functional>
#include <memory>

namespace platform {

class ViewController;

/// A key, with its modifiers, bound to an action in a window, like the
/// platform's key commands. A command with a controller acts only while that
/// controller's screen is in front (no other screen presented over it); one
/// without acts whatever screen is in front.
struct KeyCommand {
    int key = 0;  ///< a Qt::Key
    /// Exactly these modifiers must be held; the keypad flag is ignored.
    Qt::KeyboardModifiers modifiers = Qt::NoModifier;
    /// What the key does, in a few words, for a host's help text.
    QString title;
    std::function<void()> action;
    std::weak_ptr<ViewController> controller;
};

}  // namespace platform
