#pragma once

#include "platform/speech/SpeechEngine.h"

#include <memory>

namespace platform {

/// A speech engine over Qt's text-to-speech, which loads an engine plugin
/// (on Debian, flite or speech-dispatcher). Without a plugin, or when the
/// plugin fails (no audio device), it reports itself unavailable or ends
/// utterances with an error; after a failure the next utterance gets a fresh
/// Qt engine. Qt 6.4's flite plugin loses most of an utterance's sound on
/// PulseAudio and fails outright on some texts: FliteSpeechEngine, the
/// default, speaks through flite without it.
///
/// Main thread only: it owns a QObject, created on first use, whose signals
/// arrive through the Qt event loop.
class QtSpeechEngine : public SpeechEngine {
public:
    /// Over the engine plugin called engineName; empty for Qt's default.
    explicit QtSpeechEngine(QString engineName = {});
    ~QtSpeechEngine() override;
    QtSpeechEngine(const QtSpeechEngine&) = delete;
    QtSpeechEngine& operator=(const QtSpeechEngine&) = delete;

    QString unavailableReason() override;
    void speak(const Utterance& utterance, Finished finished) override;
    void stop() override;
    void pause() override;
    void resume() override;

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace platform
