#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/speech/Accessibility.h"
#include "platform/speech/QtSpeechEngine.h"
#include "platform/speech/RecordingSpeechEngine.h"
#include "platform/speech/SpeechSynthesizer.h"

#include <QAccessible>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using platform::RecordingSpeechEngine;
using platform::SpeechSynthesizer;
using platform::Utterance;
using platform::UtterancePtr;

// Writes down what it hears as "start A", "finish A", "cancel A".
class Journal : public platform::SpeechSynthesizerDelegate {
public:
    void didStart(SpeechSynthesizer&, const UtterancePtr& u) override { note("start", u); }
    void didFinish(SpeechSynthesizer&, const UtterancePtr& u) override { note("finish", u); }
    void didCancel(SpeechSynthesizer&, const UtterancePtr& u) override { note("cancel", u); }

    std::vector<QString> events;

private:
    void note(const char* what, const UtterancePtr& u) {
        EXPECT_TRUE(platform::RunLoop::main().isMainThread());
        events.push_back(QStringLiteral("%1 %2").arg(QLatin1String(what), u->speechString()));
    }
};

class SpeechTest : public testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        synthesizer = SpeechSynthesizer::create([engine = engine] { return engine; });
        synthesizer->setDelegate(journal);
    }

    void speak(std::initializer_list<const char*> texts) {
        for (const char* text : texts) {
            synthesizer->speakUtterance(Utterance::utteranceWithString(QString::fromUtf8(text)));
        }
    }

    static void runLoop() { platform::RunLoop::main().runPending(); }

    std::shared_ptr<RecordingSpeechEngine> engine = std::make_shared<RecordingSpeechEngine>();
    std::shared_ptr<Journal> journal = std::make_shared<Journal>();
    std::shared_ptr<SpeechSynthesizer> synthesizer;
};

using Texts = std::vector<QString>;

TEST_F(SpeechTest, UtterancesAreSpokenInOrderOneAtATime) {
    speak({"A", "B", "C"});
    EXPECT_TRUE(synthesizer->isSpeaking());
    EXPECT_EQ(engine->spokenTexts(), Texts({"A"}));
    EXPECT_TRUE(journal->events.empty()) << "the delegate hears it on the run loop";
    runLoop();
    EXPECT_EQ(journal->events, Texts({"start A"}));

    ASSERT_TRUE(engine->finishCurrent());
    EXPECT_EQ(engine->spokenTexts(), Texts({"A"})) << "the end is handled on the run loop";
    runLoop();
    EXPECT_EQ(engine->spokenTexts(), Texts({"A", "B"}));
    ASSERT_TRUE(engine->finishCurrent());
    runLoop();
    ASSERT_TRUE(engine->finishCurrent());
    runLoop();

    EXPECT_FALSE(synthesizer->isSpeaking());
    EXPECT_FALSE(engine->finishCurrent());
    EXPECT_EQ(engine->spokenTexts(), Texts({"A", "B", "C"}));

    // An utterance already queued, or none, is not queued again.
    const auto once = Utterance::utteranceWithString(QStringLiteral("D"));
    synthesizer->speakUtterance(once);
    synthesizer->speakUtterance(once);
    synthesizer->speakUtterance(nullptr);
    engine->finishCurrent();
    runLoop();
    EXPECT_FALSE(synthesizer->isSpeaking());
    EXPECT_EQ(engine->spokenTexts(), Texts({"A", "B", "C", "D"}));
    EXPECT_EQ(journal->events, Texts({"start A", "finish A", "start B", "finish B", "start C",
                                      "finish C", "start D", "finish D"}));
}

TEST_F(SpeechTest, UtterancesCarryTheirVoiceSettingsToTheEngine) {
    auto utterance = Utterance::utteranceWithString(QStringLiteral("hello"));
    EXPECT_EQ(utterance->rate(), platform::kUtteranceDefaultSpeechRate);
    utterance->setRate(3.0f);
    utterance->setPitchMultiplier(1.5f);
    utterance->setVolume(-1.0f);
    utterance->setVoiceLanguage(QStringLiteral("en-GB"));
    synthesizer->speakUtterance(utterance);
    const auto spoken = engine->spoken();
    ASSERT_EQ(spoken.size(), 1u);
    EXPECT_EQ(spoken[0].rate, platform::kUtteranceMaximumSpeechRate);
    EXPECT_EQ(spoken[0].pitchMultiplier, 1.5f);
    EXPECT_EQ(spoken[0].volume, 0.0f);
    EXPECT_EQ(spoken[0].voiceLanguage, QStringLiteral("en-GB"));
}

TEST_F(SpeechTest, StopCancelsTheCurrentUtteranceAndDropsTheRest) {
    speak({"A", "B", "C"});
    runLoop();
    EXPECT_TRUE(synthesizer->stopSpeaking());
    EXPECT_FALSE(synthesizer->isSpeaking());
    EXPECT_EQ(engine->stopCount(), 1);
    runLoop();
    EXPECT_EQ(journal->events, Texts({"start A", "cancel A"}));
    EXPECT_EQ(engine->spokenTexts(), Texts({"A"}));
    EXPECT_FALSE(synthesizer->stopSpeaking());

    // Speaking works again afterwards.
    speak({"D"});
    engine->finishCurrent();
    runLoop();
    EXPECT_EQ(journal->events, Texts({"start A", "cancel A", "start D", "finish D"}));
}

TEST_F(SpeechTest, PauseAndContinueReachTheEngine) {
    EXPECT_FALSE(synthesizer->pauseSpeaking()) << "nothing to pause";
    speak({"A", "B"});
    EXPECT_TRUE(synthesizer->pauseSpeaking());
    EXPECT_FALSE(synthesizer->pauseSpeaking());
    EXPECT_TRUE(synthesizer->isPaused());
    EXPECT_TRUE(synthesizer->isSpeaking());
    EXPECT_TRUE(engine->isPaused());
    EXPECT_TRUE(synthesizer->continueSpeaking());
    EXPECT_FALSE(synthesizer->continueSpeaking());
    EXPECT_FALSE(engine->isPaused());
    engine->finishCurrent();
    runLoop();
    EXPECT_EQ(engine->spokenTexts(), Texts({"A", "B"}));
}

TEST_F(SpeechTest, WithoutAnEngineUtterancesFinishSilentlyAndTheLogSaysSoOnce) {
    std::vector<QString> lines;
    platform::log::ScopedSink sink([&lines](const QString& line) { lines.push_back(line); });
    for (const auto& factory : std::vector<platform::SpeechEngineFactory>{
             [] { return std::make_shared<RecordingSpeechEngine>(QStringLiteral("no plugin")); },
             [] { return std::make_shared<platform::QtSpeechEngine>(QStringLiteral("no-such")); },
             [] { return nullptr; }}) {
        lines.clear();
        auto silent = SpeechSynthesizer::create(factory);
        auto heard = std::make_shared<Journal>();
        silent->setDelegate(heard);
        silent->speakUtterance(Utterance::utteranceWithString(QStringLiteral("A")));
        silent->speakUtterance(Utterance::utteranceWithString(QStringLiteral("B")));
        runLoop();
        EXPECT_FALSE(silent->isSpeaking());
        EXPECT_EQ(heard->events, Texts({"start A", "finish A", "start B", "finish B"}));
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(lines[0].contains(QStringLiteral("without sound"))) << lines[0].toStdString();
    }
}

// Opening the audio service can warn on machines without one, so a
// synthesizer that never speaks never makes its engine.
TEST_F(SpeechTest, TheEngineIsMadeOnTheFirstUtteranceOnly) {
    int made = 0;
    auto lazy = SpeechSynthesizer::create([&made] {
        ++made;
        return std::make_shared<RecordingSpeechEngine>();
    });
    lazy->setDelegate(std::make_shared<Journal>());
    lazy->stopSpeaking();
    runLoop();
    EXPECT_EQ(made, 0);
    lazy->speakUtterance(Utterance::utteranceWithString(QStringLiteral("A")));
    lazy->speakUtterance(Utterance::utteranceWithString(QStringLiteral("B")));
    runLoop();
    EXPECT_EQ(made, 1);
}

TEST_F(SpeechTest, AnEngineFailureFinishesTheUtteranceAndIsLoggedOnce) {
    std::vector<QString> lines;
    platform::log::ScopedSink sink([&lines](const QString& line) { lines.push_back(line); });
    speak({"A", "B"});
    ASSERT_TRUE(engine->failCurrent(QStringLiteral("no audio device")));
    runLoop();
    ASSERT_TRUE(engine->failCurrent(QStringLiteral("no audio device")));
    runLoop();
    EXPECT_EQ(journal->events, Texts({"start A", "finish A", "start B", "finish B"}));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("no audio device")));
}

TEST(ScreenReaderTest, TheHostsOverrideWinsOverQt) {
    const auto saved = platform::screenReaderRunningOverride();
    platform::setScreenReaderRunningOverride(true);
    EXPECT_TRUE(platform::isScreenReaderRunning());
    platform::setScreenReaderRunningOverride(false);
    EXPECT_FALSE(platform::isScreenReaderRunning());
    platform::setScreenReaderRunningOverride(std::nullopt);
    EXPECT_EQ(platform::screenReaderRunningOverride(), std::nullopt);
    EXPECT_EQ(platform::isScreenReaderRunning(), QAccessible::isActive());
    platform::setScreenReaderRunningOverride(saved);
}

}  // namespace
