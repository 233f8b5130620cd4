#include "platform/speech/RecordingSpeechEngine.h"

#include "platform/speech/Utterance.h"

namespace platform {

RecordingSpeechEngine::RecordingSpeechEngine(QString unavailableReason)
    : _unavailableReason(std::move(unavailableReason)) {}

std::vector<RecordingSpeechEngine::Spoken> RecordingSpeechEngine::spoken() const {
    std::lock_guard lock(_mutex);
    return _spoken;
}

std::vector<QString> RecordingSpeechEngine::spokenTexts() const {
    std::lock_guard lock(_mutex);
    std::vector<QString> texts;
    texts.reserve(_spoken.size());
    for (const Spoken& spoken : _spoken) {
        texts.push_back(spoken.text);
    }
    return texts;
}

bool RecordingSpeechEngine::isSpeaking() const {
    std::lock_guard lock(_mutex);
    return static_cast<bool>(_current);
}

bool RecordingSpeechEngine::isPaused() const {
    std::lock_guard lock(_mutex);
    return _paused;
}

int RecordingSpeechEngine::stopCount() const {
    std::lock_guard lock(_mutex);
    return _stops;
}

bool RecordingSpeechEngine::finishCurrent() {
    return end({});
}

bool RecordingSpeechEngine::failCurrent(const QString& error) {
    return end(error);
}

bool RecordingSpeechEngine::end(const QString& error) {
    Finished done;
    {
        std::lock_guard lock(_mutex);
        done = std::exchange(_current, {});
        _paused = false;
    }
    if (!done) {
        return false;
    }
    done(error);
    return true;
}

QString RecordingSpeechEngine::unavailableReason() {
    std::lock_guard lock(_mutex);
    return _unavailableReason;
}

void RecordingSpeechEngine::speak(const Utterance& utterance, Finished finished) {
    std::lock_guard lock(_mutex);
    _spoken.push_back({utterance.speechString(), utterance.rate(), utterance.pitchMultiplier(),
                       utterance.volume(), utterance.voiceLanguage()});
    _current = std::move(finished);
    _paused = false;
}

void RecordingSpeechEngine::stop() {
    std::lock_guard lock(_mutex);
    _current = {};
    _paused = false;
    ++_stops;
}

void RecordingSpeechEngine::pause() {
    std::lock_guard lock(_mutex);
    _paused = static_cast<bool>(_current);
}

void RecordingSpeechEngine::resume() {
    std::lock_guard lock(_mutex);
    _paused = false;
}

}  // namespace platform
