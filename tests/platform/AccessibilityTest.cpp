#include "platform/foundation/RunLoop.h"
#include "platform/ui/AccessibilityTraits.h"
#include "platform/ui/AlertController.h"
#include "platform/ui/Button.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"
#include "platform/ui/QtWidgetHost.h"
#include "platform/ui/QtWindowHost.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QApplication>
#include <QKeyEvent>

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace platform;

// An accessibility event as "<event> <name>: <value>".
QString summary(QAccessibleEvent& event) {
    QAccessibleInterface* iface = event.accessibleInterface();
    const QString name = iface != nullptr ? iface->text(QAccessible::Name) : QString();
    switch (event.type()) {
        case QAccessible::Focus:
            return QStringLiteral("focus ") + name;
        case QAccessible::ValueChanged:
            return QStringLiteral("value %1: %2")
                .arg(name, static_cast<QAccessibleValueChangeEvent&>(event).value().toString());
        case QAccessible::NameChanged:
            return QStringLiteral("name ") + name;
        default:
            return QStringLiteral("other ") + name;
    }
}

QStringList describe(QAccessibleInterface* root) {
    QStringList lines;
    for (int i = 0; i < root->childCount(); ++i) {
        QAccessibleInterface* c = root->child(i);
        lines << QStringLiteral("%1 %2 [%3] (%4)%5")
                     .arg(int(c->role()))
                     .arg(c->text(QAccessible::Name), c->text(QAccessible::Value),
                          c->text(QAccessible::Description),
                          c->state().disabled ? QStringLiteral(" disabled") : QString());
        EXPECT_EQ(root->indexOfChild(c), i);
        EXPECT_EQ(c->parent(), root);
    }
    return lines;
}

QString line(QAccessible::Role role, const QString& rest) {
    return QStringLiteral("%1 %2").arg(int(role)).arg(rest);
}

class AccessibilityTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        window = Window::create({0, 0, 320, 480});
        root = ViewController::create();
        window->setRootViewController(root);
        const ViewPtr& screen = root->view();

        torch = Button::create();
        torch->setFrame({200, 20, 60, 44});
        torch->setIsAccessibilityElement(true);
        torch->setAccessibilityLabel(QStringLiteral("Torch"));
        torch->setAccessibilityHint(QStringLiteral("Turns the light on or off"));
        torch->setAccessibilityValue(QStringLiteral("Off"));
        torch->addTarget(
            nullptr, [this](Control&) { ++torchPresses; }, control_event::kTouchUpInside);
        screen->addSubview(torch);

        shutter = Button::create();
        shutter->setFrame({20, 20, 60, 44});
        shutter->setIsAccessibilityElement(true);
        shutter->setAccessibilityLabel(QStringLiteral("Shutter"));
        shutter->setEnabled(false);
        shutter->addTarget(
            nullptr, [this](Control&) { ++shutterPresses; }, control_event::kTouchUpInside);
        screen->addSubview(shutter);

        auto picture = ImageView::create(QRectF(20, 100, 280, 200));
        picture->setIsAccessibilityElement(true);
        picture->setAccessibilityLabel(QStringLiteral("Page"));
        screen->addSubview(picture);

        auto caption = Label::create();
        caption->setFrame({20, 320, 280, 20});
        caption->setText(QStringLiteral("Hold still"));
        caption->setIsAccessibilityElement(true);
        caption->setAccessibilityLabel(QStringLiteral("Hold still"));
        screen->addSubview(caption);

        auto zoom = View::create({20, 360, 280, 30});
        zoom->setIsAccessibilityElement(true);
        zoom->setAccessibilityLabel(QStringLiteral("Zoom"));
        zoom->setAccessibilityValue(QStringLiteral("1x"));
        zoom->setAccessibilityTraits(accessibility_traits::kAdjustable);
        screen->addSubview(zoom);

        hidden = Button::create();
        hidden->setFrame({20, 420, 60, 44});
        hidden->setIsAccessibilityElement(true);
        hidden->setAccessibilityLabel(QStringLiteral("Hidden"));
        hidden->setHidden(true);
        screen->addSubview(hidden);
    }
    void TearDown() override { RunLoop::main().runPending(); }

    // Checks what a screen reader finds under a host's accessible object.
    void checkTree(QAccessibleInterface* hostObject, HostAccessibility& accessibility) {
        ASSERT_NE(hostObject, nullptr);
        EXPECT_EQ(describe(hostObject),
                  (QStringList{
                      line(QAccessible::Button, "Shutter [] () disabled"),
                      line(QAccessible::Button, "Torch [Off] (Turns the light on or off)"),
                      line(QAccessible::Graphic, "Page [] ()"),
                      line(QAccessible::StaticText, "Hold still [] ()"),
                      line(QAccessible::Slider, "Zoom [1x] ()"),
                  }))
            << "reading order, hidden views left out";

        QAccessibleInterface* torchObject = hostObject->child(1);
        QAccessibleActionInterface* actions = torchObject->actionInterface();
        ASSERT_NE(actions, nullptr);
        EXPECT_TRUE(actions->actionNames().contains(QAccessibleActionInterface::pressAction()));
        actions->doAction(QAccessibleActionInterface::pressAction());
        EXPECT_EQ(torchPresses, 1);
        torch->setSelected(true);
        EXPECT_TRUE(torchObject->state().selected);
        EXPECT_FALSE(torchObject->state().disabled);

        QAccessibleInterface* shutterObject = hostObject->child(0);
        EXPECT_TRUE(shutterObject->state().disabled);
        EXPECT_TRUE(shutterObject->actionInterface()->actionNames().isEmpty());
        shutterObject->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        EXPECT_EQ(shutterPresses, 0) << "a disabled control cannot be pressed";

        const QRect torchRect = torchObject->rect();
        EXPECT_EQ(torchRect.size(), QSize(60, 44));
        EXPECT_EQ(hostObject->childAt(torchRect.center().x(), torchRect.center().y()), torchObject);

        // Notifications: value and label changes, and the keyboard focus.
        std::vector<QString> events;
        accessibility.setEventListener([&](QAccessibleEvent& e) { events.push_back(summary(e)); });
        torch->setAccessibilityValue(QStringLiteral("On"));
        torch->setAccessibilityValue(QStringLiteral("On"));
        window->access().moveFocus(true);
        torchObject->actionInterface()->doAction(QAccessibleActionInterface::setFocusAction());
        hidden->setAccessibilityLabel(QStringLiteral("Gone"));
        EXPECT_EQ(events, (std::vector<QString>{"value Torch: On", "focus Torch", "name Gone"}))
            << "one event a change, none for an unchanged value";
        EXPECT_TRUE(torchObject->state().focused);
        EXPECT_TRUE(torchObject->state().focusable);
        torch->setSelected(false);
        torch->setAccessibilityValue(QStringLiteral("Off"));
        accessibility.setEventListener({});
    }

    std::shared_ptr<Window> window;
    std::shared_ptr<ViewController> root;
    std::shared_ptr<Button> torch, shutter, hidden;
    int torchPresses = 0;
    int shutterPresses = 0;
};

TEST_F(AccessibilityTest, TheWindowHostExposesTheElementsOfTheScreen) {
    QtWindowHost host(window);
    host.setTitle(QStringLiteral("Scanner"));
    host.resize(320, 480);
    host.show();
    RunLoop::main().runPending();
    QAccessibleInterface* hostObject = QAccessible::queryAccessibleInterface(&host);
    ASSERT_NE(hostObject, nullptr);
    EXPECT_EQ(hostObject->role(), QAccessible::Window);
    EXPECT_EQ(hostObject->text(QAccessible::Name), QStringLiteral("Scanner"));
    checkTree(hostObject, host.hostAccessibility());
}

// The widget host: the same tree; a presented alert replaces the screen's
// elements with its own; the objects of a host that goes away stay safe.
TEST_F(AccessibilityTest, TheWidgetHostExposesTheFrontScreenOnly) {
    auto host = std::make_unique<QtWidgetHost>(window);
    host->resize(320, 480);
    host->show();
    RunLoop::main().runPending();
    QAccessibleInterface* hostObject = QAccessible::queryAccessibleInterface(host.get());
    ASSERT_NE(hostObject, nullptr);
    EXPECT_EQ(hostObject->object(), host.get());
    checkTree(hostObject, host->hostAccessibility());

    auto alert = AlertController::create(QStringLiteral("Low light"), QStringLiteral("Torch?"));
    alert->addAction(AlertAction::create(QStringLiteral("No"), AlertActionStyle::Cancel));
    alert->addAction(AlertAction::create(QStringLiteral("Yes")));
    root->presentViewController(alert, false);
    RunLoop::main().runPending();
    QStringList names;
    for (int i = 0; i < hostObject->childCount(); ++i) {
        names << hostObject->child(i)->text(QAccessible::Name);
    }
    EXPECT_EQ(names, (QStringList{"No", "Yes"}));

    QAccessibleInterface* no = hostObject->child(0);
    const QAccessible::Id noId = QAccessible::uniqueId(no);
    no->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    RunLoop::main().advance(1.0);
    EXPECT_EQ(root->presentedViewController(), nullptr) << "pressing No dismissed the alert";
    EXPECT_FALSE(no->isValid()) << "the alert's button left the window";
    EXPECT_EQ(hostObject->childCount(), 5);

    host.reset();
    EXPECT_EQ(QAccessible::accessibleInterface(noId), nullptr)
        << "the host's element objects go with it";
}

}  // namespace
