#include "SpeechAudio.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace speechcheck {
namespace {

constexpr double kFrameSeconds = 0.02;
// About -40 dBFS: the null sink's silence is exact zeros, flite's quietest
// voiced sounds are well above this.
constexpr double kVoicedRms = 300.0;

// The loudness of each 20 ms frame of sound from seconds from on, count
// frames.
std::vector<double> loudness(const Sound& sound, double from, std::size_t count) {
    const auto frame = static_cast<std::size_t>(kFrameSeconds * sound.sampleRate);
    const auto first = static_cast<std::size_t>(from * sound.sampleRate);
    std::vector<double> values;
    for (std::size_t n = 0; n < count; ++n) {
        double energy = 0.0;
        for (std::size_t i = first + n * frame; i < first + (n + 1) * frame; ++i) {
            const double sample = i < sound.samples.size() ? sound.samples[i] : 0.0;
            energy += sample * sample;
        }
        values.push_back(std::sqrt(energy / static_cast<double>(frame)));
    }
    return values;
}

double correlation(const std::vector<double>& a, const std::vector<double>& b) {
    const auto mean = [](const std::vector<double>& v) {
        double sum = 0.0;
        for (const double x : v) {
            sum += x;
        }
        return sum / static_cast<double>(v.size());
    };
    const double ma = mean(a);
    const double mb = mean(b);
    double ab = 0.0;
    double aa = 0.0;
    double bb = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        ab += (a[i] - ma) * (b[i] - mb);
        aa += (a[i] - ma) * (a[i] - ma);
        bb += (b[i] - mb) * (b[i] - mb);
    }
    return aa > 0.0 && bb > 0.0 ? ab / std::sqrt(aa * bb) : 0.0;
}

}  // namespace

Sound fromRaw(const QByteArray& raw, int sampleRate) {
    Sound sound;
    sound.sampleRate = sampleRate;
    sound.samples.resize(static_cast<std::size_t>(raw.size() / 2));
    for (std::size_t i = 0; i < sound.samples.size(); ++i) {
        sound.samples[i] = qFromLittleEndian<qint16>(raw.constData() + 2 * i);
    }
    return sound;
}

std::optional<Sound> readWav(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray data = file.readAll();
    if (data.size() < 12 || !data.startsWith("RIFF") || data.mid(8, 4) != "WAVE") {
        return std::nullopt;
    }
    int channels = 0;
    int sampleRate = 0;
    int bits = 0;
    for (qsizetype at = 12; at + 8 <= data.size();) {
        const QByteArray id = data.mid(at, 4);
        const qsizetype size = qFromLittleEndian<quint32>(data.constData() + at + 4);
        const qsizetype body = at + 8;
        if (body + size > data.size()) {
            break;
        }
        if (id == "fmt " && size >= 16) {
            channels = qFromLittleEndian<quint16>(data.constData() + body + 2);
            sampleRate = static_cast<int>(qFromLittleEndian<quint32>(data.constData() + body + 4));
            bits = qFromLittleEndian<quint16>(data.constData() + body + 14);
        } else if (id == "data" && channels > 0 && bits == 16) {
            Sound sound;
            sound.sampleRate = sampleRate;
            const qsizetype frames = size / (2 * channels);
            for (qsizetype i = 0; i < frames; ++i) {
                sound.samples.push_back(
                    qFromLittleEndian<qint16>(data.constData() + body + 2 * channels * i));
            }
            return sound;
        }
        at = body + size + (size % 2);
    }
    return std::nullopt;
}

bool writeWav(const Sound& sound, const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    const auto u32 = [](quint32 value) {
        QByteArray bytes(4, '\0');
        qToLittleEndian(value, bytes.data());
        return bytes;
    };
    const auto u16 = [](quint16 value) {
        QByteArray bytes(2, '\0');
        qToLittleEndian(value, bytes.data());
        return bytes;
    };
    const auto dataSize = static_cast<quint32>(sound.samples.size() * 2);
    const auto rate = static_cast<quint32>(sound.sampleRate);
    QByteArray out = "RIFF" + u32(36 + dataSize) + "WAVEfmt " + u32(16) + u16(1) + u16(1) +
                     u32(rate) + u32(rate * 2) + u16(2) + u16(16) + "data" + u32(dataSize);
    for (const qint16 sample : sound.samples) {
        out += u16(static_cast<quint16>(sample));
    }
    return file.write(out) == out.size();
}

SpeechMeasure measureSpeech(const Sound& sound, double joinPause) {
    SpeechMeasure measure;
    const auto frame = static_cast<std::size_t>(std::max(1.0, kFrameSeconds * sound.sampleRate));
    double voicedEnergy = 0.0;
    std::size_t voicedSamples = 0;
    std::optional<Burst> current;
    for (std::size_t start = 0; start + frame <= sound.samples.size(); start += frame) {
        double energy = 0.0;
        for (std::size_t i = start; i < start + frame; ++i) {
            energy += static_cast<double>(sound.samples[i]) * sound.samples[i];
        }
        if (std::sqrt(energy / frame) < kVoicedRms) {
            continue;
        }
        voicedEnergy += energy;
        voicedSamples += frame;
        const double from = static_cast<double>(start) / sound.sampleRate;
        const double to = from + static_cast<double>(frame) / sound.sampleRate;
        if (current && from - current->end <= joinPause) {
            current->end = to;
        } else {
            if (current) {
                measure.bursts.push_back(*current);
            }
            current = Burst{from, to};
        }
    }
    if (current) {
        measure.bursts.push_back(*current);
    }
    if (voicedSamples > 0) {
        measure.rms = std::sqrt(voicedEnergy / static_cast<double>(voicedSamples));
        measure.voicedSeconds = measure.bursts.back().end - measure.bursts.front().start;
    }
    return measure;
}

}  // namespace speechcheck

namespace speechcheck {

double loudnessLikeness(const Sound& sound, const Burst& at, const Sound& reference,
                        const Burst& referenceSpan) {
    const auto count = static_cast<std::size_t>(referenceSpan.length() / kFrameSeconds);
    if (count < 2) {
        return 0.0;
    }
    const std::vector<double> b = loudness(reference, referenceSpan.start, count);
    // Frames of a burst found at a 20 ms grid start up to a frame off the
    // reference's: the best of the starts around it, a millisecond apart.
    double best = -1.0;
    for (double shift = -kFrameSeconds; shift <= kFrameSeconds; shift += 0.001) {
        const std::vector<double> a = loudness(sound, std::max(0.0, at.start + shift), count);
        best = std::max(best, correlation(a, b));
    }
    return best;
}

}  // namespace speechcheck
