#pragma once

#include <QString>

#include <functional>
#include <memory>

namespace platform {

class Utterance;

/// What turns text into sound for a SpeechSynthesizer. The synthesizer calls
/// an engine on the main thread only, one utterance at a time; an engine may
/// report the end of an utterance from any thread.
class SpeechEngine {
public:
    /// Reports that the utterance has been spoken to its end (error empty),
    /// or that it could not be (error says why). Called at most once.
    using Finished = std::function<void(const QString& error)>;

    virtual ~SpeechEngine() = default;

    /// Empty when the engine can speak; otherwise why it cannot.
    virtual QString unavailableReason() = 0;

    /// Starts speaking utterance. finished may be called before this returns.
    virtual void speak(const Utterance& utterance, Finished finished) = 0;

    /// Stops at once; the current utterance's finished is then never called.
    virtual void stop() = 0;
    virtual void pause() = 0;
    virtual void resume() = 0;
};

/// Makes the engine a synthesizer speaks with; a null engine counts as one
/// that is unavailable.
using SpeechEngineFactory = std::function<std::shared_ptr<SpeechEngine>()>;

/// The documented default: a FliteSpeechEngine, unless a
/// ScopedSpeechEngineFactory is in place. (QtSpeechEngine speaks through
/// Qt's text-to-speech plugins instead, speech-dispatcher's for one.)
/// Thread-safe.
SpeechEngineFactory defaultSpeechEngineFactory();

/// Makes defaultSpeechEngineFactory() give factory for the guard's lifetime,
/// so synthesizers made out of the caller's reach (an alert's, say) speak
/// with an engine of the host's or test's choosing. Guards nest; the
/// previous factory comes back when the guard goes. Thread-safe.
class ScopedSpeechEngineFactory {
public:
    explicit ScopedSpeechEngineFactory(SpeechEngineFactory factory);
    ~ScopedSpeechEngineFactory();
    ScopedSpeechEngineFactory(const ScopedSpeechEngineFactory&) = delete;
    ScopedSpeechEngineFactory& operator=(const ScopedSpeechEngineFactory&) = delete;

private:
    SpeechEngineFactory _previous;
};

}  // namespace platform
