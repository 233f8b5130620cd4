#pragma once

#include "platform/speech/SpeechEngine.h"

#include <memory>

namespace platform {

/// A speech engine that synthesizes with flite (its US English voice "kal"
/// at 16 kHz) and plays the sound through Qt Multimedia's default audio
/// output. It is what applications speak with by default.
///
/// Unlike Qt's own flite text-to-speech plugin, it hands the whole utterance
/// to the audio output as one buffer, so nothing is dropped when the sound
/// server takes the samples more slowly than flite makes them, and an
/// utterance ends when its last sample has been played.
///
/// Utterances are synthesized on a queue of the engine's own; speak, stop,
/// pause, resume and unavailableReason are main thread only, and finished
/// is called on the main thread. The voice speaks English whatever the
/// utterance's voiceLanguage.
class FliteSpeechEngine : public SpeechEngine {
public:
    FliteSpeechEngine();
    ~FliteSpeechEngine() override;
    FliteSpeechEngine(const FliteSpeechEngine&) = delete;
    FliteSpeechEngine& operator=(const FliteSpeechEngine&) = delete;

    QString unavailableReason() override;
    void speak(const Utterance& utterance, Finished finished) override;
    void stop() override;
    void pause() override;
    void resume() override;

private:
    struct Impl;
    std::shared_ptr<Impl> _impl;
};

}  // namespace platform
