#include "platform/speech/FliteSpeechEngine.h"

#include "platform/foundation/Dispatch.h"
#include "platform/foundation/RunLoop.h"
#include "platform/speech/Utterance.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QBuffer>
#include <QMediaDevices>

#include <flite/flite.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <utility>

extern "C" cst_voice* register_cmu_us_kal16(const char* voxdir);

namespace platform {
namespace {

constexpr int kSampleRate = 16000;
// What the sound server holds ahead of playing. Qt feeds it from the main
// thread; a busy main thread that lets it run dry loses samples (the server
// plays on and skips what comes late), so it is asked for a second (servers
// grant about half).
constexpr int kOutputBufferMs = 1000;
// The output takes the last sample while a full buffer is still to be
// played: that much silence at the end lets the words be heard to the end
// before the output reports idle and is closed.
constexpr double kTrailingSilence = kOutputBufferMs / 1000.0 + 0.1;

// flite's voice is one object per process whose features each synthesis
// reads, so synthesis is serialised over it.
struct FliteVoice {
    std::mutex mutex;
    cst_voice* voice = nullptr;
    // The voice's own settings, which an utterance's rate and pitch scale.
    float defaultStretch = 1.0f;
    float defaultPitch = 100.0f;
};

FliteVoice& fliteVoice() {
    static FliteVoice state;
    static std::once_flag registered;
    std::call_once(registered, [] {
        flite_init();
        state.voice = register_cmu_us_kal16(nullptr);
        if (state.voice != nullptr) {
            state.defaultStretch =
                flite_get_param_float(state.voice->features, "duration_stretch", 1.0f);
            state.defaultPitch =
                flite_get_param_float(state.voice->features, "int_f0_target_mean", 100.0f);
        }
    });
    return state;
}

// The platform's rate runs from 0 to 1 with 0.5 normal; flite stretches
// durations, by the same curve as speech-dispatcher's flite module.
float durationStretch(float rate) {
    const float speed = std::clamp((rate - kUtteranceDefaultSpeechRate) * 2.0f, -1.0f, 1.0f);
    return speed < 0.0f ? 1.0f - speed * 2.0f : 1.0f - speed * (100.0f / 175.0f);
}

QByteArray synthesize(const QString& text, float rate, float pitchMultiplier) {
    FliteVoice& flite = fliteVoice();
    std::lock_guard lock(flite.mutex);
    if (flite.voice == nullptr) {
        return {};
    }
    flite_feat_set_float(flite.voice->features, "duration_stretch",
                         flite.defaultStretch * durationStretch(rate));
    flite_feat_set_float(flite.voice->features, "int_f0_target_mean",
                         flite.defaultPitch * pitchMultiplier);
    cst_wave* wave = flite_text_to_wave(text.toUtf8().constData(), flite.voice);
    if (wave == nullptr) {
        return {};
    }
    const auto samples = static_cast<qsizetype>(wave->num_samples) * wave->num_channels;
    QByteArray pcm(reinterpret_cast<const char*>(wave->samples),
                   samples * static_cast<qsizetype>(sizeof(short)));
    delete_wave(wave);
    pcm.append(QByteArray(static_cast<qsizetype>(kTrailingSilence * kSampleRate) * 2, '\0'));
    return pcm;
}

QString describe(QAudio::Error error) {
    switch (error) {
        case QAudio::OpenError:
            return QStringLiteral("the audio output could not be opened");
        case QAudio::IOError:
            return QStringLiteral("the audio output failed");
        case QAudio::UnderrunError:
        case QAudio::NoError:
            break;
        case QAudio::FatalError:
            return QStringLiteral("the audio output is gone");
    }
    return QStringLiteral("the audio output stopped");
}

}  // namespace

struct FliteSpeechEngine::Impl : std::enable_shared_from_this<Impl> {
    std::shared_ptr<DispatchQueue> queue = DispatchQueue::createSerial("speech.flite");
    // The output of the utterance being played; its sound buffer is its child.
    std::unique_ptr<QAudioSink> sink;
    QBuffer* sound = nullptr;
    Finished pending;
    // Names the utterance being spoken: a synthesis finished after a stop
    // is dropped.
    std::uint64_t token = 0;
    float volume = 1.0f;
    bool paused = false;

    void finish(const QString& error) {
        closeOutput();
        if (Finished done = std::exchange(pending, {})) {
            done(error);
        }
    }

    // Never called from the output's own signals (stateChanged posts).
    void closeOutput() {
        if (sink) {
            QObject::disconnect(sink.get(), nullptr, nullptr, nullptr);
            sink->stop();
            sink.reset();
        }
        sound = nullptr;
    }

    void play(const QByteArray& pcm) {
        if (pcm.isEmpty()) {
            finish(QStringLiteral("flite could not synthesize the text"));
            return;
        }
        const QAudioDevice device = QMediaDevices::defaultAudioOutput();
        if (device.isNull()) {
            finish(QStringLiteral("there is no audio output"));
            return;
        }
        QAudioFormat format;
        format.setSampleFormat(QAudioFormat::Int16);
        format.setSampleRate(kSampleRate);
        format.setChannelCount(1);
        sink = std::make_unique<QAudioSink>(device, format);
        sink->setBufferSize(format.bytesForDuration(kOutputBufferMs * 1000));
        sink->setVolume(volume);
        sound = new QBuffer(sink.get());
        sound->setData(pcm);
        sound->open(QIODevice::ReadOnly);
        QObject::connect(sink.get(), &QAudioSink::stateChanged, sink.get(),
                         [this](QAudio::State state) { stateChanged(state); });
        sink->start(sound);
        if (paused) {
            sink->suspend();
        }
    }

    void stateChanged(QAudio::State state) {
        const QAudio::Error error = sink->error();
        QString problem;
        // Idle before the end is an underrun: the output waits for more.
        if (state == QAudio::StoppedState && error != QAudio::NoError) {
            problem = describe(error);
        } else if (state != QAudio::IdleState || !sound->atEnd()) {
            return;
        }
        // The output is closed outside its own signal.
        RunLoop::main().post([weak = weak_from_this(), spoken = token, problem] {
            const auto self = weak.lock();
            if (self && self->token == spoken) {
                self->finish(problem);
            }
        });
    }
};

FliteSpeechEngine::FliteSpeechEngine() : _impl(std::make_shared<Impl>()) {}

FliteSpeechEngine::~FliteSpeechEngine() {
    _impl->pending = {};
    _impl->closeOutput();
}

QString FliteSpeechEngine::unavailableReason() {
    if (fliteVoice().voice == nullptr) {
        return QStringLiteral("flite has no voice");
    }
    return {};
}

void FliteSpeechEngine::speak(const Utterance& utterance, Finished finished) {
    _impl->closeOutput();
    _impl->pending = std::move(finished);
    _impl->paused = false;
    _impl->volume = utterance.volume();
    const std::uint64_t token = ++_impl->token;
    std::weak_ptr<Impl> weak = _impl;
    const QString text = utterance.speechString();
    if (text.trimmed().isEmpty()) {
        _impl->finish({});
        return;
    }
    _impl->queue->async(
        [weak, token, text, rate = utterance.rate(), pitch = utterance.pitchMultiplier()] {
            QByteArray pcm = synthesize(text, rate, pitch);
            RunLoop::main().post([weak, token, pcm = std::move(pcm)] {
                const auto impl = weak.lock();
                if (impl && impl->token == token) {
                    impl->play(pcm);
                }
            });
        });
}

void FliteSpeechEngine::stop() {
    ++_impl->token;
    _impl->pending = {};
    _impl->paused = false;
    _impl->closeOutput();
}

void FliteSpeechEngine::pause() {
    _impl->paused = true;
    if (_impl->sink) {
        _impl->sink->suspend();
    }
}

void FliteSpeechEngine::resume() {
    _impl->paused = false;
    if (_impl->sink) {
        _impl->sink->resume();
    }
}

}  // namespace platform
