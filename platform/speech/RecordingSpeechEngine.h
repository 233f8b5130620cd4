#pragma once

#include "platform/speech/SpeechEngine.h"

#include <mutex>
#include <vector>

namespace platform {

/// A speech engine for tests: it records what it is asked to speak and ends
/// an utterance only when told to (finishCurrent, failCurrent). Hand a
/// synthesizer a factory returning the same shared engine to watch it.
///
/// Thread-safe.
class RecordingSpeechEngine : public SpeechEngine {
public:
    /// What an utterance asked for when it was handed over.
    struct Spoken {
        QString text;
        float rate = 0.0f;
        float pitchMultiplier = 0.0f;
        float volume = 0.0f;
        QString voiceLanguage;
    };

    /// An engine that can speak, or, with a reason, one that reports itself
    /// unavailable.
    explicit RecordingSpeechEngine(QString unavailableReason = {});

    /// Every utterance handed over, in order.
    std::vector<Spoken> spoken() const;
    /// The texts of spoken(), in order.
    std::vector<QString> spokenTexts() const;

    /// True between speak and the end, stop or failure of that utterance.
    bool isSpeaking() const;
    bool isPaused() const;
    int stopCount() const;

    /// Ends the current utterance as if its last word had been said; false
    /// when nothing is being spoken.
    bool finishCurrent();
    /// Ends the current utterance with error; false when nothing is being
    /// spoken.
    bool failCurrent(const QString& error);

    QString unavailableReason() override;
    void speak(const Utterance& utterance, Finished finished) override;
    void stop() override;
    void pause() override;
    void resume() override;

private:
    bool end(const QString& error);

    mutable std::mutex _mutex;
    QString _unavailableReason;
    std::vector<Spoken> _spoken;
    Finished _current;
    bool _paused = false;
    int _stops = 0;
};

}  // namespace platform
