// The string-table reader: any text gives a table (possibly empty), and the
// bundle's look-ups over such a table answer.
#include "FuzzSupport.h"

#include "platform/foundation/Bundle.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::initialize();
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto table = platform::parseStringTable(text);
    for (auto it = table.begin(); it != table.end(); ++it) {
        (void)it.key().size();
    }
    fuzz::writeScratch(QStringLiteral("strings/en.lproj/Localizable.strings"), data, size);
    platform::Bundle bundle(fuzz::scratchFolder() + QStringLiteral("/strings"));
    (void)bundle.localizedString(QStringLiteral("button.cancel"), QString());
    (void)bundle.localizedString(QStringLiteral("button.confirm"), QStringLiteral("Confirm"));
    return 0;
}
