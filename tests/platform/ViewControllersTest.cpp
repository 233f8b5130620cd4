#include "platform/environment/Environment.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/AlertController.h"
#include "platform/ui/AlertControllerView.h"
#include "platform/ui/Button.h"
#include "platform/ui/HostBridge.h"
#include "platform/ui/InterfaceLoader.h"
#include "platform/ui/Label.h"
#include "platform/ui/QtWindowHost.h"
#include "platform/ui/ScreenEnvironment.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"

#include <QCoreApplication>
#include <QFile>
#include <QMouseEvent>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

// Readable failure messages for logs of QStrings.
void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

using namespace platform;
using Log = std::vector<QString>;

// Records its callbacks, prefixed with its name, into a log the test owns.
class RecordingController : public ViewController {
public:
    static std::shared_ptr<RecordingController> create(QString name, Log& log) {
        return make<RecordingController>(std::move(name), log);
    }
    void viewDidLoad() override { note("load"); }
    void viewWillAppear(bool animated) override {
        const auto& subviews = view()->subviews();
        const bool attached = std::all_of(subviews.begin(), subviews.end(), [&](const ViewPtr& v) {
            return v->window() == view()->window();
        });
        note(attached ? "will-appear" : "will-appear-before-subviews-know-the-window", animated);
    }
    void viewDidAppear(bool animated) override { note("did-appear", animated); }
    void viewWillDisappear(bool animated) override { note("will-disappear", animated); }
    void viewDidDisappear(bool animated) override { note("did-disappear", animated); }
    void viewWillLayoutSubviews() override { note("will-layout"); }
    void viewDidLayoutSubviews() override { note("did-layout"); }
    void willMoveToParentViewController(ViewController* parent) override {
        note(parent != nullptr ? "will-move-to-parent" : "will-move-to-none");
    }
    void didMoveToParentViewController(ViewController* parent) override {
        note(parent != nullptr ? "did-move-to-parent" : "did-move-to-none");
    }

protected:
    RecordingController(QString name, Log& log) : _name(std::move(name)), _log(log) {}

private:
    // Animated callbacks are marked with a star.
    void note(const char* what, bool animated = false) {
        _log.push_back(_name + QLatin1Char(':') + QLatin1String(what) +
                       (animated ? QStringLiteral("*") : QString()));
    }
    QString _name;
    Log& _log;
};

class ViewControllersTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        window = Window::create({0, 0, 320, 480});
    }
    void TearDown() override { RunLoop::main().runPending(); }

    // Installs a root controller in the visible window and lets it appear.
    std::shared_ptr<RecordingController> showRoot() {
        auto root = RecordingController::create(QStringLiteral("root"), log);
        window->setRootViewController(root);
        window->makeKeyAndVisible();
        RunLoop::main().runPending();
        log.clear();
        return root;
    }
    bool inWindow(const ViewPtr& view) const { return view->window() == window; }
    // The log without layout passes, which every change to the window's tree
    // brings for every controller in it.
    Log appearance() const {
        Log filtered;
        std::copy_if(log.begin(), log.end(), std::back_inserter(filtered),
                     [](const QString& line) { return !line.contains(QLatin1String("layout")); });
        return filtered;
    }

    Log log;
    std::shared_ptr<Window> window;
};

// --- Appearance of a root controller and of an embedded child ----------------------

TEST_F(ViewControllersTest, RootControllerLoadsLazilyAndAppearsWithTheWindow) {
    auto root = RecordingController::create(QStringLiteral("root"), log);
    EXPECT_FALSE(root->isViewLoaded());
    EXPECT_EQ(root->view()->frame(), Screen::main().bounds()) << "default view: the screen's size";
    root->view()->addSubview(View::create());
    EXPECT_EQ(root->view()->viewController(), root);

    window->setRootViewController(root);
    EXPECT_EQ(root->view()->frame(), window->bounds());
    EXPECT_EQ(log, Log{"root:load"}) << "no appearance while the window is hidden";

    window->makeKeyAndVisible();
    EXPECT_EQ(log, (Log{"root:load", "root:will-appear"}));
    RunLoop::main().runPending();
    window->layoutIfNeededForHost();
    EXPECT_EQ(log, (Log{"root:load", "root:will-appear", "root:did-appear", "root:will-layout",
                        "root:did-layout"}));

    log.clear();
    window->setRootViewController(nullptr);
    EXPECT_EQ(log, (Log{"root:will-disappear", "root:did-disappear"}));

    log.clear();
    window->setRootViewController(root);
    root->view()->removeFromSuperview();
    RunLoop::main().runPending();
    EXPECT_EQ(log, (Log{"root:will-appear", "root:will-disappear", "root:did-disappear"}))
        << "leaving before did-appear cancels it";
}

TEST_F(ViewControllersTest, OverlayChildFollowsItsParentsView) {
    auto parent = showRoot();
    auto child = RecordingController::create(QStringLiteral("child"), log);

    parent->addChildViewController(child);
    child->view()->setFrame({0, 264, 320, 216});
    parent->view()->addSubview(child->view());
    child->didMoveToParentViewController(parent.get());
    RunLoop::main().runPending();
    EXPECT_EQ(child->parentViewController(), parent);
    ASSERT_EQ(parent->childViewControllers().size(), 1u);
    EXPECT_EQ(log, (Log{"child:will-move-to-parent", "child:load", "child:will-appear",
                        "child:did-move-to-parent", "child:did-appear"}));

    log.clear();
    auto holder = View::create({0, 0, 320, 480});
    parent->view()->addSubview(holder);
    holder->addSubview(child->view());
    RunLoop::main().runPending();
    EXPECT_TRUE(log.empty()) << "moving within the window is not leaving it";
    EXPECT_TRUE(inWindow(child->view()));

    window->setRootViewController(nullptr);
    EXPECT_EQ(log, (Log{"root:will-disappear", "root:did-disappear", "child:will-disappear",
                        "child:did-disappear"}))
        << "the parent's view leaving takes the child's along, parent first";

    log.clear();
    child->willMoveToParentViewController(nullptr);
    child->view()->removeFromSuperview();
    child->removeFromParentViewController();
    EXPECT_EQ(log, (Log{"child:will-move-to-none", "child:did-move-to-none"}));
    EXPECT_TRUE(parent->childViewControllers().empty());
    EXPECT_EQ(child->parentViewController(), nullptr);
}

// --- Modal presentation ------------------------------------------------------------

TEST_F(ViewControllersTest, AnimatedPresentationSlidesUpThenSwapsTheScreens) {
    auto root = showRoot();
    auto modal = RecordingController::create(QStringLiteral("modal"), log);
    int completions = 0;

    root->presentViewController(modal, true, [&] { ++completions; });
    EXPECT_EQ(appearance(), (Log{"modal:load", "root:will-disappear*", "modal:will-appear*"}));
    EXPECT_NE(std::find(log.begin(), log.end(), "modal:did-layout"), log.end())
        << "laid out in place before it moves";
    EXPECT_EQ(window->subviews().back(), modal->view()) << "above everything";
    EXPECT_EQ(modal->view()->frame(), window->bounds());
    EXPECT_EQ(root->presentedViewController(), modal);
    EXPECT_EQ(modal->presentingViewController(), root);

    RunLoop::main().advance(0.15);
    const double halfway = modal->view()->layer()->presentationState().frame().top();
    EXPECT_GT(halfway, 0.0);
    EXPECT_LT(halfway, 480.0);

    RunLoop::main().advance(0.14);
    EXPECT_EQ(appearance().size(), 3u) << "nothing completes before 0.3 s";
    EXPECT_EQ(completions, 0);
    RunLoop::main().advance(0.02);
    EXPECT_EQ(appearance(), (Log{"modal:load", "root:will-disappear*", "modal:will-appear*",
                                 "root:did-disappear*", "modal:did-appear*"}));
    EXPECT_EQ(completions, 1);
    EXPECT_FALSE(inWindow(root->view())) << "the covered screen leaves the window";

    log.clear();
    modal->dismissViewControllerAnimated(true, [&] { ++completions; });
    EXPECT_EQ(appearance(), (Log{"modal:will-disappear*", "root:will-appear*"}));
    EXPECT_TRUE(inWindow(root->view()));
    EXPECT_LT(std::find(window->subviews().begin(), window->subviews().end(), root->view()),
              std::find(window->subviews().begin(), window->subviews().end(), modal->view()))
        << "back under the leaving screen";
    RunLoop::main().advance(0.31);
    EXPECT_EQ(appearance(), (Log{"modal:will-disappear*", "root:will-appear*",
                                 "modal:did-disappear*", "root:did-appear*"}));
    EXPECT_EQ(completions, 2);
    EXPECT_FALSE(inWindow(modal->view()));
    EXPECT_EQ(root->presentedViewController(), nullptr);
    EXPECT_EQ(modal->presentingViewController(), nullptr);
    RunLoop::main().advance(1.0);
    EXPECT_EQ(completions, 2) << "completions run once";
}

TEST_F(ViewControllersTest, PresentationsThatCannotRunAreRefusedWithALogLine) {
    auto root = showRoot();
    auto first = RecordingController::create(QStringLiteral("first"), log);
    auto second = RecordingController::create(QStringLiteral("second"), log);
    Log lines;
    log::ScopedSink sink([&](const QString& line) { lines.push_back(line); });

    root->presentViewController(first, true);
    root->presentViewController(second, false);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].contains(QLatin1String("while a presentation is in progress")));
    RunLoop::main().advance(0.31);
    root->presentViewController(second, false);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[1].contains(QLatin1String("which is already presenting")))
        << lines[1].toStdString();
    EXPECT_EQ(root->presentedViewController(), first);
    EXPECT_FALSE(second->isViewLoaded());

    auto detached = RecordingController::create(QStringLiteral("detached"), log);
    detached->presentViewController(second, false);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[2].contains(QLatin1String("not in the window hierarchy")));
}

TEST_F(ViewControllersTest, UnanimatedPresentationCompletesOnTheNextTurn) {
    auto root = showRoot();
    auto modal = RecordingController::create(QStringLiteral("modal"), log);
    int completions = 0;
    root->presentViewController(modal, false, [&] { ++completions; });
    EXPECT_EQ(completions, 0);
    RunLoop::main().runPending();
    EXPECT_EQ(appearance(), (Log{"modal:load", "root:will-disappear", "modal:will-appear",
                                 "root:did-disappear", "modal:did-appear"}));
    EXPECT_EQ(completions, 1);
}

// Presents a help screen over itself from its viewDidAppear, as screens that
// show help on every appearance do.
class PresentsOnAppear : public ViewController {
public:
    static std::shared_ptr<PresentsOnAppear> create() { return make<PresentsOnAppear>(); }
    void viewDidAppear(bool animated) override {
        ViewController::viewDidAppear(animated);
        if (!presentedViewController()) {
            auto help = ViewController::create();
            help->setModalPresentationStyle(ModalPresentationStyle::OverFullScreen);
            presentViewController(help, false);
        }
    }
};

TEST_F(ViewControllersTest, AScreenMayPresentFromViewDidAppearAfterEitherTransition) {
    auto root = showRoot();
    Log lines;
    log::ScopedSink sink([&](const QString& line) { lines.push_back(line); });
    auto screen = PresentsOnAppear::create();
    root->presentViewController(screen, true);
    RunLoop::main().advance(0.31);
    RunLoop::main().runPending();
    ASSERT_NE(screen->presentedViewController(), nullptr) << "presented once it appeared";

    // A full-screen modal over it comes and goes: it appears again and
    // presents again.
    screen->dismissViewControllerAnimated(false);
    RunLoop::main().runPending();
    ASSERT_EQ(screen->presentedViewController(), nullptr);
    auto modal = ViewController::create();
    modal->setModalPresentationStyle(ModalPresentationStyle::FullScreen);
    screen->presentViewController(modal, true);
    RunLoop::main().advance(0.31);
    screen->dismissViewControllerAnimated(true);
    RunLoop::main().advance(0.31);
    RunLoop::main().runPending();
    EXPECT_NE(screen->presentedViewController(), nullptr);
    EXPECT_NE(screen->presentedViewController(), modal);
    EXPECT_EQ(lines, Log{});
}

// --- Alerts -------------------------------------------------------------------------

TEST_F(ViewControllersTest, AlertShowsItsTextsAndButtonsAndDismissesThroughAnAction) {
    auto root = showRoot();
    root->view()->setBackgroundColor(Qt::white);
    auto alert =
        AlertController::create(QStringLiteral("Low light"), QStringLiteral("Turn the torch on?"));
    int handled = 0;
    alert->addAction(AlertAction::create(QStringLiteral("Cancel"), AlertActionStyle::Cancel));
    alert->addAction(AlertAction::create(QStringLiteral("OK"), AlertActionStyle::Default,
                                         [&](AlertAction& action) {
                                             EXPECT_EQ(action.title(), QStringLiteral("OK"));
                                             EXPECT_FALSE(inWindow(alert->view()));
                                             ++handled;
                                         }));
    root->presentViewController(alert, true);
    auto* view = dynamic_cast<AlertControllerView*>(alert->view().get());
    ASSERT_NE(view, nullptr);
    ASSERT_EQ(view->buttons().size(), 2u);
    const ViewPtr& ok = view->buttons()[1];
    const QPointF okCentre = ok->convertPointToView(ok->bounds().center(), nullptr);
    window->tap(okCentre);
    RunLoop::main().advance(0.31);
    EXPECT_EQ(root->presentedViewController(), alert) << "taps while it fades in do nothing";
    EXPECT_TRUE(appearance().empty()) << "the alert leaves the presenting screen alone";
    EXPECT_TRUE(inWindow(root->view()));

    window->layoutIfNeededForHost();
    const QRectF box = view->box()->convertRectToView(view->box()->bounds(), nullptr);
    EXPECT_EQ(box.width(), 270.0);
    EXPECT_NEAR(box.center().x(), 160.0, 0.5);
    EXPECT_NEAR(box.center().y(), 240.0, 0.5);
    EXPECT_EQ(view->titleLabel()->text(), QStringLiteral("Low light"));
    EXPECT_EQ(view->messageLabel()->text(), QStringLiteral("Turn the torch on?"));
    EXPECT_EQ(view->buttons()[0]->currentTitle(), QStringLiteral("Cancel")) << "cancel on the left";
    EXPECT_EQ(view->buttons()[0]->frame().y(), view->buttons()[1]->frame().y()) << "one row";

    const QImage shot = window->snapshot();
    EXPECT_LT(qGray(shot.pixel(5, 5)), 200) << "the screen behind is dimmed";
    EXPECT_GT(qGray(shot.pixel(box.left() + 4, box.center().y())), 230) << "the box is light";
    const QRectF title =
        view->titleLabel()->convertRectToView(view->titleLabel()->bounds(), nullptr);
    int ink = 0;
    for (int y = int(title.top()); y < int(title.bottom()); ++y) {
        for (int x = int(title.left()); x < int(title.right()); ++x) {
            ink += qGray(shot.pixel(x, y)) < 128 ? 1 : 0;
        }
    }
    EXPECT_GT(ink, 20) << "the title is drawn";

    window->tap(okCentre);
    window->tap(okCentre);
    EXPECT_EQ(handled, 0) << "the handler waits for the alert to go";
    RunLoop::main().advance(0.31);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(root->presentedViewController(), nullptr);
    window->tap(okCentre);
    RunLoop::main().advance(0.31);
    EXPECT_EQ(handled, 1);
    EXPECT_TRUE(appearance().empty());
}

TEST_F(ViewControllersTest, AlertStacksMoreThanTwoActionsWithCancelLast) {
    auto alert = AlertController::create(QStringLiteral("Pick"), QString());
    alert->addAction(AlertAction::create(QStringLiteral("Never"), AlertActionStyle::Cancel));
    alert->addAction(AlertAction::create(QStringLiteral("One")));
    alert->addAction(AlertAction::create(QStringLiteral("Two"), AlertActionStyle::Destructive));
    alert->addAction(AlertAction::create(QStringLiteral("Again"), AlertActionStyle::Cancel));
    EXPECT_EQ(alert->actions().size(), 3u) << "one cancel action at most";
    auto* view = dynamic_cast<AlertControllerView*>(alert->view().get());
    ASSERT_NE(view, nullptr);
    view->setFrame({0, 0, 320, 480});
    view->layoutIfNeeded();
    const auto& buttons = view->buttons();
    ASSERT_EQ(buttons.size(), 3u);
    EXPECT_EQ(buttons[2]->currentTitle(), QStringLiteral("Never"));
    EXPECT_EQ(buttons[1]->frame().top(), buttons[0]->frame().bottom());
    EXPECT_EQ(buttons[2]->frame().top(), buttons[1]->frame().bottom());
    EXPECT_EQ(buttons[0]->frame().width(), 270.0);
    EXPECT_TRUE(view->messageLabel()->isHidden());
}

// --- Interface files ------------------------------------------------------------------

class PanelOwner : public InterfaceOwner {
public:
    bool setOutlet(const QString& name, const ViewPtr& view) override {
        if (name == QLatin1String("panel")) {
            panel = view;
        } else if (name == QLatin1String("titleLabel")) {
            titleLabel = std::dynamic_pointer_cast<Label>(view);
        } else {
            return false;
        }
        return true;
    }
    bool setConstraintOutlet(const QString& name, const LayoutConstraintPtr& c) override {
        titleTop = c;
        return name == QLatin1String("titleTop");
    }
    GestureRecognizer::Action actionNamed(const QString& name) override {
        if (name != QLatin1String("panelTapped")) {
            return {};
        }
        return [this](GestureRecognizer&) { ++taps; };
    }

    ViewPtr panel;
    std::shared_ptr<Label> titleLabel;
    LayoutConstraintPtr titleTop;
    int taps = 0;
};

constexpr const char* kPanel = R"({"objects": [{
  "type": "View", "outlet": "panel", "frame": [0, 0, 200, 100], "backgroundColor": "#336699",
  "accessibility": {"label": "Panel"},
  "subviews": [
    {"type": "Label", "id": "title", "outlet": "titleLabel", "text": "Hello",
     "font": {"size": 15, "weight": "bold"}, "textAlignment": "center",
     "translatesAutoresizingMaskIntoConstraints": false},
    {"type": "%BADGE%", "id": "badge", "translatesAutoresizingMaskIntoConstraints": false,
     "cornerRadius": 4}
  ],
  "constraints": [
    {"item": "title", "attribute": "leading", "item2": "panel", "attribute2": "leading", "constant": 10},
    {"item": "title", "attribute": "top", "item2": "panel", "attribute2": "top", "constant": 8, "outlet": "titleTop"},
    {"item": "title", "attribute": "width", "constant": 120},
    {"item": "title", "attribute": "height", "constant": 20},
    {"item": "badge", "attribute": "trailing", "item2": "panel", "attribute2": "trailing", "constant": -10},
    {"item": "badge", "attribute": "centerY", "item2": "title", "attribute2": "centerY"},
    {"item": "badge", "attribute": "height", "item2": "badge", "attribute2": "width"},
    {"item": "badge", "attribute": "width", "relation": ">=", "constant": 30},
    {"item": "badge", "attribute": "width", "constant": 10, "priority": 250}
  ],
  "gestures": [{"type": "tap", "taps": 1, "touches": 1, "action": "panelTapped"}]
}]})";

class InterfaceLoaderTest : public ViewControllersTest {
protected:
    void write(const QString& name, QString text) {
        QFile file(folder.filePath(name + QStringLiteral(".json")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text.replace(QStringLiteral("%BADGE%"), QStringLiteral("View")).toUtf8());
    }
    std::vector<ViewPtr> load(const QString& name) {
        return InterfaceLoader::load(name, Bundle::bundleWithPath(folder.path()), &owner);
    }

    QTemporaryDir folder;
    PanelOwner owner;
};

TEST_F(InterfaceLoaderTest, BuildsTheTreeWithOutletsConstraintsAndActions) {
    write(QStringLiteral("Panel"), QString::fromUtf8(kPanel));
    const auto objects = load(QStringLiteral("Panel"));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0], owner.panel);
    ASSERT_NE(owner.titleLabel, nullptr);
    EXPECT_EQ(owner.titleLabel->text(), QStringLiteral("Hello"));
    EXPECT_EQ(owner.titleLabel->font().weight(), QFont::Bold);
    EXPECT_EQ(owner.panel->accessibilityLabel(), QStringLiteral("Panel"));
    EXPECT_EQ(owner.panel->backgroundColor(), QColor(0x33, 0x66, 0x99));

    window->addSubview(owner.panel);
    window->layoutIfNeededForHost();
    const ViewPtr badge = owner.panel->subviews().at(1);
    EXPECT_EQ(owner.titleLabel->frame(), QRectF(10, 8, 120, 20));
    EXPECT_EQ(badge->frame(), QRectF(160, 3, 30, 30));

    ASSERT_NE(owner.titleTop, nullptr);
    owner.titleTop->setConstant(30);
    window->layoutIfNeededForHost();
    EXPECT_EQ(owner.titleLabel->frame(), QRectF(10, 30, 120, 20));
    EXPECT_EQ(badge->frame().center().y(), 40.0);

    window->tap({100, 90});
    EXPECT_EQ(owner.taps, 1);
}

TEST_F(InterfaceLoaderTest, RegisteredTypesAreMadeByTheirFactories) {
    int made = 0;
    InterfaceLoader::registerViewType(QStringLiteral("Badge"), [&] {
        ++made;
        return Label::create();
    });
    write(QStringLiteral("Panel"),
          QString::fromUtf8(kPanel).replace(QStringLiteral("%BADGE%"), QStringLiteral("Badge")));
    const auto objects = load(QStringLiteral("Panel"));
    InterfaceLoader::unregisterViewType(QStringLiteral("Badge"));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(made, 1);
    EXPECT_NE(std::dynamic_pointer_cast<Label>(objects[0]->subviews().at(1)), nullptr);
    EXPECT_FALSE(InterfaceLoader::isViewTypeRegistered(QStringLiteral("Badge")));
}

TEST_F(InterfaceLoaderTest, BadFilesFailWithOneLineNamingTheProblem) {
    const QString good = QString::fromUtf8(kPanel);
    const std::vector<std::pair<QString, QString>> cases = {
        {QStringLiteral("{\"objects\": [{\"type\": \"View\",}]"), QStringLiteral("malformed")},
        {QString(good).replace(QStringLiteral("\"Label\""), QStringLiteral("\"Slider\"")),
         QStringLiteral("unknown view type 'Slider'")},
        {QString(good).replace(QStringLiteral("\"item2\": \"title\""),
                               QStringLiteral("\"item2\": \"subtitle\"")),
         QStringLiteral("unknown view 'subtitle'")},
        {QString(good).replace(QStringLiteral("\"outlet\": \"titleLabel\""),
                               QStringLiteral("\"outlet\": \"heading\"")),
         QStringLiteral("no outlet 'heading'")},
        {QString(good).replace(QStringLiteral("panelTapped"), QStringLiteral("close")),
         QStringLiteral("no action 'close'")},
        {QString(good).replace(QStringLiteral("\"frame\": [0, 0, 200, 100]"),
                               QStringLiteral("\"frame\": [0, 0]")),
         QStringLiteral("'frame' must be")},
        {QString(good).replace(QStringLiteral("\"text\""), QStringLiteral("\"txet\"")),
         QStringLiteral("unknown property 'txet'")},
    };
    int index = 0;
    for (const auto& [text, problem] : cases) {
        SCOPED_TRACE(problem.toStdString());
        const QString name = QStringLiteral("Broken%1").arg(index++);
        write(name, text);
        Log lines;
        std::vector<ViewPtr> objects;
        {
            log::ScopedSink sink([&](const QString& line) { lines.push_back(line); });
            objects = load(name);
        }
        EXPECT_TRUE(objects.empty());
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(lines[0].contains(name + QStringLiteral(".json"))) << lines[0].toStdString();
        EXPECT_TRUE(lines[0].contains(problem)) << lines[0].toStdString();
        EXPECT_EQ(owner.panel, nullptr) << "outlets handed over are taken back";
    }
    Log lines;
    log::ScopedSink sink([&](const QString& line) { lines.push_back(line); });
    EXPECT_TRUE(load(QStringLiteral("Missing")).empty());
    EXPECT_EQ(lines.size(), 1u);
}

// --- Qt hosting -----------------------------------------------------------------------

class QtHostTest : public ViewControllersTest {
protected:
    void SetUp() override {
        ViewControllersTest::SetUp();
        savedBounds = Screen::main().bounds();
        savedScale = Screen::main().scale();
        savedOrientation = Device::current().orientation();
        savedStatusBar = Application::shared().statusBarOrientation();
    }
    void TearDown() override {
        Screen::main().setBounds(savedBounds);
        Screen::main().setScale(savedScale);
        Device::current().setOrientation(savedOrientation);
        Application::shared().setStatusBarOrientation(savedStatusBar);
        ViewControllersTest::TearDown();
    }

    QRectF savedBounds;
    double savedScale = 1.0;
    int savedOrientation = 0;
    int savedStatusBar = 0;
};

TEST_F(QtHostTest, WindowHostPaintsTheTreeAndTurnsClicksIntoTouches) {
    auto root = RecordingController::create(QStringLiteral("root"), log);
    window->setRootViewController(root);
    root->view()->setBackgroundColor(Qt::blue);
    auto button = Button::create(ButtonType::System);
    button->setFrame({20, 20, 100, 44});
    button->setBackgroundColor(Qt::red);
    int pressed = 0;
    button->addTarget(
        nullptr, [&](Control&) { ++pressed; }, control_event::kTouchUpInside);
    root->view()->addSubview(button);

    QtWindowHost host(window);
    host.resize(200, 300);
    host.show();
    EXPECT_TRUE(window->isVisible()) << "showing the host shows the window";
    EXPECT_EQ(Screen::main().bounds().size(), QSizeF(host.screen()->size()));

    const QImage image = host.renderImage();
    const double dpr = host.devicePixelRatio();
    EXPECT_EQ(image.size(), QSize(int(200 * dpr), int(300 * dpr)));
    EXPECT_EQ(window->frame(), QRectF(0, 0, 200, 300));
    EXPECT_EQ(image.pixelColor(int(150 * dpr), int(250 * dpr)), QColor(Qt::blue));
    EXPECT_EQ(image.pixelColor(int(25 * dpr), int(60 * dpr)), QColor(Qt::red));

    const QPointF inside(70, 42);
    QMouseEvent press(QEvent::MouseButtonPress, inside, host.mapToGlobal(inside), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QMouseEvent release(QEvent::MouseButtonRelease, inside, host.mapToGlobal(inside),
                        Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&host, &press);
    EXPECT_TRUE(button->isHighlighted());
    QCoreApplication::sendEvent(&host, &release);
    EXPECT_EQ(pressed, 1);
    host.hide();
}

TEST_F(QtHostTest, BridgeAsksForFramesOnChangesAndWhileAnimating) {
    auto view = View::create({0, 0, 50, 50});
    window->addSubview(view);
    int updates = 0;
    HostBridge bridge(window, [&] { ++updates; });
    bridge.render(1.0);
    updates = 0;
    view->setBackgroundColor(Qt::green);
    EXPECT_GT(updates, 0);
    View::animate(0.3, [&] { view->setAlpha(0.0); });
    EXPECT_TRUE(bridge.isAnimating(RunLoop::main().now()));
    RunLoop::main().advance(0.31);
    EXPECT_FALSE(bridge.isAnimating(RunLoop::main().now()));
}

TEST(ScreenEnvironmentTest, OrientationsCountTurnsFromTheNaturalOne) {
    using E = ScreenEnvironment;
    EXPECT_EQ(E::deviceOrientation(Qt::PortraitOrientation, Qt::PortraitOrientation),
              device_orientation::kPortrait);
    EXPECT_EQ(E::deviceOrientation(Qt::LandscapeOrientation, Qt::PortraitOrientation),
              device_orientation::kLandscapeLeft);
    EXPECT_EQ(E::deviceOrientation(Qt::InvertedPortraitOrientation, Qt::PortraitOrientation),
              device_orientation::kPortraitUpsideDown);
    EXPECT_EQ(E::deviceOrientation(Qt::InvertedLandscapeOrientation, Qt::PortraitOrientation),
              device_orientation::kLandscapeRight);
    EXPECT_EQ(E::deviceOrientation(Qt::LandscapeOrientation, Qt::LandscapeOrientation),
              device_orientation::kPortrait)
        << "a monitor in its usual position is an upright phone";
}

}  // namespace
