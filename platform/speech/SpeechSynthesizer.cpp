#include "platform/speech/SpeechSynthesizer.h"

#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"

#include <algorithm>

namespace platform {

std::shared_ptr<SpeechSynthesizer> SpeechSynthesizer::create(SpeechEngineFactory factory) {
    return std::make_shared<SpeechSynthesizer>(Key{}, std::move(factory));
}

SpeechSynthesizer::SpeechSynthesizer(Key, SpeechEngineFactory factory)
    : _factory(std::move(factory)) {}

SpeechSynthesizer::~SpeechSynthesizer() {
    if (_current && _engine) {
        _engine->stop();
    }
}

void SpeechSynthesizer::setDelegate(std::weak_ptr<SpeechSynthesizerDelegate> delegate) {
    _delegate = std::move(delegate);
}

SpeechEngine* SpeechSynthesizer::engine() {
    if (!_engineMade) {
        _engineMade = true;
        if (_factory) {
            _engine = _factory();
        }
    }
    return _engine.get();
}

void SpeechSynthesizer::speakUtterance(UtterancePtr utterance) {
    if (!utterance || utterance == _current ||
        std::find(_queue.begin(), _queue.end(), utterance) != _queue.end()) {
        return;
    }
    _queue.push_back(std::move(utterance));
    if (!_current) {
        startNext();
    }
}

void SpeechSynthesizer::startNext() {
    if (_queue.empty()) {
        return;
    }
    _current = std::move(_queue.front());
    _queue.pop_front();
    _paused = false;
    const std::uint64_t token = ++_token;
    // Posted before the engine starts, so it reaches the delegate before any
    // report of the end.
    notify(&SpeechSynthesizerDelegate::didStart, _current);

    std::weak_ptr<SpeechSynthesizer> weak = weak_from_this();
    auto finished = [weak, token](const QString& error) {
        RunLoop::main().post([weak, token, error] {
            if (auto self = weak.lock()) {
                self->engineFinished(token, error);
            }
        });
    };
    SpeechEngine* speaker = engine();
    const QString unavailable =
        speaker == nullptr ? QStringLiteral("no speech engine") : speaker->unavailableReason();
    if (!unavailable.isEmpty()) {
        reportOnce(unavailable);
        finished({});
        return;
    }
    speaker->speak(*_current, std::move(finished));
}

void SpeechSynthesizer::engineFinished(std::uint64_t token, const QString& error) {
    if (token != _token || !_current) {
        return;
    }
    if (!error.isEmpty()) {
        reportOnce(error);
    }
    UtterancePtr done = std::move(_current);
    _current.reset();
    _paused = false;
    notify(&SpeechSynthesizerDelegate::didFinish, std::move(done));
    startNext();
}

bool SpeechSynthesizer::stopSpeaking() {
    if (!_current && _queue.empty()) {
        return false;
    }
    ++_token;
    _queue.clear();
    _paused = false;
    if (_current) {
        if (_engine) {
            _engine->stop();
        }
        UtterancePtr cancelled = std::move(_current);
        _current.reset();
        notify(&SpeechSynthesizerDelegate::didCancel, std::move(cancelled));
    }
    return true;
}

bool SpeechSynthesizer::pauseSpeaking() {
    if (!_current || _paused) {
        return false;
    }
    _paused = true;
    if (_engine) {
        _engine->pause();
    }
    return true;
}

bool SpeechSynthesizer::continueSpeaking() {
    if (!_paused) {
        return false;
    }
    _paused = false;
    if (_engine) {
        _engine->resume();
    }
    return true;
}

void SpeechSynthesizer::reportOnce(const QString& problem) {
    if (std::exchange(_reported, true)) {
        return;
    }
    log::write(QStringLiteral("Speech: %1; utterances finish without sound").arg(problem));
}

void SpeechSynthesizer::notify(Notice notice, UtterancePtr utterance) {
    RunLoop::main().post([weak = weak_from_this(), notice, utterance = std::move(utterance)] {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        if (auto delegate = self->_delegate.lock()) {
            ((*delegate).*notice)(*self, utterance);
        }
    });
}

}  // namespace platform
