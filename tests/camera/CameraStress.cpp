// Drives camera engines on the virtual cameras the way a restless host does,
// for the sanitizer builds and for memory measurements.
//
//   qxd-camera-stress --seconds n [--seed s]
//       random start/stop, camera switches while running, stills, torch,
//       focus and exposure changes, grey mode, orientation changes, kept
//       frames and engines destroyed mid-stream, for n seconds.
//   qxd-camera-stress --still-at-exit
//       asks for a picture, releases the engine at once and returns from
//       main: must end cleanly every time.
//   qxd-camera-stress --cycles n
//       n create/stream/destroy cycles at 1080p (grey or colour, switched or
//       not, kept frames, a 12 MP still in one cycle of four, often still in
//       flight at the release); prints the resident memory after 10 and
//       after n cycles and fails when it grew by more than half.
//
// Exits 0 on success, 1 on a failure it can see (a hang is caught by the
// caller's time limit).

#include "QXDCamera.h"
#include "QXDCameraDelegate.h"

#include "platform/environment/Environment.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"

#include <QCommandLineParser>
#include <QFile>
#include <QGuiApplication>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <random>

namespace {

constexpr double kWait = 60.0;  // seconds; a guard against hangs

class Host : public QXDCameraDelegate {
public:
    void cameraDidCaptureVideoSample(QXDCamera&, const QImage& image) override {
        {
            std::lock_guard lock(_mutex);
            if (_keep > 0) {
                _kept.push_back(image);
                --_keep;
            }
        }
        frame.signal();
    }
    void cameraDidCaptureStillImage(QXDCamera&, const QImage&) override { still.signal(); }
    void cameraDidFailWithError(QXDCamera&, const platform::ErrorPtr& error) override {
        // Configuration refusals (a torch the front camera lacks) are
        // expected; a lost camera is not.
        if (error && error->localizedDescription().startsWith(QStringLiteral("The camera"))) {
            std::fprintf(stderr, "camera lost: %s\n", qPrintable(error->localizedDescription()));
            lost = true;
        }
    }

    void keep(int frames) {
        std::lock_guard lock(_mutex);
        _keep = frames;
    }
    void letGo() {
        std::lock_guard lock(_mutex);
        _kept.clear();
    }

    platform::Semaphore frame;
    platform::Semaphore still;
    std::atomic<bool> lost{false};

private:
    std::mutex _mutex;
    int _keep = 0;
    std::deque<QImage> _kept;
};

long residentKilobytes() {
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLong() * 4 : 0;
}

std::shared_ptr<QXDCamera> makeEngine(const std::shared_ptr<Host>& host, int position) {
    return QXDCamera::create(nullptr, position, false, host);
}

int runStillAtExit() {
    auto host = std::make_shared<Host>();
    auto camera = makeEngine(host, platform::device_position::kBack);
    camera->start();
    if (!host->frame.waitFor(kWait)) {
        std::fprintf(stderr, "no frame\n");
        return EXIT_FAILURE;
    }
    camera->takePicture();
    camera.reset();
    return EXIT_SUCCESS;
}

int runCycles(int cycles, unsigned seed) {
    std::mt19937 random(seed);
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    auto host = std::make_shared<Host>();
    long after10 = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        auto camera = makeEngine(host, platform::device_position::kBack);
        camera->setGrayscaleMode(pick(3) == 0);
        camera->start();
        if (!host->frame.waitFor(kWait)) {
            std::fprintf(stderr, "cycle %d: no frame\n", cycle);
            return EXIT_FAILURE;
        }
        if (pick(3) == 0) {
            // Switching rebuilds the outputs, in grey when asked for.
            camera->setDevicePosition(platform::device_position::kBack);
        }
        host->keep(pick(3));
        for (int i = 0; i < 2; ++i) {
            if (!host->frame.waitFor(kWait)) {
                std::fprintf(stderr, "cycle %d: no frame\n", cycle);
                return EXIT_FAILURE;
            }
        }
        host->letGo();
        if (pick(4) == 0) {
            camera->takePicture();  // 12 MP; every other one is still in flight at the end
            if (pick(2) == 0 && !host->still.waitFor(kWait)) {
                std::fprintf(stderr, "cycle %d: no still\n", cycle);
                return EXIT_FAILURE;
            }
        }
        camera.reset();  // mid-stream
        platform::RunLoop::main().runPending();
        if (cycle == 10) {
            after10 = residentKilobytes();
            std::printf("resident memory after 10 cycles: %ld MB\n", after10 / 1024);
        }
    }
    const long after = residentKilobytes();
    const double ratio = after10 > 0 ? static_cast<double>(after) / after10 : 0.0;
    std::printf("resident memory after %d cycles: %ld MB (%.2fx)\n", cycles, after / 1024, ratio);
    return ratio <= 1.5 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int runStress(double seconds, unsigned seed) {
    std::mt19937 random(seed);
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    auto host = std::make_shared<Host>();
    auto camera = makeEngine(host, platform::device_position::kBack);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int steps = 0;
    while (std::chrono::steady_clock::now() < end) {
        ++steps;
        switch (pick(12)) {
            case 0:
                camera->start();
                break;
            case 1:
                camera->stop();
                break;
            case 2:
                if (camera->running()) {  // a switch waits for a running engine only
                    camera->setDevicePosition(camera->devicePosition() == 1 ? 2 : 1);
                }
                break;
            case 3:
                camera->takePicture();
                break;
            case 4:
                camera->configureTorchMode(pick(2), pick(2) == 0 ? -1.0f : 0.5f);
                break;
            case 5:
                camera->configureFocusMode(pick(3), QPointF(pick(100) / 100.0, pick(100) / 100.0));
                break;
            case 6:
                camera->configureExposureMode(pick(3),
                                              QPointF(pick(100) / 100.0, pick(100) / 100.0));
                break;
            case 7:
                camera->setGrayscaleMode(!camera->grayscaleMode());
                break;
            case 8: {
                const int orientation = 1 + pick(6);
                platform::Device::current().setOrientation(orientation);
                platform::NotificationCenter::defaultCenter().post(
                    platform::kDeviceOrientationDidChangeNotification, nullptr);
                camera->setVideoOrientation(1 + pick(4));
                break;
            }
            case 9:
                // Destroyed mid-stream, perhaps with a still in flight.
                camera = makeEngine(host, 1 + pick(2));
                camera->start();
                break;
            case 10:
                host->keep(pick(8));
                break;
            default:
                host->letGo();
                host->frame.waitFor(0.02);
                break;
        }
        platform::RunLoop::main().advance(0.01);
    }
    camera.reset();
    host->letGo();
    std::printf("%d steps in %.0f s\n", steps, seconds);
    return host->lost ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption secondsOption(QStringLiteral("seconds"),
                                           QStringLiteral("Random operations for n seconds."),
                                           QStringLiteral("n"));
    const QCommandLineOption seedOption(QStringLiteral("seed"), QStringLiteral("Random seed."),
                                        QStringLiteral("s"), QStringLiteral("1"));
    const QCommandLineOption exitOption(QStringLiteral("still-at-exit"),
                                        QStringLiteral("Release with a still in flight."));
    const QCommandLineOption cyclesOption(QStringLiteral("cycles"),
                                          QStringLiteral("Create/stream/destroy cycles."),
                                          QStringLiteral("n"));
    parser.addHelpOption();
    parser.addOptions({secondsOption, seedOption, exitOption, cyclesOption});
    parser.process(app);

    platform::RunLoop::main().useManualClock();
    platform::CameraAvailability::setOverride(true);
    if (parser.isSet(exitOption)) {
        return runStillAtExit();
    }
    if (parser.isSet(cyclesOption)) {
        return runCycles(parser.value(cyclesOption).toInt(), parser.value(seedOption).toUInt());
    }
    if (parser.isSet(secondsOption)) {
        return runStress(parser.value(secondsOption).toDouble(), parser.value(seedOption).toUInt());
    }
    parser.showHelp(EXIT_FAILURE);
}
