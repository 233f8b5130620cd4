// The information-dictionary reader: any Info.json gives a dictionary
// (empty for one that does not parse), and the keys the framework reads are
// read safely whatever their kind.
#include "FuzzSupport.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Value.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::initialize();
    fuzz::writeScratch(QStringLiteral("info/Info.json"), data, size);
    platform::Bundle bundle(fuzz::scratchFolder() + QStringLiteral("/info"));
    (void)platform::value::boolValue(
        bundle.objectForInfoDictionaryKey(QStringLiteral("QXDCameraControllerLoggingEnabled")));
    (void)bundle.objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
        .toString();
    (void)bundle.objectForInfoDictionaryKey(QStringLiteral("UISupportedInterfaceOrientations"))
        .toStringList();
    (void)bundle.preferredLocalization();
    return 0;
}
