#include "platform/foundation/RunLoop.h"
#include "platform/ui/AlertController.h"
#include "platform/ui/Button.h"
#include "platform/ui/Label.h"
#include "platform/ui/QtWindowHost.h"
#include "platform/ui/TapGestureRecognizer.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <QCoreApplication>
#include <QDir>
#include <QKeyEvent>

#include <gtest/gtest.h>

namespace {

using namespace platform;

std::shared_ptr<Button> makeButton(const QString& label, const QRectF& frame, int& presses) {
    auto button = Button::create();
    button->setFrame(frame);
    button->setBackgroundColor(Qt::darkGray);
    button->setIsAccessibilityElement(true);
    button->setAccessibilityLabel(label);
    button->addTarget(
        nullptr, [&presses](Control&) { ++presses; }, control_event::kTouchUpInside);
    return button;
}

class KeyboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        window = Window::create({0, 0, 320, 480});
        root = ViewController::create();
        window->setRootViewController(root);
        host = std::make_unique<QtWindowHost>(window);
        host->resize(320, 480);
        host->show();
        RunLoop::main().runPending();
    }
    void TearDown() override {
        host.reset();
        RunLoop::main().runPending();
    }

    // Sends a key press and its release to the host, as a keyboard would.
    bool key(int k, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QKeyEvent press(QEvent::KeyPress, k, modifiers);
        QKeyEvent release(QEvent::KeyRelease, k, modifiers);
        QCoreApplication::sendEvent(host.get(), &press);
        QCoreApplication::sendEvent(host.get(), &release);
        return press.isAccepted();
    }
    QString focusedLabel() const {
        const ViewPtr focused = window->access().focusedView();
        return focused ? focused->accessibilityLabel() : QStringLiteral("<none>");
    }

    std::shared_ptr<Window> window;
    std::shared_ptr<ViewController> root;
    std::unique_ptr<QtWindowHost> host;
};

// A screen of two rows: Tab goes left to right, top to bottom, past
// disabled, hidden, transparent and non-element views and static text, and
// wraps; Shift+Tab goes back; Space and Return press; the ring is drawn.
TEST_F(KeyboardTest, TabMovesAVisibleRingInReadingOrderAndSpaceOrReturnPresses) {
    int a = 0, b = 0, c = 0, disabled = 0, hidden = 0, faded = 0, plain = 0, finder = 0;
    const ViewPtr& screen = root->view();
    screen->setBackgroundColor(Qt::black);
    // Added out of reading order on purpose.
    screen->addSubview(makeButton("C", {20, 300, 120, 44}, c));
    screen->addSubview(makeButton("B", {180, 24, 120, 44}, b));
    screen->addSubview(makeButton("A", {20, 20, 120, 40}, a));
    auto off = makeButton("Disabled", {180, 300, 120, 44}, disabled);
    off->setEnabled(false);
    screen->addSubview(off);
    auto gone = makeButton("Hidden", {20, 400, 60, 44}, hidden);
    gone->setHidden(true);
    screen->addSubview(gone);
    auto clear = makeButton("Faded", {100, 400, 60, 44}, faded);
    clear->setAlpha(0.0);
    screen->addSubview(clear);
    auto notElement = makeButton("Plain", {180, 400, 60, 44}, plain);
    notElement->setIsAccessibilityElement(false);
    screen->addSubview(notElement);
    auto text = Label::create();
    text->setFrame({20, 200, 200, 20});
    text->setIsAccessibilityElement(true);
    text->setAccessibilityLabel(QStringLiteral("Caption"));
    screen->addSubview(text);
    // A plain view that takes taps through a recogniser is pressable too.
    auto viewFinder = View::create({40, 100, 240, 80});
    viewFinder->setIsAccessibilityElement(true);
    viewFinder->setAccessibilityLabel(QStringLiteral("Finder"));
    auto tap = TapGestureRecognizer::create();
    tap->addTarget(nullptr, [&](GestureRecognizer&) { ++finder; });
    viewFinder->addGestureRecognizer(tap);
    screen->addSubview(viewFinder);

    EXPECT_EQ(focusedLabel(), "<none>");
    QStringList order;
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(key(Qt::Key_Tab));
        order << focusedLabel();
    }
    EXPECT_EQ(order, (QStringList{"A", "B", "Finder", "C", "A"})) << "reading order, then wraps";
    EXPECT_TRUE(key(Qt::Key_Backtab, Qt::ShiftModifier));
    EXPECT_EQ(focusedLabel(), "C");
    EXPECT_TRUE(key(Qt::Key_Tab, Qt::ShiftModifier)) << "Shift+Tab as some keyboards send it";
    EXPECT_EQ(focusedLabel(), "Finder");

    EXPECT_TRUE(key(Qt::Key_Return));
    EXPECT_EQ(finder, 1) << "a view with a tap recogniser is tapped at its centre";
    key(Qt::Key_Tab);
    EXPECT_TRUE(key(Qt::Key_Space));
    EXPECT_TRUE(key(Qt::Key_Enter, Qt::KeypadModifier));
    EXPECT_EQ(c, 2);
    EXPECT_EQ(a + b + disabled + hidden + faded + plain, 0);

    // The ring: a blue outline just outside C, drawn over the tree.
    const QImage shot = host->renderImage();
    const double dpr = shot.devicePixelRatio();
    const QString folder = QCoreApplication::applicationDirPath() + QStringLiteral("/keyboard");
    QDir().mkpath(folder);
    shot.save(folder + QStringLiteral("/focus-ring.png"));
    const auto at = [&](double x, double y) { return shot.pixelColor(int(x * dpr), int(y * dpr)); };
    const QColor ring = at(80, 300 - 1.5);
    EXPECT_GT(ring.blue(), 200);
    EXPECT_LT(ring.red(), 60);
    EXPECT_EQ(at(80, 322), QColor(Qt::darkGray)) << "the control itself is not covered";
    EXPECT_EQ(at(80, 290), QColor(Qt::black));

    // A focused control that becomes disabled loses the ring; Tab goes on
    // from the start.
    off->setEnabled(true);
    c = 0;
    auto& cButton = static_cast<Button&>(*window->access().focusedView());
    cButton.setEnabled(false);
    EXPECT_EQ(focusedLabel(), "<none>");
    EXPECT_TRUE(window->access().focusRingRect().isEmpty());
    EXPECT_FALSE(key(Qt::Key_Space)) << "nothing focused, nothing bound";
    EXPECT_EQ(c, 0);
    key(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_EQ(focusedLabel(), "Disabled") << "enabled again, last in reading order";
}

// An alert in front takes Return for its default action and Escape for its
// cancel action; the screen behind it is out of Tab's reach meanwhile.
TEST_F(KeyboardTest, AlertAnswersReturnAndEscapeAndKeepsFocusToItself) {
    int behind = 0;
    root->view()->addSubview(makeButton("Behind", {20, 20, 100, 44}, behind));
    QStringList chosen;
    const auto present = [&] {
        auto alert = AlertController::create(QStringLiteral("Save?"), QStringLiteral("Keep it"));
        alert->addAction(AlertAction::create(QStringLiteral("Keep"), AlertActionStyle::Default,
                                             [&](AlertAction& a) { chosen << a.title(); }));
        alert->addAction(AlertAction::create(QStringLiteral("Discard"), AlertActionStyle::Cancel,
                                             [&](AlertAction& a) { chosen << a.title(); }));
        root->presentViewController(alert, true);
        RunLoop::main().advance(0.5);
        return alert;
    };

    auto alert = present();
    QStringList order;
    for (int i = 0; i < 3; ++i) {
        key(Qt::Key_Tab);
        order << focusedLabel();
    }
    EXPECT_EQ(order, (QStringList{"Discard", "Keep", "Discard"}));
    EXPECT_TRUE(key(Qt::Key_Escape)) << "Escape answers the alert whatever is focused";
    RunLoop::main().advance(0.5);
    EXPECT_EQ(chosen, QStringList{"Discard"});
    EXPECT_EQ(root->presentedViewController(), nullptr);

    present();
    window->access().clearFocus();
    EXPECT_TRUE(key(Qt::Key_Return));
    RunLoop::main().advance(0.5);
    EXPECT_EQ(chosen, (QStringList{"Discard", "Keep"}));
    EXPECT_FALSE(key(Qt::Key_Escape)) << "no alert, nothing bound";
    key(Qt::Key_Tab);
    EXPECT_EQ(focusedLabel(), "Behind");
    EXPECT_EQ(behind, 0);
}

// Key commands: exact modifiers, the latest binding first, bindings scoped
// to a controller only while it is in front, removal.
TEST_F(KeyboardTest, KeyCommandsActByKeyModifiersAndFrontScreen) {
    QStringList ran;
    auto& access = window->access();
    access.addKeyCommand({Qt::Key_Left, Qt::NoModifier, "Turn left", [&] { ran << "left"; }, {}});
    const auto later = access.addKeyCommand(
        {Qt::Key_Left, Qt::NoModifier, "Turn left again", [&] { ran << "left2"; }, {}});
    access.addKeyCommand({Qt::Key_S, Qt::ControlModifier, "Save", [&] { ran << "save"; }, root});
    EXPECT_EQ(access.keyCommands().size(), 3u);
    EXPECT_EQ(access.keyCommands()[2].title, QStringLiteral("Save"));

    EXPECT_TRUE(key(Qt::Key_Left));
    EXPECT_FALSE(key(Qt::Key_Left, Qt::ShiftModifier));
    EXPECT_FALSE(key(Qt::Key_S));
    EXPECT_TRUE(key(Qt::Key_S, Qt::ControlModifier));
    access.removeKeyCommand(later);
    EXPECT_TRUE(key(Qt::Key_Left));
    EXPECT_EQ(ran, (QStringList{"left2", "save", "left"}));

    auto modal = ViewController::create();
    root->presentViewController(modal, false);
    RunLoop::main().runPending();
    ran.clear();
    EXPECT_FALSE(key(Qt::Key_S, Qt::ControlModifier)) << "its screen is covered";
    EXPECT_TRUE(key(Qt::Key_Left)) << "window-wide commands still act";
    EXPECT_EQ(ran, QStringList{"left"});
}

}  // namespace
