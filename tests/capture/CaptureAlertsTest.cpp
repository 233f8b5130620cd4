// Alerts posted to the capture screen by notification: one at a time,
// spoken when asked, observed only while the screen is up.

#include "CaptureScreenFixture.h"

#include "PulseAnimationView.h"
#include "QXDAlertView.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/speech/RecordingSpeechEngine.h"

namespace {

using qxdtest::CaptureScreenTest;

class CaptureAlertsTest : public CaptureScreenTest {
protected:
    void SetUp() override {
        CaptureScreenTest::SetUp();
        platform::setScreenReaderRunningOverride(true);
    }
    void post(const QVariantMap& info) {
        platform::NotificationCenter::defaultCenter().post(QXDAlertViewShowNotification, nullptr,
                                                           info);
    }
    std::vector<QString> spoken() { return speech->spokenTexts(); }
    // Lets the synthesizer finish what it says now and start the next.
    void finishSpeaking() {
        speech->finishCurrent();
        platform::RunLoop::main().runPending();
    }

    std::shared_ptr<platform::RecordingSpeechEngine> speech =
        std::make_shared<platform::RecordingSpeechEngine>();
    platform::ScopedSpeechEngineFactory speechFactory{[engine = speech] { return engine; }};
};

TEST_F(CaptureAlertsTest, OneAlertStandsAndTakesTheLatestTexts) {
    show({375, 667});
    const auto& pulse = controller->progressView();
    post({{QXDAlertViewTitleKey, QStringLiteral("Hold still")},
          {QXDAlertViewMessageKey, QStringLiteral("Scanning")},
          {QXDAlertViewDismissTimeKey, 2.5}});
    const auto alert = controller->alertView();
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->superview(), controller->view());
    EXPECT_EQ(alert->initialView(), pulse);
    EXPECT_EQ(pulse->alpha(), 0.0) << "the pulse hides while the alert stands";
    EXPECT_EQ(alert->alertDismissTime(), 2.5);

    post({{QXDAlertViewTitleKey, QStringLiteral("Too dark")},
          {QXDAlertViewMessageKey, QStringLiteral("Turn the torch on")},
          {QXDAlertViewDismissTimeKey, 9}});
    EXPECT_EQ(controller->alertView(), alert);
    EXPECT_EQ(alert->title(), QStringLiteral("Too dark"));
    EXPECT_EQ(alert->message(), QStringLiteral("Turn the torch on"));
    EXPECT_EQ(alert->alertDismissTime(), 2.5) << "the first alert's time stands";
    EXPECT_EQ(log.messages().filter(QStringLiteral("QXDAlertView added")).join('|').toStdString(),
              "QXDAlertView added to the view with title: (null) body: (null) dismiss time: "
              "2.500000")
        << "shown before its texts are set";

    // It goes by itself; the pulse comes back.
    advance(2.6);
    EXPECT_EQ(controller->alertView(), nullptr);
    EXPECT_EQ(pulse->alpha(), 1.0);
    advance(0.5);
    EXPECT_EQ(alert->superview(), nullptr);

    // dismissAlertView hides a standing alert and does nothing without one.
    post({});
    const auto bare = controller->alertView();
    ASSERT_NE(bare, nullptr);
    EXPECT_TRUE(bare->title().isNull());
    EXPECT_TRUE(bare->message().isNull());
    EXPECT_EQ(bare->alertDismissTime(), 7.0);
    controller->dismissAlertView();
    EXPECT_EQ(controller->alertView(), nullptr);
    EXPECT_EQ(pulse->alpha(), 1.0);
    controller->dismissAlertView();
    EXPECT_TRUE(spoken().empty());
}

TEST_F(CaptureAlertsTest, DismissTimeIsANumberReadInSinglePrecision) {
    show({375, 667});
    const std::vector<std::pair<QVariant, double>> cases{
        {QStringLiteral("3"), 7.0}, {2.5, 2.5}, {0.1, 0.10000000149011612}, {QVariant(), 7.0}};
    for (const auto& [value, expected] : cases) {
        controller->showAlertViewWithInfo({{QXDAlertViewDismissTimeKey, value}});
        ASSERT_NE(controller->alertView(), nullptr);
        EXPECT_EQ(controller->alertView()->alertDismissTime(), expected)
            << value.toString().toStdString();
        controller->dismissAlertView();
    }
}

TEST_F(CaptureAlertsTest, SpeaksTitleThenMessageOnlyWhenAskedWithYesAndAScreenReaderRuns) {
    show({375, 667});
    post({{QXDAlertViewTitleKey, QStringLiteral("Document found")},
          {QXDAlertViewMessageKey, QStringLiteral("Hold still")},
          {QXDAlertViewUseVoiceKey, 1}});
    finishSpeaking();
    EXPECT_EQ(spoken(), (std::vector<QString>{QStringLiteral("Document found"),
                                              QStringLiteral("Hold still")}));
    finishSpeaking();

    // The word YES is not the number YES.
    post({{QXDAlertViewTitleKey, QStringLiteral("Again")},
          {QXDAlertViewUseVoiceKey, QStringLiteral("YES")}});
    EXPECT_EQ(spoken().size(), 2u);

    // With the screen reader off nothing is spoken.
    platform::setScreenReaderRunningOverride(false);
    post({{QXDAlertViewTitleKey, QStringLiteral("Quiet")}, {QXDAlertViewUseVoiceKey, true}});
    EXPECT_EQ(spoken().size(), 2u);
    EXPECT_EQ(controller->alertView()->title(), QStringLiteral("Quiet"));
}

TEST_F(CaptureAlertsTest, NotificationsOutsideTheScreensAppearanceAreLost) {
    make();
    controller->view();
    post({{QXDAlertViewTitleKey, QStringLiteral("Too early")}});
    EXPECT_EQ(controller->alertView(), nullptr);

    show({375, 667});
    post({{QXDAlertViewTitleKey, QStringLiteral("On time")}});
    ASSERT_NE(controller->alertView(), nullptr);
    controller->dismissAlertView();

    hide();
    post({{QXDAlertViewTitleKey, QStringLiteral("Too late")}});
    EXPECT_EQ(controller->alertView(), nullptr);
}

TEST_F(CaptureAlertsTest, AReleasedScreenTakesItsAlertWithItMidSlide) {
    // A camera that sends no pictures: a frame still being handed over on the
    // video queue would hold the screen for a moment after the release.
    auto back = platform::VirtualCamera::create(platform::VirtualCameraConfiguration::back());
    back->setStalled(true);
    discovery.reset();
    devices = {platform::CaptureDevice::create(back),
               platform::VirtualCamera::makeDevice(platform::VirtualCameraConfiguration::front())};
    discovery = std::make_unique<platform::DeviceDiscovery::ScopedOverride>(devices);
    show({375, 667});
    post({{QXDAlertViewTitleKey, QStringLiteral("Hold still")}});
    std::weak_ptr<QXDAlertView> alert = controller->alertView();
    ASSERT_FALSE(alert.expired());
    advance(0.1);  // sliding in
    controller->dismissAlertView();
    advance(0.1);  // sliding out
    post({{QXDAlertViewTitleKey, QStringLiteral("Again")}});
    std::weak_ptr<QXDAlertView> second = controller->alertView();
    advance(0.1);

    // The app quits: its run loop stops with the slides unfinished.
    std::weak_ptr<QXDCameraController> screen = controller;
    controller->camera()->stop();
    controller->camera()->canConfigureLowLightBoost();
    window.reset();
    controller.reset();
    platform::RunLoop::main().useManualClock();
    EXPECT_TRUE(alert.expired());
    EXPECT_TRUE(second.expired());
    EXPECT_TRUE(screen.expired());
}

}  // namespace
