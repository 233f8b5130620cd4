#pragma once

#include "Guidance.h"
#include "OutlineSmoother.h"
#include "PageDetector.h"
#include "QXDCameraCaptureControllerDelegate.h"
#include "Quad.h"

#include <QImage>
#include <QSize>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class QXDCameraController;
class QXDManualEditController;

namespace platform {
class Window;
}

namespace scanner {

struct ScanSettings {
    QString outputFolder = QStringLiteral("out");
    /// Pages after which the session finishes by itself; 0: only when asked.
    int pagesWanted = 0;
    /// Take the picture when the outline has stayed put for a second.
    bool autoCapture = true;
    /// Confirm each page on the edit screen without waiting for a person
    /// (running headless).
    bool autoConfirm = false;
    /// Where to write the screen the first time a page is taken
    /// automatically; empty: nowhere.
    QString screenshotPath;
    /// Called on the video queue after each frame has been analysed.
    std::function<void()> frameAnalysed;
};

/// What the session has done, for the summary and for tests.
struct ScanReport {
    int exitCode = 0;
    QStringList written;
    int pages = 0;
};

/// The scanner on the capture screen: finds the page in every live frame on
/// the engine's video queue and has the screen draw its outline on the
/// main run loop, gives advice through alert banners, takes the picture
/// when the outline has stayed put (or when asked), turns each still into a
/// flat page and opens the manual edit screen on it, keeps the confirmed
/// pages and writes them (PNGs and one PDF) when the session finishes.
///
/// Threads: the capture delegate methods arrive on the engine's queues as
/// the capture screen sends them; everything else is main thread only.
class ScanSession : public QXDCameraCaptureControllerDelegate,
                    public std::enable_shared_from_this<ScanSession> {
    struct Key {};

public:
    using Finished = std::function<void(const ScanReport&)>;

    /// A session on controller (which it makes its delegate) in window.
    static std::shared_ptr<ScanSession> create(
        const std::shared_ptr<QXDCameraController>& controller,
        const std::shared_ptr<platform::Window>& window, ScanSettings settings, Finished finished);
    ScanSession(Key, const std::shared_ptr<QXDCameraController>& controller,
                const std::shared_ptr<platform::Window>& window, ScanSettings settings,
                Finished finished);

    /// The trigger: takes a picture now (a page is made of it even without
    /// an outline). Main thread.
    void takePicture();
    /// Saves what was confirmed, prints the summary and reports. Once;
    /// main thread.
    void finish();
    bool isFinished() const { return _finished; }
    /// The confirmed pages so far.
    const std::vector<QImage>& pages() const { return _pages; }
    /// The outline last shown, in frame pixels, and that frame's size.
    std::pair<std::optional<Quad>, QSize> lastOutline() const;
    /// The capture screen the session works on.
    std::shared_ptr<QXDCameraController> controller() const { return _controller.lock(); }
    /// Moves the session to another capture screen (its keys go along);
    /// false, with nothing changed, while a picture or a page is on its way.
    bool attachController(const std::shared_ptr<QXDCameraController>& controller);
    /// Frames analysed so far. Any thread.
    std::uint64_t framesAnalysed() const { return _framesAnalysed.load(); }

    // QXDCameraCaptureControllerDelegate
    void captureControllerDidReceiveFrame(QXDCameraController& controller,
                                          const platform::ImagePtr& frame) override;
    void captureControllerDidFailWithError(QXDCameraController& controller,
                                           const platform::ErrorPtr& error) override;
    void captureControllerDidCancel(QXDCameraController& controller) override;
    void cameraDidCaptureStillImage(QXDCameraController& controller,
                                    const platform::ImagePtr& image) override;

private:
    friend class EditOutcome;
    void bindCaptureKeys();
    void showOutline(const std::optional<Quad>& outline, const QSize& frameSize, bool steady);
    void takeScreenshotOnce();
    void pressTrigger();
    void announce(Advice advice);
    void postBanner(const QString& title, const QString& message);
    void openEditor(const QImage& page);
    void pageConfirmed(const QImage& page);
    void pageDropped();
    void closeEditor(std::function<void()> then);

    std::weak_ptr<QXDCameraController> _controller;
    std::weak_ptr<platform::Window> _window;
    const ScanSettings _settings;
    Finished _finishedCallback;
    const PageDetector _detector;

    // Video queue only.
    OutlineSmoother _smoother;
    Guidance _guidance;
    double _missingSince = -1;
    double _lastCaptureAt = -1e9;
    bool _rearmed = true;

    // Shared between the queues.
    mutable std::mutex _mutex;
    std::optional<Quad> _outline;
    QSize _frameSize;
    std::atomic<bool> _capturing{false};
    std::atomic<bool> _editing{false};
    std::atomic<bool> _resetSmoother{false};
    std::atomic<bool> _stopped{false};
    std::atomic<std::uint64_t> _framesAnalysed{0};

    // Main thread only.
    std::vector<QImage> _pages;
    std::shared_ptr<QXDManualEditController> _editor;
    bool _finished = false;
    bool _screenshotTaken = false;
    bool _outlineShown = false;
    std::vector<std::uint64_t> _editorKeys;
    std::vector<std::uint64_t> _captureKeys;
};

}  // namespace scanner
