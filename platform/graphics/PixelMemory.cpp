#include "platform/graphics/PixelMemory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace platform {
namespace {

void releaseOwner(void* info) {
    // The cleanup hook receives the heap copy of the owner reference made in
    // wrapPixels; dropping it may free the memory.
    std::unique_ptr<std::shared_ptr<const void>> owner(
        static_cast<std::shared_ptr<const void>*>(info));
}

}  // namespace

QImage wrapPixels(const void* data, int width, int height, qsizetype bytesPerRow,
                  QImage::Format format, std::shared_ptr<const void> owner) {
    if (data == nullptr || width <= 0 || height <= 0) {
        return {};
    }
    auto holder = std::make_unique<std::shared_ptr<const void>>(std::move(owner));
    QImage image(static_cast<const uchar*>(data), width, height, bytesPerRow, format, releaseOwner,
                 holder.get());
    if (image.isNull()) {
        return {};
    }
    holder.release();
    return image;
}

std::shared_ptr<unsigned char> allocatePixels(std::size_t bytes) {
    // Frames and stills are megabytes each and are freed on other threads than
    // the ones that made them. From the heap, such blocks stay with the
    // allocator's per-thread arenas after they are freed, so a process that
    // makes and drops cameras grows without bound; mapped directly, they go
    // back to the system when the last user lets go. Mapped memory is zeroed
    // and page-aligned.
    constexpr std::size_t kMapFrom = 1 << 20;
    if (bytes >= kMapFrom) {
        void* mapped =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) {
            throw std::bad_alloc();
        }
        return {static_cast<unsigned char*>(mapped),
                [bytes](unsigned char* p) { munmap(p, bytes); }};
    }
    constexpr std::size_t kAlignment = 64;
    const std::size_t rounded = (bytes + kAlignment - 1) / kAlignment * kAlignment;
    void* memory = std::aligned_alloc(kAlignment, rounded == 0 ? kAlignment : rounded);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    std::memset(memory, 0, rounded);
    return {static_cast<unsigned char*>(memory), [](unsigned char* p) { std::free(p); }};
}

}  // namespace platform
