// Interposes the C allocation functions of the benchmark program (the
// executable's definitions win over the C library's for every shared object
// too) and forwards them to the C library's own entry points, counting the
// pixel-sized ones while asked to.
#include "AllocationCounter.h"

#include <atomic>
#include <cerrno>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

std::atomic<bool> counting{false};
std::atomic<std::uint64_t> pixelSized{0};

// Out of line, so a debugger can stop on each counted block.
[[gnu::noinline]] void countPixelSized() {
    pixelSized.fetch_add(1, std::memory_order_relaxed);
}

inline void note(std::size_t size) {
    if (size >= bench::allocations::kPixelSized && counting.load(std::memory_order_relaxed)) {
        countPixelSized();
    }
}

}  // namespace

namespace bench::allocations {

void start() {
    pixelSized.store(0);
    counting.store(true);
}

std::uint64_t stop() {
    counting.store(false);
    return pixelSized.load();
}

}  // namespace bench::allocations

extern "C" {

void* malloc(std::size_t size) noexcept {
    note(size);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    note(count * size);
    return __libc_calloc(count, size);
}

void* realloc(void* pointer, std::size_t size) noexcept {
    note(size);
    return __libc_realloc(pointer, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    note(size);
    return __libc_memalign(alignment, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    note(size);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept {
    if (alignment % sizeof(void*) != 0 || (alignment & (alignment - 1)) != 0) {
        return EINVAL;
    }
    note(size);
    void* memory = __libc_memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *out = memory;
    return 0;
}

}  // extern "C"
