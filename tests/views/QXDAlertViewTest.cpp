#include "QXDAlertView.h"
#include "platform/foundation/RunLoop.h"
#include "platform/speech/SpeechSynthesizer.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"
#include "platform/ui/ScrollView.h"
#include "platform/ui/TextLayout.h"
#include "platform/ui/Window.h"
#include "tests/common/FrameworkLog.h"
#include "views/UIView+NSLayoutContraint.h"

#include <QImage>

#include <gtest/gtest.h>

#include <limits>

namespace {

using platform::LayoutAttribute;
using platform::RunLoop;
using platform::View;

constexpr double kHostWidth = 320;
constexpr double kHostHeight = 480;

class QXDAlertViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        window = platform::Window::create({0, 0, kHostWidth, kHostHeight});
        host = View::create(window->bounds());
        window->addSubview(host);
        window->makeKeyAndVisible();
        initial = View::create(QRectF(0, -120, kHostWidth, 100));
    }
    void TearDown() override { RunLoop::main().useManualClock(); }

    // An alert with a title and a short message whose hides are counted.
    std::shared_ptr<QXDAlertView> makeAlert(const QString& message = QStringLiteral("Hold still")) {
        auto alert = QXDAlertView::initWithInitialState(initial);
        EXPECT_NE(alert, nullptr) << "the interface file did not load";
        if (alert) {
            alert->setTitle(QStringLiteral("Low light"));
            alert->setMessage(message);
            alert->setHideHandler([this] { ++hides; });
        }
        return alert;
    }
    // The height the message takes when wrapped in the alert's scroll view.
    static double messageHeight(const QXDAlertView& alert) {
        const auto label = alert.messageLabel();
        return platform::boundingRectWithSize(
                   label->text(),
                   QSizeF(alert.scrollView()->bounds().width(), std::numeric_limits<double>::max()),
                   platform::string_drawing::kUsesLineFragmentOrigin, label->font())
            .height();
    }

    std::shared_ptr<platform::Window> window;
    platform::ViewPtr host;
    platform::ViewPtr initial;
    int hides = 0;
};

TEST_F(QXDAlertViewTest, LoadsItsInterfaceFromTheInitialState) {
    initial->setTransform(QTransform::fromScale(1, 0.5));
    const auto alert = QXDAlertView::initWithInitialState(initial);
    ASSERT_NE(alert, nullptr);
    EXPECT_TRUE(alert->contentView() && alert->titleLabel() && alert->messageLabel() &&
                alert->warningIcon() && alert->scrollView());
    EXPECT_TRUE(alert->messageLabel()->isDescendantOfView(alert->scrollView().get()));
    EXPECT_EQ(alert->contentView()->alpha(), 0.0);
    EXPECT_EQ(alert->transform(), initial->transform());
    EXPECT_EQ(alert->initialView(), initial);
    EXPECT_EQ(alert->alertDismissTime(), 7.0);
    EXPECT_TRUE(alert->layer()->masksToBounds());
    EXPECT_FALSE(alert->translatesAutoresizingMaskIntoConstraints());
    EXPECT_EQ(alert->gestureRecognizers().size(), 1u);
    EXPECT_NE(alert->warningIcon()->image(), nullptr) << "the warning icon is in the bundle";

    const auto bare = QXDAlertView::init();
    EXPECT_EQ(bare->contentView(), nullptr);
    EXPECT_EQ(bare->alertDismissTime(), 7.0);
    EXPECT_TRUE(bare->layer()->masksToBounds());
    EXPECT_FALSE(bare->translatesAutoresizingMaskIntoConstraints());

    EXPECT_EQ(QXDAlertViewShowNotification, QStringLiteral("QXDAlertViewShowNotification"));
    const auto synthesizer = bare->synthesizer();
    EXPECT_NE(synthesizer, nullptr);
    EXPECT_EQ(bare->synthesizer(), synthesizer);
}

TEST_F(QXDAlertViewTest, SettersSkipTheVeryStringAlreadyHeld) {
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    const QString title = QStringLiteral("Too dark");
    alert->setTitle(title);
    alert->titleLabel()->setText(QStringLiteral("changed elsewhere"));
    alert->setTitle(title);
    EXPECT_EQ(alert->titleLabel()->text(), QStringLiteral("changed elsewhere"));
    alert->setTitle(QString(title.data(), title.size()));
    EXPECT_EQ(alert->titleLabel()->text(), title) << "an equal but new string is applied";

    const QString message = alert->message();
    alert->messageLabel()->setText(QString());
    alert->setMessage(message);
    EXPECT_EQ(alert->messageLabel()->text(), QString());
}

TEST_F(QXDAlertViewTest, SlidesIntoPlaceThenFadesItsContentIn) {
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    qxdtest::FrameworkLog log;
    alert->showInView(host);
    EXPECT_EQ(alert->superview(), host);
    EXPECT_EQ(alert->layer()->cornerRadius(), 5.0);
    EXPECT_EQ(log.messages(), QStringList{"QXDAlertView added to the view with title: Low light "
                                          "body: Hold still dismiss time: 7.000000"});

    RunLoop::main().advance(0.15);
    const double midY = alert->layer()->presentationState().frame().y();
    EXPECT_GT(midY, -120.0);
    EXPECT_LT(midY, 40.0) << "half way down from the initial view";

    RunLoop::main().advance(0.15);
    const double scrollHeight = messageHeight(*alert);
    EXPECT_EQ(alert->scrollView()->bounds().height(), scrollHeight);
    EXPECT_EQ(alert->frame(), QRectF(20, 40, kHostWidth - 40, 6 + 24 + 6 + scrollHeight + 8));
    EXPECT_EQ(alert->warningIcon()->frame(), QRectF(8, 6, 24, 24));
    EXPECT_EQ(constraintForAttribute(*alert->warningIcon(), LayoutAttribute::Top)->constant(), 6.0);
    EXPECT_EQ(constraintForAttribute(*alert->warningIcon(), LayoutAttribute::Leading)->constant(),
              8.0);
    EXPECT_EQ(alert->messageLabel()->frame().width(), alert->scrollView()->frame().width());
    EXPECT_EQ(alert->contentView()->layer()->presentationState().opacity, 0.0);

    RunLoop::main().advance(0.2);
    EXPECT_EQ(alert->contentView()->alpha(), 1.0);
    EXPECT_EQ(alert->contentView()->layer()->presentationState().opacity, 1.0);
}

TEST_F(QXDAlertViewTest, PaintedEveryFrameItSlidesBackToTheInitialFrame) {
    // A live window lays out before every paint; a hand-set frame animating
    // back must survive those passes.
    host->setBackgroundColor(Qt::white);
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    alert->showInView(host);
    for (int frame = 0; frame < 10; ++frame) {
        window->snapshot();
        RunLoop::main().advance(0.1);
    }
    const QRectF shown = alert->frame();
    const QPoint inShownPlace = shown.center().toPoint();
    const QImage showing = window->snapshot();
    showing.save(QStringLiteral("alert-shown.png"));
    EXPECT_LT(qGray(showing.pixel(inShownPlace)), 100) << "the dark banner is up";

    alert->hide();
    window->snapshot();
    RunLoop::main().advance(0.15);
    const QImage sliding = window->snapshot();
    sliding.save(QStringLiteral("alert-sliding-back.png"));
    const QRectF mid = alert->layer()->presentationState().frame();
    EXPECT_LT(mid.y(), shown.y() - 40) << "half way up to the initial view";
    EXPECT_GT(mid.y(), initial->frame().y() + 40);
    EXPECT_GT(qGray(sliding.pixel(inShownPlace)), 240) << "the banner has left its place";

    RunLoop::main().advance(0.14);
    const QImage ending = window->snapshot();
    ending.save(QStringLiteral("alert-slid-back.png"));
    EXPECT_NEAR(alert->layer()->presentationState().frame().y(), initial->frame().y(), 2.0);
    EXPECT_EQ(ending.pixelColor(inShownPlace), QColor(Qt::white));

    RunLoop::main().advance(0.01);
    window->snapshot();
    EXPECT_EQ(alert->superview(), nullptr);
    EXPECT_EQ(alert->frame(), initial->frame());
}

TEST_F(QXDAlertViewTest, AHideRightAfterTheShowStillFadesTheContentInThenOut) {
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    alert->showInView(host);
    RunLoop::main().advance(0.1);
    alert->hide();

    RunLoop::main().advance(0.2);
    EXPECT_EQ(alert->contentView()->alpha(), 1.0) << "the slide-in finished, so the fade began";
    RunLoop::main().advance(0.05);
    const double content = alert->contentView()->layer()->presentationState().opacity;
    EXPECT_GT(content, 0.0);
    EXPECT_LT(content, 1.0);
    EXPECT_GT(alert->layer()->presentationState().opacity, 0.0) << "still fading out";

    RunLoop::main().advance(0.1);
    EXPECT_EQ(alert->superview(), nullptr) << "the hide still ends the alert";
    EXPECT_EQ(alert->alpha(), 0.0);
}

TEST_F(QXDAlertViewTest, ALongMessageScrollsInHalfTheHostHeight) {
    const auto alert =
        makeAlert(QStringLiteral("Move the phone closer to the page. ").repeated(60));
    ASSERT_NE(alert, nullptr);
    alert->showInView(host);
    RunLoop::main().advance(0.5);
    EXPECT_GT(messageHeight(*alert), kHostHeight / 2);
    EXPECT_EQ(alert->scrollView()->bounds().height(), kHostHeight / 2);
    EXPECT_GT(alert->scrollView()->contentSize().height(), kHostHeight / 2);
}

TEST_F(QXDAlertViewTest, HidesByItselfAfterTheDismissTime) {
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    alert->showInView(host);
    RunLoop::main().advance(6.9);
    EXPECT_EQ(hides, 0);
    RunLoop::main().advance(0.1);
    EXPECT_EQ(hides, 1);
    RunLoop::main().advance(0.3);
    EXPECT_EQ(alert->superview(), nullptr);
    EXPECT_EQ(alert->frame(), initial->frame());
    EXPECT_EQ(alert->alpha(), 0.0);
}

TEST_F(QXDAlertViewTest, ATapHidesItOnceAndTheTimerNeverRuns) {
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    alert->showInView(host);
    RunLoop::main().advance(1.0);
    window->tap(alert->frame().center());
    EXPECT_EQ(hides, 1);
    RunLoop::main().advance(10.0);
    EXPECT_EQ(hides, 1);
    EXPECT_EQ(alert->superview(), nullptr);
}

TEST_F(QXDAlertViewTest, HideRunsTheHandlerAndLogsBeforeTheSlideBackEnds) {
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    alert->showInView(host);
    RunLoop::main().advance(1.0);
    qxdtest::FrameworkLog log;
    alert->hide();
    EXPECT_EQ(hides, 1);
    EXPECT_EQ(log.messages(), QStringList{"QXDAlertView was removed from the view"});
    EXPECT_EQ(alert->superview(), host) << "still sliding back";
    RunLoop::main().advance(0.3);
    EXPECT_EQ(alert->superview(), nullptr);
    RunLoop::main().advance(10.0);
    EXPECT_EQ(hides, 1);
}

TEST_F(QXDAlertViewTest, WithoutADismissTimeItStaysAndLogsNullTexts) {
    const auto alert = QXDAlertView::initWithInitialState(initial);
    ASSERT_NE(alert, nullptr);
    alert->setAlertDismissTime(0);
    qxdtest::FrameworkLog log;
    alert->showInView(host);
    EXPECT_EQ(log.messages(), QStringList{"QXDAlertView added to the view with title: (null) "
                                          "body: (null) dismiss time: 0.000000"});
    RunLoop::main().advance(100.0);
    EXPECT_EQ(alert->superview(), host);
}

TEST_F(QXDAlertViewTest, ShowsOverAHostOutsideAWindowToo) {
    const auto alone = View::create(QRectF(0, 0, kHostWidth, kHostHeight));
    const auto alert = makeAlert();
    ASSERT_NE(alert, nullptr);
    alert->showInView(alone);
    RunLoop::main().advance(0.5);
    EXPECT_EQ(alert->frame().topLeft(), QPointF(20, 40));
    EXPECT_EQ(alert->contentView()->alpha(), 1.0);
}

TEST(UIViewNSLayoutContraint, TheSuperviewsConstraintWinsOverTheViewsOwn) {
    const auto parent = View::create();
    const auto child = View::create();
    const auto other = View::create();
    parent->addSubview(child);
    parent->addSubview(other);
    const auto own = platform::LayoutConstraint::create(child, LayoutAttribute::Top,
                                                        platform::LayoutRelation::Equal, nullptr,
                                                        LayoutAttribute::NotAnAttribute, 1, 5);
    child->addConstraint(own);
    EXPECT_EQ(constraintForAttribute(*child, LayoutAttribute::Top), own);
    EXPECT_EQ(constraintForAttribute(*child, LayoutAttribute::Bottom), nullptr);

    const auto unrelated = platform::LayoutConstraint::create(other, LayoutAttribute::Top,
                                                              platform::LayoutRelation::Equal,
                                                              parent, LayoutAttribute::Top, 1, 0);
    const auto asSecond = platform::LayoutConstraint::create(parent, LayoutAttribute::Top,
                                                             platform::LayoutRelation::Equal, child,
                                                             LayoutAttribute::Top, 1, -10);
    parent->addConstraints({unrelated, asSecond});
    EXPECT_EQ(constraintsForViewAttribute(LayoutAttribute::Top, parent.get()),
              (std::vector<platform::LayoutConstraintPtr>{unrelated, asSecond}));
    EXPECT_EQ(constraintForAttribute(*child, LayoutAttribute::Top), asSecond);
    EXPECT_TRUE(constraintsForViewAttribute(LayoutAttribute::Top, nullptr).empty());
}

}  // namespace
