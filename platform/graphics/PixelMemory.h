#pragma once

#include <QImage>

#include <memory>

namespace platform {

/// Wraps pixel memory as an image without copying a byte.
///
/// owner keeps the memory alive: the image (and every copy of it) holds a
/// reference to owner until the last of them is destroyed, so the memory
/// outlives the wrapper exactly as long as somebody still uses the image.
/// The image is read-only: writing to it makes a private copy first.
/// Returns a null image for a null data pointer or a non-positive size.
QImage wrapPixels(const void* data, int width, int height, qsizetype bytesPerRow,
                  QImage::Format format, std::shared_ptr<const void> owner);

/// A block of zeroed pixel memory aligned for vector loads, for contexts that
/// own their pixels. Blocks of a megabyte or more are mapped from the system
/// and given back to it when freed.
std::shared_ptr<unsigned char> allocatePixels(std::size_t bytes);

}  // namespace platform
