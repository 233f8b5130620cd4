// qxd-speech-aloud: checks that an alert's speech really comes out as sound.
//
//   qxd-speech-aloud [--output DIR]
//
// It starts a PulseAudio server of its own with a null sink and records what
// is played into it, shows the capture screen on the virtual camera with the
// screen reader taken as running, and posts an alert with "useVoice" through
// the notification center, as a host does. The alert's synthesizer speaks
// with the engine an application gets by default: flite, played through Qt
// Multimedia. The recording must hold the title and then the message, each
// about as long as the flite program says it. The recording is kept as
// DIR/alert-speech.wav to listen to.

#include "QXDAlertView.h"
#include "QXDCameraController.h"
#include "SoundServer.h"
#include "SpeechAudio.h"
#include "platform/capture/CameraChoice.h"
#include "platform/capture/CaptureSession.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/speech/Accessibility.h"
#include "platform/speech/SpeechSynthesizer.h"
#include "platform/ui/Window.h"

#include <QCommandLineParser>
#include <QDir>
#include <QGuiApplication>
#include <QStandardPaths>

#include <cstdio>
#include <cstdlib>

using namespace speechcheck;

namespace {

const QString kTitle = QStringLiteral("Page found");
const QString kMessage = QStringLiteral("Hold the camera steady while the page is photographed");
// Generous guards against a hang; every wait ends as soon as its event comes.
constexpr int kSpeechMs = 60000;
constexpr int kShowMs = 20000;
// Pauses between words stay under this; the pause between two utterances
// (the end of one, the start of the next) is longer.
constexpr double kJoinPause = 0.25;
// How far a spoken part's length may stray from the flite program's.
constexpr double kLengthTolerance = 0.25;
// How alike a spoken part's rise and fall of loudness must be to it (a
// glitch of a few milliseconds in a loaded machine's playback costs some).
constexpr double kMinimumLikeness = 0.5;
constexpr double kMinimumRms = 500.0;

void say(const QString& line) {
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

int fail(const QString& why) {
    std::fprintf(stderr, "qxd-speech-aloud: FAILED: %s\n", qPrintable(why));
    return EXIT_FAILURE;
}

/// What the alert's synthesizer reported, in order.
class SpeechWatcher : public platform::SpeechSynthesizerDelegate {
public:
    void didStart(platform::SpeechSynthesizer& /*synthesizer*/,
                  const platform::UtterancePtr& utterance) override {
        events << QStringLiteral("start ") + utterance->speechString();
    }
    void didFinish(platform::SpeechSynthesizer& /*synthesizer*/,
                   const platform::UtterancePtr& utterance) override {
        events << QStringLiteral("finish ") + utterance->speechString();
        ++finished;
    }
    void didCancel(platform::SpeechSynthesizer& /*synthesizer*/,
                   const platform::UtterancePtr& utterance) override {
        events << QStringLiteral("cancel ") + utterance->speechString();
    }

    QStringList events;
    int finished = 0;
};

/// text as the flite program says it with the same voice, written to
/// wavPath; nullopt on failure.
std::optional<Sound> fliteSays(const QString& text, const QString& wavPath) {
    QProcess flite;
    flite.start(QStandardPaths::findExecutable(QStringLiteral("flite")),
                {QStringLiteral("-voice"), QStringLiteral("kal16"), QStringLiteral("-t"), text,
                 QStringLiteral("-o"), wavPath});
    if (!flite.waitForFinished(30000) || flite.exitCode() != 0) {
        return std::nullopt;
    }
    return readWav(wavPath);
}

/// Whether burst of recording is reference said again: about as long, with
/// the same rise and fall; what was measured goes into report.
bool sounds(const Sound& recording, const Burst& burst, const Sound& reference, QString* report) {
    const SpeechMeasure alone = measureSpeech(reference, kJoinPause);
    if (alone.bursts.empty() || reference.sampleRate != recording.sampleRate) {
        *report = QStringLiteral("an unusable reference");
        return false;
    }
    const Burst span{alone.bursts.front().start, alone.bursts.back().end};
    const double likeness = loudnessLikeness(recording, burst, reference, span);
    *report = QStringLiteral("%1 s (flite program: %2 s), likeness %3")
                  .arg(burst.length(), 0, 'f', 2)
                  .arg(span.length(), 0, 'f', 2)
                  .arg(likeness, 0, 'f', 2);
    return std::abs(burst.length() - span.length()) <= kLengthTolerance * span.length() &&
           likeness >= kMinimumLikeness;
}

/// Shows the capture screen, posts the spoken alert and waits until both
/// texts have been spoken; false with why.
bool speakAlert(SpeechWatcher& watcher, QString* error) {
    const auto controller = QXDCameraController::init();
    const auto window = platform::Window::create(QRectF(0, 0, 375, 667));
    window->setRootViewController(controller);
    window->makeKeyAndVisible();
    const auto done = [&](bool ok) {
        window->setRootViewController(platform::ViewController::create());
        if (const auto& camera = controller->camera(); camera && camera->captureSession()) {
            camera->captureSession()->stopRunning();
        }
        return ok;
    };
    if (!waitUntil([&] { return controller->isVisible(); }, kShowMs)) {
        *error = QStringLiteral("the capture screen did not appear");
        return done(false);
    }
    platform::NotificationCenter::defaultCenter().post(QXDAlertViewShowNotification, nullptr,
                                                       {{QXDAlertViewTitleKey, kTitle},
                                                        {QXDAlertViewMessageKey, kMessage},
                                                        {QXDAlertViewDismissTimeKey, 60},
                                                        {QXDAlertViewUseVoiceKey, true}});
    const auto alert = controller->alertView();
    if (!alert) {
        *error = QStringLiteral("the capture screen showed no alert");
        return done(false);
    }
    // Set before the run loop turns, so the watcher hears the first start.
    const auto watching = std::shared_ptr<SpeechWatcher>(&watcher, [](SpeechWatcher*) {});
    alert->synthesizer()->setDelegate(watching);
    if (!waitUntil([&] { return watcher.finished >= 2; }, kSpeechMs)) {
        *error = QStringLiteral("the alert was not spoken to its end: ") +
                 watcher.events.join(QStringLiteral(", "));
        return done(false);
    }
    return done(true);
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({QStringLiteral("output"), QStringLiteral("Where the recording goes."),
                      QStringLiteral("dir"),
                      QCoreApplication::applicationDirPath() + QStringLiteral("/speech-aloud")});
    parser.process(app);
    const QDir output(parser.value(QStringLiteral("output")));
    QDir().mkpath(output.path());

    if (QStandardPaths::findExecutable(QStringLiteral("flite")).isEmpty()) {
        return fail(
            QStringLiteral("the flite program, the reference for the speech's length, "
                           "is not installed (flite)"));
    }

    SoundServer server;
    // Before anything in this process connects to a sound server.
    qputenv("PULSE_SERVER", server.address().toLocal8Bit());
    QString error;
    if (!server.start(&error) || !server.startRecording(&error)) {
        return fail(error);
    }

    platform::RunLoop::main().attachToQt();
    platform::CameraSelection::setChoice(platform::CameraChoice::virtualCameras());
    platform::setScreenReaderRunningOverride(true);
    QStringList speechProblems;
    const platform::log::ScopedSink sink([&speechProblems](const QString& line) {
        std::fprintf(stderr, "%s\n", qPrintable(line));
        if (line.contains(QStringLiteral("Speech: "))) {
            speechProblems << line;
        }
    });

    const qint64 before = server.recordedSamples();
    SpeechWatcher watcher;
    const bool spoken = speakAlert(watcher, &error);
    // What was played last reaches the monitor a little later: record a
    // second more.
    const qint64 after = server.recordedSamples();
    waitUntil([&] { return server.recordedSamples() >= after + SoundServer::kSampleRate; },
              kShowMs);
    if (!spoken) {
        return fail(error);
    }
    if (!speechProblems.isEmpty()) {
        return fail(speechProblems.join(QLatin1Char('\n')));
    }
    const QStringList expected = {
        QStringLiteral("start ") + kTitle, QStringLiteral("finish ") + kTitle,
        QStringLiteral("start ") + kMessage, QStringLiteral("finish ") + kMessage};
    if (watcher.events != expected) {
        return fail(QStringLiteral("the synthesizer reported %1")
                        .arg(watcher.events.join(QStringLiteral(", "))));
    }

    Sound recording = fromRaw(server.recording(), SoundServer::kSampleRate);
    recording.samples.erase(recording.samples.begin(), recording.samples.begin() + before);
    const QString wavPath = output.filePath(QStringLiteral("alert-speech.wav"));
    writeWav(recording, wavPath);
    const SpeechMeasure speech = measureSpeech(recording, kJoinPause);
    const auto title = fliteSays(kTitle, output.filePath(QStringLiteral("title-flite.wav")));
    const auto message = fliteSays(kMessage, output.filePath(QStringLiteral("message-flite.wav")));
    if (!title || !message) {
        return fail(QStringLiteral("the flite program did not say the texts"));
    }
    QStringList bursts;
    for (const Burst& burst : speech.bursts) {
        bursts << QStringLiteral("%1-%2 s").arg(burst.start, 0, 'f', 2).arg(burst.end, 0, 'f', 2);
    }
    say(QStringLiteral("recorded %1 s to %2; speech %3 s at RMS %4; bursts: %5")
            .arg(recording.seconds(), 0, 'f', 2)
            .arg(wavPath)
            .arg(speech.voicedSeconds, 0, 'f', 2)
            .arg(speech.rms, 0, 'f', 0)
            .arg(bursts.join(QStringLiteral(", "))));

    if (speech.bursts.empty() || speech.rms < kMinimumRms) {
        return fail(QStringLiteral("the recording holds no speech (RMS %1)").arg(speech.rms));
    }
    if (speech.bursts.size() != 2) {
        return fail(
            QStringLiteral("expected two utterances, heard %1 bursts").arg(speech.bursts.size()));
    }
    QString titleReport;
    QString messageReport;
    const bool titleHeard = sounds(recording, speech.bursts[0], *title, &titleReport);
    const bool messageHeard = sounds(recording, speech.bursts[1], *message, &messageReport);
    say(QStringLiteral("title: %1; message: %2").arg(titleReport, messageReport));
    if (!titleHeard || !messageHeard) {
        return fail(QStringLiteral("the bursts are not the title then the message"));
    }
    say(QStringLiteral("the alert's title and then its message were spoken aloud"));
    platform::setScreenReaderRunningOverride(std::nullopt);
    return EXIT_SUCCESS;
}
