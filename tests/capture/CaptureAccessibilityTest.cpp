// The capture screen as a screen reader and a keyboard meet it.

#include "CaptureScreenFixture.h"

#include "platform/ui/HostAccessibility.h"
#include "platform/ui/QtWindowHost.h"
#include "platform/ui/WindowAccess.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QAccessibleEvent>
#include <QKeyEvent>

#include <chrono>
#include <functional>
#include <thread>

void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

using qxdtest::CaptureScreenTest;

class CaptureAccessibilityTest : public CaptureScreenTest {
protected:
    void TearDown() override {
        screen.reset();
        CaptureScreenTest::TearDown();
    }

    // The screen in a Qt window, as an application shows it.
    void showInHost() {
        show({375, 667});
        drainSession();
        screen = std::make_unique<platform::QtWindowHost>(window);
        screen->resize(375, 667);
        screen->show();
        platform::RunLoop::main().runPending();
        screen->hostAccessibility().setEventListener([this](QAccessibleEvent& event) {
            QAccessibleInterface* iface = event.accessibleInterface();
            const QString name = iface ? iface->text(QAccessible::Name) : QString();
            if (event.type() == QAccessible::ValueChanged) {
                events << name + QStringLiteral(": ") +
                              static_cast<QAccessibleValueChangeEvent&>(event).value().toString();
            } else if (event.type() == QAccessible::Focus) {
                events << QStringLiteral("focus ") + name;
            }
        });
    }
    QAccessibleInterface* root() { return QAccessible::queryAccessibleInterface(screen.get()); }
    QStringList names() {
        QStringList result;
        for (int i = 0; i < root()->childCount(); ++i) {
            result << root()->child(i)->text(QAccessible::Name);
        }
        return result;
    }
    QAccessibleInterface* named(const QString& name) {
        for (int i = 0; i < root()->childCount(); ++i) {
            if (root()->child(i)->text(QAccessible::Name) == name) {
                return root()->child(i);
            }
        }
        ADD_FAILURE() << "no element " << name.toStdString();
        return nullptr;
    }
    static void press(QAccessibleInterface* element) {
        element->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    }
    void key(int k, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QKeyEvent event(QEvent::KeyPress, k, modifiers);
        QCoreApplication::sendEvent(screen.get(), &event);
    }
    // Turns the main run loop until done() holds while the engine's queues
    // work on their own threads (bounded only against a hang).
    static bool runUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            platform::RunLoop::main().runPending();
            std::this_thread::yield();
        }
        return true;
    }

    std::unique_ptr<platform::QtWindowHost> screen;
    QStringList events;
};

// Every control with its role and texts, in reading order; the shutter
// joins once it has appeared; pressing through the accessibility action
// fires the controls; the view finder's value changes are announced.
TEST_F(CaptureAccessibilityTest, ControlsAppearWithTheirTextsAndActThroughTheirActions) {
    showInHost();
    EXPECT_EQ(names(), (QStringList{"Flash", "Camera chooser", "View finder", "Cancel", "Help"}))
        << "the shutter is still invisible";
    advance(6.0);
    EXPECT_EQ(names(), (QStringList{"Flash", "Camera chooser", "View finder", "Cancel",
                                    "Take picture", "Help"}));

    QAccessibleInterface* flash = named(QStringLiteral("Flash"));
    EXPECT_EQ(flash->role(), QAccessible::Button);
    EXPECT_EQ(flash->text(QAccessible::Value), QStringLiteral("Off"));
    EXPECT_EQ(flash->text(QAccessible::Description), QStringLiteral("Switch between flash modes"));
    EXPECT_EQ(named(QStringLiteral("Cancel"))->text(QAccessible::Description),
              QStringLiteral("Closes camera view"));
    QAccessibleInterface* finder = named(QStringLiteral("View finder"));
    EXPECT_EQ(finder->text(QAccessible::Description), QStringLiteral("Double tap to focus"));
    EXPECT_EQ(finder->text(QAccessible::Value), QStringLiteral("Focus unlocked"));

    press(flash);
    EXPECT_EQ(flash->text(QAccessible::Value), QStringLiteral("On"));
    press(named(QStringLiteral("Cancel")));
    press(named(QStringLiteral("Help")));
    EXPECT_EQ(host->cancels, 1);
    EXPECT_EQ(host->helps, 1);

    // Pressing the view finder taps its centre: focus there, then unlocked
    // when the focus box has shrunk and gone.
    press(finder);
    drainSession();
    advance(1.5);
    EXPECT_EQ(events, (QStringList{"Flash: On", "View finder: Focus locked",
                                   "View finder: Focus unlocked"}));

    // Switching cameras disables the shutter, flash and chooser until the
    // engine has switched; a screen reader hears it and cannot press them.
    QAccessibleInterface* chooser = named(QStringLiteral("Camera chooser"));
    press(chooser);
    EXPECT_TRUE(chooser->state().disabled);
    EXPECT_TRUE(named(QStringLiteral("Take picture"))->state().disabled);
    EXPECT_FALSE(named(QStringLiteral("Cancel"))->state().disabled);
    EXPECT_TRUE(chooser->actionInterface()->actionNames().isEmpty());
    EXPECT_EQ(chooser->text(QAccessible::Value), QStringLiteral("Front facing"));
    ASSERT_TRUE(runUntil([&] { return !chooser->state().disabled; }));
}

// Tab walks the controls in reading order with the ring on screen; Space
// and Return press the focused one.
TEST_F(CaptureAccessibilityTest, TheKeyboardReachesAndPressesEveryControl) {
    showInHost();
    advance(6.0);
    QStringList order;
    for (int i = 0; i < 7; ++i) {
        key(Qt::Key_Tab);
        const auto focused = window->access().focusedView();
        order << (focused ? focused->accessibilityLabel() : QStringLiteral("<none>"));
    }
    EXPECT_EQ(order, (QStringList{"Flash", "Camera chooser", "View finder", "Cancel",
                                  "Take picture", "Help", "Flash"}));
    EXPECT_EQ(events.first(), QStringLiteral("focus Flash"));

    key(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_EQ(window->access().focusedView(), controller->helpButton());
    const QImage shot = screen->renderImage();
    save(shot, QStringLiteral("keyboard-focus-help"));
    const QRectF ring = window->access().focusRingRect();
    const double dpr = shot.devicePixelRatio();
    const QColor edge = shot.pixelColor(int(ring.center().x() * dpr), int((ring.top() + 1) * dpr));
    EXPECT_GT(edge.blue(), 200) << "the ring is drawn around the help button";

    key(Qt::Key_Space);
    EXPECT_EQ(host->helps, 1);
    key(Qt::Key_Backtab, Qt::ShiftModifier);
    key(Qt::Key_Backtab, Qt::ShiftModifier);
    key(Qt::Key_Return);
    EXPECT_EQ(host->cancels, 1);
}

}  // namespace
