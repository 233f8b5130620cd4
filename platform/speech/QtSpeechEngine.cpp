#include "platform/speech/QtSpeechEngine.h"

#include "platform/speech/Utterance.h"

#include <QLocale>
#include <QTextToSpeech>

#include <algorithm>
#include <cmath>
#include <utility>

namespace platform {

struct QtSpeechEngine::Impl {
    QString engineName;
    std::unique_ptr<QTextToSpeech> speech;
    QLocale defaultLocale;
    Finished pending;
    bool started = false;

    QTextToSpeech& ensure() {
        if (!speech) {
            speech = engineName.isEmpty() ? std::make_unique<QTextToSpeech>()
                                          : std::make_unique<QTextToSpeech>(engineName);
            defaultLocale = speech->locale();
            QObject::connect(speech.get(), &QTextToSpeech::stateChanged, speech.get(),
                             [this](QTextToSpeech::State state) { stateChanged(state); });
        }
        return *speech;
    }

    void dispose() {
        // Its last signals must not reach the engine being destroyed.
        QObject::disconnect(speech.get(), nullptr, nullptr, nullptr);
        speech->stop();
        speech.reset();
    }

    void finish(const QString& error) {
        if (Finished done = std::exchange(pending, {})) {
            done(error);
        }
    }

    void stateChanged(QTextToSpeech::State state) {
        switch (state) {
            case QTextToSpeech::Speaking:
                started = true;
                break;
            case QTextToSpeech::Ready:
                if (started) {
                    finish({});
                }
                break;
            case QTextToSpeech::Error:
                finish(errorText());
                break;
            case QTextToSpeech::Paused:
                break;
        }
    }

    QString errorText() const {
        const QString text = speech ? speech->errorString() : QString();
        return text.isEmpty() ? QStringLiteral("the text-to-speech engine failed") : text;
    }
};

QtSpeechEngine::QtSpeechEngine(QString engineName) : _impl(std::make_unique<Impl>()) {
    _impl->engineName = std::move(engineName);
}

QtSpeechEngine::~QtSpeechEngine() {
    if (_impl->speech) {
        _impl->dispose();
    }
}

QString QtSpeechEngine::unavailableReason() {
    const QStringList engines = QTextToSpeech::availableEngines();
    if (engines.isEmpty()) {
        return QStringLiteral("no text-to-speech engine plugin is installed");
    }
    if (!_impl->engineName.isEmpty() && !engines.contains(_impl->engineName)) {
        return QStringLiteral("no text-to-speech engine plugin called %1").arg(_impl->engineName);
    }
    // Qt's engine stays in its error state after a failed utterance; a new
    // one is made so that one failure does not silence the rest.
    if (_impl->speech && _impl->speech->state() == QTextToSpeech::Error) {
        _impl->dispose();
    }
    QTextToSpeech& speech = _impl->ensure();
    return speech.state() == QTextToSpeech::Error ? _impl->errorText() : QString();
}

void QtSpeechEngine::speak(const Utterance& utterance, Finished finished) {
    QTextToSpeech& speech = _impl->ensure();
    if (speech.state() == QTextToSpeech::Error) {
        finished(_impl->errorText());
        return;
    }
    // An empty text never changes the engine's state.
    if (utterance.speechString().trimmed().isEmpty()) {
        finished({});
        return;
    }
    // The platform's rate runs from 0 to 1 with 0.5 normal, its pitch is a
    // multiplier from 0.5 to 2; Qt wants -1 to 1 with 0 normal for both.
    speech.setRate(std::clamp((utterance.rate() - kUtteranceDefaultSpeechRate) * 2.0, -1.0, 1.0));
    speech.setPitch(
        std::clamp(std::log2(static_cast<double>(utterance.pitchMultiplier())), -1.0, 1.0));
    speech.setVolume(utterance.volume());
    speech.setLocale(utterance.voiceLanguage().isEmpty() ? _impl->defaultLocale
                                                         : QLocale(utterance.voiceLanguage()));
    _impl->pending = std::move(finished);
    _impl->started = false;
    speech.say(utterance.speechString());
}

void QtSpeechEngine::stop() {
    _impl->pending = {};
    if (_impl->speech) {
        _impl->speech->stop(QTextToSpeech::BoundaryHint::Immediate);
    }
}

void QtSpeechEngine::pause() {
    if (_impl->speech) {
        _impl->speech->pause(QTextToSpeech::BoundaryHint::Immediate);
    }
}

void QtSpeechEngine::resume() {
    if (_impl->speech) {
        _impl->speech->resume();
    }
}

}  // namespace platform
