#pragma once

#include <QString>

#include <memory>

namespace platform {

inline constexpr float kUtteranceMinimumSpeechRate = 0.0f;
inline constexpr float kUtteranceDefaultSpeechRate = 0.5f;
inline constexpr float kUtteranceMaximumSpeechRate = 1.0f;

/// A piece of text to speak and how to speak it, like the platform's speech
/// utterance.
///
/// Configure an utterance before handing it to a synthesizer; from then on
/// the synthesizer reads it on the main thread. Not synchronised: do not
/// change it from another thread meanwhile.
class Utterance {
public:
    static std::shared_ptr<Utterance> utteranceWithString(const QString& text);

    explicit Utterance(QString text) : _text(std::move(text)) {}

    const QString& speechString() const { return _text; }

    /// Between kUtteranceMinimumSpeechRate and kUtteranceMaximumSpeechRate;
    /// values outside are clamped.
    float rate() const { return _rate; }
    void setRate(float rate);

    /// 0.5 (an octave lower) to 2.0 (an octave higher); 1.0 is the voice's
    /// own pitch. Values outside are clamped.
    float pitchMultiplier() const { return _pitch; }
    void setPitchMultiplier(float pitch);

    /// 0.0 (silent) to 1.0 (loudest); values outside are clamped.
    float volume() const { return _volume; }
    void setVolume(float volume);

    /// The voice's language as a BCP 47 tag ("en-US"); empty for the engine's
    /// default.
    const QString& voiceLanguage() const { return _language; }
    void setVoiceLanguage(const QString& language) { _language = language; }

private:
    QString _text;
    float _rate = kUtteranceDefaultSpeechRate;
    float _pitch = 1.0f;
    float _volume = 1.0f;
    QString _language;
};

using UtterancePtr = std::shared_ptr<Utterance>;

}  // namespace platform
