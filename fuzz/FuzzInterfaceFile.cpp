// The interface-file loader: any file either loads or fails the whole load
// with a log line, never a crash.
#include "FuzzSupport.h"

#include "platform/foundation/Bundle.h"
#include "platform/ui/InterfaceLoader.h"

namespace {

// Takes every outlet and has an action of every name.
class AnyOwner : public platform::InterfaceOwner {
public:
    bool setOutlet(const QString&, const platform::ViewPtr&) override { return true; }
    bool setConstraintOutlet(const QString&, const platform::LayoutConstraintPtr&) override {
        return true;
    }
    platform::GestureRecognizer::Action actionNamed(const QString&) override {
        return [](platform::GestureRecognizer&) {};
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::initialize();
    fuzz::writeScratch(QStringLiteral("interface/Fuzzed.json"), data, size);
    const auto bundle =
        std::make_shared<platform::Bundle>(fuzz::scratchFolder() + QStringLiteral("/interface"));
    AnyOwner owner;
    (void)platform::InterfaceLoader::load(QStringLiteral("Fuzzed"), bundle, &owner);
    (void)platform::InterfaceLoader::load(QStringLiteral("Fuzzed"), bundle, nullptr);
    return 0;
}
