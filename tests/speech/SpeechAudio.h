#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace speechcheck {

/// Mono signed 16-bit sound.
struct Sound {
    std::vector<qint16> samples;
    int sampleRate = 0;

    double seconds() const {
        return sampleRate > 0 ? static_cast<double>(samples.size()) / sampleRate : 0.0;
    }
};

/// Raw little-endian 16-bit samples, as a recorder writes them.
Sound fromRaw(const QByteArray& raw, int sampleRate);
/// A 16-bit PCM WAV file (the first channel of several); nullopt when it is
/// not one.
std::optional<Sound> readWav(const QString& path);
bool writeWav(const Sound& sound, const QString& path);

/// Where a sound has voice: stretches of 20 ms frames louder than silence,
/// joined across pauses shorter than a pause between utterances.
struct Burst {
    double start = 0.0;  ///< seconds from the sound's start
    double end = 0.0;
    double length() const { return end - start; }
};

struct SpeechMeasure {
    double rms = 0.0;            ///< over the voiced frames
    double voicedSeconds = 0.0;  ///< first voiced frame to last
    std::vector<Burst> bursts;
};

/// Measures speech in sound; joinPause is the longest silence (seconds)
/// still counted as part of one burst.
SpeechMeasure measureSpeech(const Sound& sound, double joinPause);

/// How alike the loudness of sound over the burst at is to that of
/// reference over its voiced span, 20 ms at a time: the correlation of the
/// two, from -1 to 1 (1: the same rise and fall of syllables). Both must
/// have the same sample rate.
double loudnessLikeness(const Sound& sound, const Burst& at, const Sound& reference,
                        const Burst& referenceSpan);

}  // namespace speechcheck
