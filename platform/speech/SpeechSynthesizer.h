#pragma once

#include "platform/speech/SpeechEngine.h"
#include "platform/speech/Utterance.h"

#include <cstdint>
#include <deque>
#include <memory>

namespace platform {

class SpeechSynthesizer;

/// Told about a synthesizer's utterances on the main run loop, in the order
/// things happened. All methods have empty defaults.
class SpeechSynthesizerDelegate {
public:
    virtual ~SpeechSynthesizerDelegate() = default;

    virtual void didStart(SpeechSynthesizer& /*synthesizer*/, const UtterancePtr& /*utterance*/) {}
    virtual void didFinish(SpeechSynthesizer& /*synthesizer*/, const UtterancePtr& /*utterance*/) {}
    /// The utterance was being spoken when stopSpeaking was called.
    virtual void didCancel(SpeechSynthesizer& /*synthesizer*/, const UtterancePtr& /*utterance*/) {}
};

/// Speaks utterances one after another, in the order they were queued, like
/// the platform's speech synthesizer.
///
/// Main thread only. The engine comes from the factory the synthesizer was
/// made with, on first use. When the engine is unavailable, or fails, the
/// synthesizer says so once through the platform log and lets utterances
/// start and finish without sound, so nobody waits for them forever.
class SpeechSynthesizer : public std::enable_shared_from_this<SpeechSynthesizer> {
    struct Key {};

public:
    static std::shared_ptr<SpeechSynthesizer> create(
        SpeechEngineFactory factory = defaultSpeechEngineFactory());

    SpeechSynthesizer(Key, SpeechEngineFactory factory);
    ~SpeechSynthesizer();
    SpeechSynthesizer(const SpeechSynthesizer&) = delete;
    SpeechSynthesizer& operator=(const SpeechSynthesizer&) = delete;

    /// Held weakly.
    void setDelegate(std::weak_ptr<SpeechSynthesizerDelegate> delegate);

    /// Queues utterance; it is spoken once those before it have finished. A
    /// null utterance, or one already queued or being spoken, is ignored.
    void speakUtterance(UtterancePtr utterance);

    /// True while an utterance is being spoken, paused included.
    bool isSpeaking() const { return static_cast<bool>(_current); }
    bool isPaused() const { return _paused; }

    /// Stops the current utterance (its delegate hears didCancel) and drops
    /// the queued ones. False when there was nothing to stop.
    bool stopSpeaking();
    /// False when nothing is being spoken or it is already paused.
    bool pauseSpeaking();
    /// False when not paused.
    bool continueSpeaking();

private:
    using Notice = void (SpeechSynthesizerDelegate::*)(SpeechSynthesizer&, const UtterancePtr&);

    void startNext();
    void engineFinished(std::uint64_t token, const QString& error);
    void reportOnce(const QString& problem);
    void notify(Notice notice, UtterancePtr utterance);
    SpeechEngine* engine();

    SpeechEngineFactory _factory;
    std::shared_ptr<SpeechEngine> _engine;
    bool _engineMade = false;
    std::weak_ptr<SpeechSynthesizerDelegate> _delegate;
    std::deque<UtterancePtr> _queue;
    UtterancePtr _current;
    // Identifies the utterance being spoken, so that an engine's late report
    // about a stopped one is ignored.
    std::uint64_t _token = 0;
    bool _paused = false;
    bool _reported = false;
};

}  // namespace platform
