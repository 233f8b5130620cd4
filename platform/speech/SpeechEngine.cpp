#include "platform/speech/SpeechEngine.h"

#include "platform/speech/FliteSpeechEngine.h"

#include <mutex>
#include <utility>

namespace platform {

namespace {

struct DefaultFactory {
    std::mutex mutex;
    SpeechEngineFactory override;
};

DefaultFactory& defaultFactory() {
    static DefaultFactory state;
    return state;
}

}  // namespace

SpeechEngineFactory defaultSpeechEngineFactory() {
    {
        std::lock_guard lock(defaultFactory().mutex);
        if (defaultFactory().override) {
            return defaultFactory().override;
        }
    }
    return [] { return std::make_shared<FliteSpeechEngine>(); };
}

ScopedSpeechEngineFactory::ScopedSpeechEngineFactory(SpeechEngineFactory factory) {
    std::lock_guard lock(defaultFactory().mutex);
    _previous = std::exchange(defaultFactory().override, std::move(factory));
}

ScopedSpeechEngineFactory::~ScopedSpeechEngineFactory() {
    std::lock_guard lock(defaultFactory().mutex);
    defaultFactory().override = std::move(_previous);
}

}  // namespace platform
