// The scanner application: the outline it has the capture screen draw lies on
// the page in the rendered screen, whatever the window's shape; the keys
// reach the screen.
#include "DocumentOutput.h"
#include "PreviewMapping.h"
#include "QXDCameraController.h"
#include "QXDPolygonLayer.h"
#include "Quad.h"
#include "ScanSession.h"
#include "ScreenShape.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/Button.h"
#include "platform/ui/OffscreenRender.h"
#include "platform/ui/Window.h"
#include "platform/ui/WindowAccess.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QLineF>
#include <QTemporaryDir>

#include <cmath>

namespace {

using namespace platform;

// Only a guard against hangs: waits end as soon as the event happens.
constexpr double kWait = 30.0;
constexpr double kScale = 2.0;

QString pngFolder() {
    const QString dir = QCoreApplication::applicationDirPath() + QStringLiteral("/scanner-png");
    QDir().mkpath(dir);
    return dir;
}

double distanceToOutline(const QPointF& p, const scanner::Quad& quad) {
    double best = 1e9;
    for (int i = 0; i < 4; ++i) {
        const QPointF a = quad[i];
        const QPointF b = quad[(i + 1) % 4];
        const QPointF ab = b - a;
        const double t =
            std::clamp(QPointF::dotProduct(p - a, ab) / QPointF::dotProduct(ab, ab), 0.0, 1.0);
        best = std::min(best, QLineF(p, a + ab * t).length());
    }
    return best;
}

int grey(const QImage& image, const QPointF& point) {
    const int x = std::clamp(int(point.x()), 0, image.width() - 1);
    const int y = std::clamp(int(point.y()), 0, image.height() - 1);
    return qGray(image.pixel(x, y));
}

class ScannerScreen : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::main().useManualClock();
        CameraAvailability::setOverride(true);
        Device::current().setUserInterfaceIdiom(idiom::kPhone);
        Application::shared().setStatusBarOrientation(interface_orientation::kPortrait);
        auto config = VirtualCameraConfiguration::back();
        // A steady camera, so that every frame shows the page in one place.
        config.handMotion = 0;
        config.noiseAmplitude = 0;
        config.capabilities.focusModes = {focus_mode::kLocked};
        camera = VirtualCamera::create(config);
        discovery = std::make_unique<DeviceDiscovery::ScopedOverride>(
            std::vector<std::shared_ptr<CaptureDevice>>{CaptureDevice::create(camera)});
    }

    void TearDown() override {
        if (controller && controller->camera()) {
            controller->camera()->stop();
            controller->camera()->canConfigureLowLightBoost();  // waits for the session queue
        }
        session.reset();
        window.reset();
        controller.reset();
        RunLoop::main().useManualClock();
        discovery.reset();
        CameraAvailability::setOverride(std::nullopt);
    }

    /// The scanner on a window of size, with frames analysed and the
    /// outline drawn.
    void scanIn(const QSizeF& size) {
        controller = QXDCameraController::init();
        controller->setTriggerAppearDelay(0);
        window = Window::create(QRectF(QPointF(), size));
        window->setRootViewController(controller);
        scanner::ScanSettings settings;
        settings.autoCapture = false;
        analysed = std::make_shared<Semaphore>();
        settings.frameAnalysed = [signal = analysed] { signal->signal(); };
        session = scanner::ScanSession::create(controller, window, settings, {});
        window->makeKeyAndVisible();
        RunLoop::main().runPending();
        window->layoutIfNeededForHost();
        // Two rounds: the first frames may come before the first layout.
        for (int round = 0; round < 2; ++round) {
            for (int frame = 0; frame < 4; ++frame) {
                ASSERT_TRUE(analysed->waitFor(kWait)) << "no frame analysed";
            }
            RunLoop::main().runPending();
            window->layoutIfNeededForHost();
        }
        // Let the layers' implicit fades (a quarter second) run out.
        RunLoop::main().advance(0.3);
        window->layoutIfNeededForHost();
    }

    QImage render(const QString& name) {
        const QImage image = window->snapshot(kScale).convertToFormat(QImage::Format_RGB32);
        image.save(pngFolder() + "/" + name + ".png");
        return image;
    }

    std::shared_ptr<VirtualCamera> camera;
    std::unique_ptr<DeviceDiscovery::ScopedOverride> discovery;
    std::shared_ptr<QXDCameraController> controller;
    std::shared_ptr<Window> window;
    std::shared_ptr<scanner::ScanSession> session;
    std::shared_ptr<Semaphore> analysed;
};

TEST_F(ScannerScreen, TheOutlineLiesOnThePageEdgesInWindowsOfEveryShape) {
    struct Shape {
        const char* name;
        QSizeF size;
    };
    for (const Shape& shape :
         {Shape{"portrait-9x16", QSizeF(360, 640)}, Shape{"portrait-7x10", QSizeF(420, 600)},
          Shape{"landscape-16x9", QSizeF(800, 450)}}) {
        SCOPED_TRACE(shape.name);
        scanIn(shape.size);
        const auto [outline, frameSize] = session->lastOutline();
        ASSERT_TRUE(outline) << "no page found";
        const auto [truthPolygon, layout] = camera->lastFramePageCorners();
        ASSERT_EQ(layout.size(), frameSize);
        // Where the page shows on screen, in the screen's pixels: the preview
        // fills the window with the frame, keeping its aspect ratio.
        const scanner::Quad truth = scanner::mapped(
            scanner::fromPolygon(truthPolygon),
            scanner::aspectFill(frameSize, shape.size) * QTransform::fromScale(kScale, kScale));

        const QImage withOutline = render(QStringLiteral("outline-") + shape.name);
        controller->polygonLayer()->setHidden(true);
        const QImage preview = render(QStringLiteral("preview-") + shape.name);
        controller->polygonLayer()->setHidden(false);
        ASSERT_EQ(withOutline.size(), preview.size());

        // The preview shows the page there: brighter just inside each side.
        QPointF centre;
        for (const QPointF& corner : truth) {
            centre += corner / 4;
        }
        int brighterInside = 0;
        int sideSamples = 0;
        // The outline passes within 2 points of every stretch of the page's
        // sides that is on screen.
        const double tolerance = 2 * kScale;
        int found = 0;
        for (int side = 0; side < 4; ++side) {
            const QLineF edge(truth[side], truth[(side + 1) % 4]);
            for (int i = 1; i < 20; ++i) {
                const QPointF point = edge.pointAt(i / 20.0);
                if (!QRectF(QPointF(4, 4), QSizeF(preview.size()) - QSizeF(8, 8)).contains(point)) {
                    continue;  // cropped away by the aspect fill
                }
                ++sideSamples;
                QLineF normal(point, centre);
                normal.setLength(3 * kScale);
                const QPointF inside = normal.p2();
                normal.setLength(-3 * kScale);
                brighterInside += grey(preview, inside) > grey(preview, normal.p2()) + 30;
                bool near = false;
                for (double along = -tolerance; along <= tolerance && !near; along += 1) {
                    QLineF probe(point, centre);
                    probe.setLength(along);
                    const QPointF q = probe.p2();
                    near = std::abs(grey(withOutline, q) - grey(preview, q)) > 40 ||
                           withOutline.pixel(int(q.x()), int(q.y())) !=
                               preview.pixel(int(q.x()), int(q.y()));
                }
                found += near;
            }
        }
        ASSERT_GT(sideSamples, 20);
        EXPECT_GE(brighterInside, sideSamples * 9 / 10) << "the page is not where it should be";
        EXPECT_GE(found, sideSamples * 95 / 100) << "outline away from the page's sides";

        // And nothing of the outline strays from the page's sides.
        int stroke = 0;
        int astray = 0;
        for (int y = 0; y < preview.height(); ++y) {
            for (int x = 0; x < preview.width(); ++x) {
                const QRgb a = withOutline.pixel(x, y);
                const QRgb b = preview.pixel(x, y);
                if (std::abs(qGreen(a) - qGreen(b)) + std::abs(qRed(a) - qRed(b)) < 60) {
                    continue;
                }
                ++stroke;
                astray += distanceToOutline(QPointF(x + 0.5, y + 0.5), truth) > 3 * kScale;
            }
        }
        EXPECT_GT(stroke, 100);
        EXPECT_LE(astray, stroke / 100) << astray << " of " << stroke << " outline pixels astray";
        TearDown();
        SetUp();
    }
}

TEST_F(ScannerScreen, KeysTakeThePictureAndTheEditScreenAnswersItsOwnKeys) {
    scanIn(QSizeF(360, 640));
    auto& access = window->access();
    // Space takes the picture: the still becomes a page on the edit screen.
    ASSERT_TRUE(access.keyPress(Qt::Key_Space, Qt::NoModifier));
    for (int i = 0; i < 200 && !controller->presentedViewController(); ++i) {
        // The still is made on the engine's queue; each frame analysed is a
        // moment to look whether the edit screen has come.
        ASSERT_TRUE(analysed->waitFor(kWait) || controller->presentedViewController());
        RunLoop::main().advance(0.05);
    }
    ASSERT_TRUE(controller->presentedViewController()) << "no edit screen";
    RunLoop::main().advance(1.0);
    // Escape on the edit screen drops the page; Space again, then Return, adds one.
    ASSERT_TRUE(access.keyPress(Qt::Key_Escape, Qt::NoModifier));
    RunLoop::main().advance(1.0);
    EXPECT_FALSE(controller->presentedViewController());
    EXPECT_TRUE(session->pages().empty());

    ASSERT_TRUE(access.keyPress(Qt::Key_Return, Qt::NoModifier));
    for (int i = 0; i < 200 && !controller->presentedViewController(); ++i) {
        ASSERT_TRUE(analysed->waitFor(kWait) || controller->presentedViewController());
        RunLoop::main().advance(0.05);
    }
    ASSERT_TRUE(controller->presentedViewController());
    RunLoop::main().advance(1.0);
    render("edit-screen");
    ASSERT_TRUE(access.keyPress(Qt::Key_Right, Qt::NoModifier));
    RunLoop::main().advance(1.0);
    ASSERT_TRUE(access.keyPress(Qt::Key_Return, Qt::NoModifier));
    RunLoop::main().advance(1.0);
    ASSERT_EQ(session->pages().size(), 1u);
    // Turned once to the right: the page lies on its side.
    EXPECT_GT(session->pages().front().width(), session->pages().front().height());
}

TEST_F(ScannerScreen, ANewWindowShapeBringsTheOtherLayoutAndTheSessionFollowsIt) {
    scanIn(QSizeF(360, 640));
    const auto first = controller;
    EXPECT_NE(first->triggerButton()->superview(), first->middleContainerBar()) << "phone layout";
    scanner::ScreenShape shape(
        window, session,
        [] {
            auto screen = QXDCameraController::init();
            screen->setTriggerAppearDelay(0);
            return screen;
        },
        false);
    EXPECT_FALSE(shape.windowResized(QSizeF(400, 420))) << "near square: the layout stays";
    EXPECT_FALSE(shape.windowResized(QSizeF(360, 700)));

    window->setFrame(QRectF(0, 0, 800, 450));
    ASSERT_TRUE(shape.windowResized(QSizeF(800, 450)));
    EXPECT_TRUE(shape.isPad());
    EXPECT_EQ(Device::current().userInterfaceIdiom(), idiom::kPad);
    controller = std::dynamic_pointer_cast<QXDCameraController>(window->rootViewController());
    ASSERT_TRUE(controller);
    ASSERT_NE(controller, first);
    EXPECT_EQ(session->controller(), controller);
    RunLoop::main().runPending();
    window->layoutIfNeededForHost();
    EXPECT_EQ(controller->triggerButton()->superview(), controller->middleContainerBar())
        << "pad layout: the trigger in the side bar";

    // Frames now come through the new screen, which draws the outline.
    for (int round = 0; round < 2; ++round) {
        for (int frame = 0; frame < 4; ++frame) {
            ASSERT_TRUE(analysed->waitFor(kWait)) << "no frame from the new screen";
        }
        RunLoop::main().runPending();
        window->layoutIfNeededForHost();
    }
    RunLoop::main().advance(0.3);
    window->layoutIfNeededForHost();
    const QImage withOutline = render("pad-layout");
    controller->polygonLayer()->setHidden(true);
    const QImage preview = render("pad-layout-preview");
    controller->polygonLayer()->setHidden(false);
    EXPECT_NE(withOutline, preview) << "no outline on the new screen";

    // The keys went along: Space takes the picture on the new screen.
    ASSERT_TRUE(window->access().keyPress(Qt::Key_Space, Qt::NoModifier));
    for (int i = 0; i < 200 && !controller->presentedViewController(); ++i) {
        ASSERT_TRUE(analysed->waitFor(kWait) || controller->presentedViewController());
        RunLoop::main().advance(0.05);
    }
    EXPECT_TRUE(controller->presentedViewController()) << "no edit screen";
    RunLoop::main().advance(1.0);
    Device::current().setUserInterfaceIdiom(idiom::kPhone);
}

TEST(PreviewMapping, KeyPointsLandOnTheAspectFilledPageWhateverTheStatusBarSays) {
    // The screen's transform stretches the frame onto the view unevenly, and
    // its polygon layer then turns points to the status bar's orientation;
    // the key points handed over must end where the aspect-filled preview
    // shows the page.
    const QSize frame(1080, 1920);
    const scanner::Quad page = {QPointF(200, 300), QPointF(900, 280), QPointF(950, 1500),
                                QPointF(150, 1550)};
    const auto layer = QXDPolygonLayer::create();
    const QRectF screenBefore = Screen::main().bounds();
    Screen::main().setBounds(QRectF(0, 0, 375, 667));
    for (const int orientation :
         {interface_orientation::kPortrait, interface_orientation::kLandscapeRight,
          interface_orientation::kLandscapeLeft}) {
        SCOPED_TRACE(orientation);
        Application::shared().setStatusBarOrientation(orientation);
        const QSizeF view =
            orientation == interface_orientation::kPortrait ? QSizeF(375, 667) : QSizeF(667, 375);
        const QTransform stretch(view.width() / frame.width(), 0, 0, view.height() / frame.height(),
                                 -12.5, 7);
        const std::vector<QPointF> points =
            scanner::keyPointsForPreview(page, frame, view, stretch, orientation, 667);
        ASSERT_EQ(points.size(), 4u);
        const QTransform fill = scanner::aspectFill(frame, view);
        for (int i = 0; i < 4; ++i) {
            const QPointF drawn = layer->adaptPointToOrientation(stretch.map(points[i]));
            EXPECT_LT(QLineF(drawn, fill.map(page[i])).length(), 1e-6) << "corner " << i;
        }
    }
    EXPECT_TRUE(scanner::keyPointsForPreview(page, frame, QSizeF(375, 667),
                                             QTransform(0, 0, 0, 0, 0, 0),
                                             interface_orientation::kPortrait, 667)
                    .empty())
        << "a transform that cannot be undone";
    Application::shared().setStatusBarOrientation(interface_orientation::kPortrait);
    Screen::main().setBounds(screenBefore);
}

}  // namespace
