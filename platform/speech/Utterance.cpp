#include "platform/speech/Utterance.h"

#include <algorithm>

namespace platform {

std::shared_ptr<Utterance> Utterance::utteranceWithString(const QString& text) {
    return std::make_shared<Utterance>(text);
}

void Utterance::setRate(float rate) {
    _rate = std::clamp(rate, kUtteranceMinimumSpeechRate, kUtteranceMaximumSpeechRate);
}

void Utterance::setPitchMultiplier(float pitch) {
    _pitch = std::clamp(pitch, 0.5f, 2.0f);
}

void Utterance::setVolume(float volume) {
    _volume = std::clamp(volume, 0.0f, 1.0f);
}

}  // namespace platform
