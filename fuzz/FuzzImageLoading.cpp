// Image loading as the examples do it: an image file of any content, read
// with the same allocation limit as the manual edit example, and turned a
// quarter if it loads.
#include "FuzzSupport.h"

#include "platform/graphics/Image.h"

#include <QImageReader>
#include <QTransform>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::initialize();
    // Kept well under the fuzzer's memory limit; the example allows 1 GB.
    QImageReader::setAllocationLimit(256);
    const QString path = fuzz::writeScratch(QStringLiteral("image/photo"), data, size);
    QImageReader reader(path);
    (void)reader.size();
    const auto image = platform::Image::withContentsOfFile(path);
    if (image && image->cgImage().width() * image->cgImage().height() <= 4000000) {
        (void)image->cgImage().transformed(QTransform().rotate(90));
        (void)image->size();
    }
    return 0;
}
