// The visual-format parser: any text either parses or throws its one error
// type, VisualFormatError (a LayoutError).
#include "FuzzSupport.h"

#include "platform/layout/LayoutError.h"
#include "platform/layout/VisualFormat.h"

#include <QVariantMap>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::initialize();
    if (size == 0) {
        return 0;
    }
    // The first byte picks the alignment options, the rest is the format.
    const unsigned options = data[0];
    const QString format = QString::fromUtf8(reinterpret_cast<const char*>(data + 1),
                                             static_cast<qsizetype>(size - 1));
    static const QVariantMap metrics{{QStringLiteral("m"), 12}, {QStringLiteral("side"), -4.5}};
    static const QStringList views{QStringLiteral("a"), QStringLiteral("b"),
                                   QStringLiteral("shutter"), QStringLiteral("_c")};
    try {
        (void)platform::layout::parseVisualFormat(format, options, metrics, views);
    } catch (const platform::layout::LayoutError&) {
    }
    return 0;
}
