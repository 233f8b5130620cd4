#include "QXDManualEditController.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/Button.h"
#include "platform/ui/QtWidgetHost.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QCoreApplication>
#include <QKeyEvent>

#include <gtest/gtest.h>

namespace {

using platform::RunLoop;

class Answers : public QXDManualEditControllerDelegate {
public:
    void controllerDidCancel(QXDManualEditController& /*controller*/) override { ++cancels; }
    void controllerDidConfirmEditedImage(QXDManualEditController& /*controller*/,
                                         const platform::ImagePtr& /*image*/) override {
        ++confirms;
    }
    int cancels = 0;
    int confirms = 0;
};

class QXDManualEditAccessibilityTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        window = platform::Window::create({0, 0, 320, 480});
        QImage page(300, 200, QImage::Format_RGB32);
        page.fill(Qt::white);
        controller = QXDManualEditController::initWithImage(
            platform::Image::withCGImage(page), QStringLiteral("Turn the page upright."));
        controller->setDelegate(answers);
        window->setRootViewController(controller);
        host = std::make_unique<platform::QtWidgetHost>(window);
        host->resize(320, 480);
        host->show();
        RunLoop::main().advance(1.0);
    }
    void TearDown() override {
        host.reset();
        RunLoop::main().runPending();
    }

    QAccessibleInterface* hostObject() { return QAccessible::queryAccessibleInterface(host.get()); }
    QStringList names() {
        QStringList result;
        for (int i = 0; i < hostObject()->childCount(); ++i) {
            result << hostObject()->child(i)->text(QAccessible::Name);
        }
        return result;
    }
    QAccessibleInterface* named(const QString& name) {
        for (int i = 0; i < hostObject()->childCount(); ++i) {
            if (hostObject()->child(i)->text(QAccessible::Name) == name) {
                return hostObject()->child(i);
            }
        }
        ADD_FAILURE() << "no element " << name.toStdString();
        return nullptr;
    }
    void key(int k) {
        QKeyEvent press(QEvent::KeyPress, k, Qt::NoModifier);
        QCoreApplication::sendEvent(host.get(), &press);
    }

    std::shared_ptr<platform::Window> window;
    std::shared_ptr<QXDManualEditController> controller;
    std::shared_ptr<Answers> answers = std::make_shared<Answers>();
    std::unique_ptr<platform::QtWidgetHost> host;
};

// A screen-reader user meets the help alert, answers it, finds every
// control with its texts, turns the image through the press action (the
// turning buttons say they are disabled meanwhile) and confirms by keyboard.
TEST_F(QXDManualEditAccessibilityTest, TheEditScreenCanBeUsedWithoutSightOrMouse) {
    EXPECT_EQ(names(), QStringList{"OK"}) << "the help alert is in front";
    key(Qt::Key_Return);
    RunLoop::main().advance(1.0);
    ASSERT_EQ(controller->presentedViewController(), nullptr);

    EXPECT_EQ(names(), (QStringList{"Rotate Left", "Help", "Rotate Right", "Cancel", "Confirm"}));
    QAccessibleInterface* right = named(QStringLiteral("Rotate Right"));
    ASSERT_NE(right, nullptr);
    EXPECT_EQ(right->role(), QAccessible::Button);
    EXPECT_EQ(right->text(QAccessible::Description),
              QStringLiteral("Rotates the image to the right by 90 degrees"));
    EXPECT_EQ(named(QStringLiteral("Cancel"))->text(QAccessible::Description),
              QStringLiteral("Dismisses the screen and goes back to the previous screen"));

    right->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_TRUE(right->state().disabled) << "disabled while the image turns";
    EXPECT_TRUE(named(QStringLiteral("Rotate Left"))->state().disabled);
    RunLoop::main().advance(0.5);
    EXPECT_FALSE(right->state().disabled);
    EXPECT_EQ(controller->modifiedImage()->size(), QSizeF(200, 300));

    // Shift+Tab from nothing lands on the last control, Confirm.
    QKeyEvent backtab(QEvent::KeyPress, Qt::Key_Backtab, Qt::ShiftModifier);
    QCoreApplication::sendEvent(host.get(), &backtab);
    EXPECT_EQ(window->access().focusedView(), controller->confirmButton());
    key(Qt::Key_Space);
    EXPECT_EQ(answers->confirms, 1);
    EXPECT_EQ(answers->cancels, 0);
}

}  // namespace
