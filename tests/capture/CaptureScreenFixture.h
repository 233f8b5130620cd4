#pragma once

#include "QXDCameraController.h"
#include "QXDCameraCore.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/RunLoop.h"
#include "platform/speech/Accessibility.h"
#include "platform/ui/Button.h"
#include "platform/ui/Window.h"
#include "tests/common/FrameworkLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace qxdtest {

/// A host that remembers what the capture screen told it, and on which
/// thread. Thread-safe: frames, stills and errors come from the engine's
/// queues.
class RecordingHost : public QXDCameraCaptureControllerDelegate {
public:
    struct Event {
        platform::ImagePtr image;  ///< stills only: a kept frame would hold a camera buffer
        platform::ErrorPtr error;
        QString queue;
        QSize pixelSize;
        double scale = 0.0;
    };

    void captureControllerDidReceiveFrame(QXDCameraController& /*controller*/,
                                          const platform::ImagePtr& frame) override {
        record(frames, {nullptr, nullptr, platform::DispatchQueue::currentLabel(),
                        frame ? frame->cgImage().size() : QSize(), frame ? frame->scale() : 0.0});
        frameArrived.signal();
    }
    void captureControllerDidFailWithError(QXDCameraController& /*controller*/,
                                           const platform::ErrorPtr& error) override {
        record(errors, {nullptr, error, platform::DispatchQueue::currentLabel(), {}, 0.0});
    }
    void captureControllerDidCancel(QXDCameraController& /*controller*/) override { ++cancels; }
    void cameraDidCaptureStillImage(QXDCameraController& /*controller*/,
                                    const platform::ImagePtr& image) override {
        record(stills, {image, nullptr, platform::DispatchQueue::currentLabel(),
                        image ? image->cgImage().size() : QSize(), image ? image->scale() : 0.0});
        stillArrived.signal();
    }
    void captureControllerShouldOpenHelpController(QXDCameraController& /*controller*/) override {
        ++helps;
    }

    std::vector<Event> framesSeen() {
        std::lock_guard lock(mutex);
        return frames;
    }
    std::vector<Event> stillsSeen() {
        std::lock_guard lock(mutex);
        return stills;
    }
    std::vector<Event> errorsSeen() {
        std::lock_guard lock(mutex);
        return errors;
    }

    std::mutex mutex;
    std::vector<Event> frames;
    std::vector<Event> stills;
    std::vector<Event> errors;
    int cancels = 0;
    int helps = 0;
    platform::Semaphore frameArrived;
    platform::Semaphore stillArrived;

private:
    void record(std::vector<Event>& list, Event event) {
        std::lock_guard lock(mutex);
        list.push_back(std::move(event));
    }
};

/// The capture screen on an offscreen window, on virtual cameras, with the
/// manual clock and the framework's log captured.
class CaptureScreenTest : public ::testing::Test {
protected:
    // Only a guard against hangs: waits end as soon as the event happens.
    static constexpr double kWait = 10.0;

    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        // A Qt host shown by an earlier test leaves its screen as the main one.
        platform::Screen::main().setBounds(QRectF(0, 0, 375, 667));
        platform::Screen::main().setScale(2.0);
        platform::CameraAvailability::setOverride(true);
        platform::Device::current().setOrientation(platform::device_orientation::kPortrait);
        platform::Device::current().setUserInterfaceIdiom(platform::idiom::kPhone);
        platform::Application::shared().setStatusBarOrientation(1);
        useCameras(platform::VirtualCameraConfiguration::back(),
                   platform::VirtualCameraConfiguration::front());
    }

    void TearDown() override {
        // The engine finishes its queued work while the test still holds it.
        if (controller && controller->camera()) {
            controller->camera()->stop();
            controller->camera()->canConfigureLowLightBoost();
        }
        window.reset();
        // Pending delayed performs hold the screen until the run loop lets them go.
        const std::weak_ptr<QXDCameraController> released = controller;
        controller.reset();
        platform::RunLoop::main().useManualClock();
        // A frame being handed over on the video queue holds the screen until
        // the host's callback returns; the screen must be gone before the
        // process's own objects are.
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(kWait);
        while (!released.expired() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        discovery.reset();
        platform::Device::current().resetUserInterfaceIdiom();
        platform::Application::shared().setStatusBarOrientation(1);
        platform::setScreenReaderRunningOverride(std::nullopt);
        platform::CameraAvailability::setOverride(std::nullopt);
    }

    void useCameras(platform::VirtualCameraConfiguration back,
                    platform::VirtualCameraConfiguration front) {
        discovery.reset();
        devices = {platform::VirtualCamera::makeDevice(std::move(back)),
                   platform::VirtualCamera::makeDevice(std::move(front))};
        discovery = std::make_unique<platform::DeviceDiscovery::ScopedOverride>(devices);
    }

    /// A new screen, not shown yet.
    std::shared_ptr<QXDCameraController> make() {
        controller = QXDCameraController::init();
        controller->setDelegate(host);
        return controller;
    }

    /// The screen as the root of a window of size, appeared and laid out.
    std::shared_ptr<QXDCameraController> show(const QSizeF& size) {
        if (!controller) {
            make();
        }
        window = platform::Window::create(QRectF(QPointF(0, 0), size));
        window->setRootViewController(controller);
        window->makeKeyAndVisible();
        platform::RunLoop::main().runPending();
        window->layoutIfNeededForHost();
        return controller;
    }

    /// Takes the screen off the window: will and did disappear.
    void hide() {
        window->setRootViewController(platform::ViewController::create());
        platform::RunLoop::main().runPending();
    }

    /// Lets the layout settle and animations run for seconds.
    void advance(double seconds) {
        platform::RunLoop::main().advance(seconds);
        window->layoutIfNeededForHost();
    }

    /// Waits until everything queued so far on the engine's session queue has run.
    void drainSession() { controller->camera()->canConfigureLowLightBoost(); }

    /// The device the engine is using now.
    std::shared_ptr<platform::CaptureDevice> device() {
        drainSession();
        const auto input = controller->camera()->deviceInput();
        return input ? input->device() : nullptr;
    }

    /// A view's frame in window coordinates.
    static QRectF inWindow(const platform::View& view) {
        return view.convertRectToView(view.bounds(), nullptr);
    }

    void tap(const platform::View& view) { window->tap(inWindow(view).center()); }

    /// Writes image under the build tree and returns its path.
    static QString save(const QImage& image, const QString& name) {
        const QString dir = QCoreApplication::applicationDirPath() + QStringLiteral("/capture-png");
        QDir().mkpath(dir);
        const QString path = dir + QLatin1Char('/') + name + QStringLiteral(".png");
        image.save(path);
        return path;
    }

    FrameworkLog log;
    std::vector<std::shared_ptr<platform::CaptureDevice>> devices;
    std::unique_ptr<platform::DeviceDiscovery::ScopedOverride> discovery;
    std::shared_ptr<RecordingHost> host = std::make_shared<RecordingHost>();
    std::shared_ptr<QXDCameraController> controller;
    std::shared_ptr<platform::Window> window;
};

}  // namespace qxdtest
