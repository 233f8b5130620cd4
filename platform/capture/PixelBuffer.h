#pragma once

#include "platform/capture/CaptureTypes.h"

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

/// Where one plane lies in a buffer's memory.
struct PixelBufferPlane {
    int width = 0;   ///< in pixels (chroma planes: in sample pairs)
    int height = 0;  ///< in rows
    std::size_t bytesPerRow = 0;
    std::size_t offset = 0;  ///< from the start of the memory
};

/// A frame's pixels: BGRA (one plane, 4 bytes a pixel), 420f and 420v (bi-planar:
/// a luma plane of one byte a pixel and an interleaved CbCr plane at half size
/// in both directions) or 'yuvs' (one plane, 2 bytes a pixel).
///
/// Consumers read the memory only between lockBaseAddress and
/// unlockBaseAddress: outside a lock the base addresses are null. Locks are
/// counted and thread-safe; a lock can fail (then the addresses stay null).
/// The geometry is immutable and may be read from any thread.
///
/// Images that wrap the memory (platform::wrapPixels) pass owner() so the
/// memory lives as long as they do. A pooled buffer's memory goes back to its
/// pool when the buffer and every owner handle are gone; the memory stays at
/// the same address while anybody holds either.
class PixelBuffer : public std::enable_shared_from_this<PixelBuffer> {
    struct Key {};

public:
    /// A buffer with memory of its own (not pooled); null for an unsupported
    /// format or a non-positive size. Bi-planar sizes must be even.
    static std::shared_ptr<PixelBuffer> create(int width, int height, std::uint32_t pixelFormat);
    static bool isSupportedFormat(std::uint32_t pixelFormat);

    /// Memory of someone else's, for wrapExternal.
    struct ExternalPlane {
        unsigned char* data = nullptr;
        std::size_t bytesPerRow = 0;
    };
    /// A buffer over memory it does not own (a mapped camera frame), without
    /// copying: planes in the format's order (one for BGRA and 'yuvs', luma
    /// then CbCr for bi-planar), kept alive and valid by owner for as long as
    /// the buffer or any of its owner() handles lives. null for an unsupported
    /// format or size, a wrong plane count or a null plane.
    static std::shared_ptr<PixelBuffer> wrapExternal(int width, int height,
                                                     std::uint32_t pixelFormat,
                                                     const std::vector<ExternalPlane>& planes,
                                                     std::shared_ptr<const void> owner);

    ~PixelBuffer();
    PixelBuffer(const PixelBuffer&) = delete;
    PixelBuffer& operator=(const PixelBuffer&) = delete;

    int width() const { return _width; }
    int height() const { return _height; }
    std::uint32_t pixelFormatType() const { return _format; }
    bool isPlanar() const { return _planes.size() > 1; }
    /// Planes of a planar buffer; 0 for a packed one, as on the platform.
    std::size_t planeCount() const { return isPlanar() ? _planes.size() : 0; }
    std::size_t dataSize() const { return _dataSize; }

    /// The start of the pixels (plane 0 of a planar buffer); null unless locked.
    void* baseAddress() const { return baseAddressOfPlane(0); }
    /// Row length of a packed buffer (plane 0 of a planar one).
    std::size_t bytesPerRow() const { return _planes[0].bytesPerRow; }
    /// null unless locked or for a plane that does not exist.
    void* baseAddressOfPlane(std::size_t plane) const;
    int widthOfPlane(std::size_t plane) const;
    int heightOfPlane(std::size_t plane) const;
    std::size_t bytesPerRowOfPlane(std::size_t plane) const;

    /// cv_return::kSuccess, or kError when the buffer refuses to be mapped.
    int lockBaseAddress(std::uint64_t flags);
    /// kSuccess, or kError when the buffer was not locked.
    int unlockBaseAddress(std::uint64_t flags);
    bool isLocked() const { return _lockCount.load() > 0; }

    /// A handle that keeps the memory (and this buffer) alive.
    std::shared_ptr<const void> owner() const { return shared_from_this(); }

    // --- For the producer, before the buffer is handed on ------------------

    /// The writable memory of a plane (0 for a packed buffer), lock or not.
    unsigned char* planeData(std::size_t plane) const;
    const PixelBufferPlane& plane(std::size_t index) const { return _planes[index]; }
    /// Makes every later lockBaseAddress fail, as a buffer that cannot be mapped.
    void setRefusesLock(bool refuses) { _refusesLock = refuses; }
    /// Declares that only the first bytes of the memory hold pixels (a
    /// transfer cut short). A buffer whose valid bytes end before its last
    /// row is corrupt: lockBaseAddress fails, so nobody reads past the end.
    void setValidByteCount(std::size_t bytes) { _validBytes = bytes; }
    /// Whether the memory covers every row of every plane.
    bool isIntact() const { return _validBytes.load() >= _dataSize; }

    /// Recycles memory into the pool that made it; used by PixelBufferPool.
    using Recycler = std::function<void(std::shared_ptr<unsigned char>)>;
    PixelBuffer(Key, int width, int height, std::uint32_t format,
                std::vector<PixelBufferPlane> planes, std::size_t dataSize,
                std::shared_ptr<unsigned char> memory, Recycler recycler);

    /// The planes and total size of a buffer, or false for an unsupported
    /// format or size. Rows are aligned to 64 bytes, then extraBytesPerRow
    /// are added to each (a producer whose rows are longer than its pixels).
    static bool layout(int width, int height, std::uint32_t format,
                       std::vector<PixelBufferPlane>& planes, std::size_t& dataSize,
                       std::size_t extraBytesPerRow = 0);

private:
    friend class PixelBufferPool;

    int _width;
    int _height;
    std::uint32_t _format;
    std::vector<PixelBufferPlane> _planes;
    std::size_t _dataSize;
    std::shared_ptr<unsigned char> _memory;
    Recycler _recycler;
    std::vector<unsigned char*> _externalPlanes;  ///< wrapExternal: where each plane lies
    std::shared_ptr<const void> _externalOwner;
    std::atomic<int> _lockCount{0};
    std::atomic<bool> _refusesLock{false};
    std::atomic<std::size_t> _validBytes{SIZE_MAX};
};

/// Reusable pixel buffers of one size and format.
///
/// createPixelBuffer hands out a buffer over free memory when the pool has
/// some and allocates otherwise, so a steady stream allocates no pixel memory
/// once its buffers circulate. Memory returns to the pool when its last user
/// lets go; the pool may be destroyed while buffers are out (their memory is
/// then simply freed). Thread-safe.
class PixelBufferPool {
    struct Key {};

public:
    struct Attributes {
        int width = 0;
        int height = 0;
        std::uint32_t pixelFormat = pixel_format::k32BGRA;
        /// Buffers out at once at most; 0: no limit.
        std::size_t maximumBufferCount = 0;
        /// Returned memory kept for reuse at most; what comes back beyond it
        /// is freed, so a burst of buffers does not stay allocated. 0: keep all.
        std::size_t maximumFreeBufferCount = 0;
        /// Padding at the end of every row (see PixelBuffer::layout).
        std::size_t extraBytesPerRow = 0;
    };

    /// null for an unsupported format or size.
    static std::shared_ptr<PixelBufferPool> create(const Attributes& attributes);

    const Attributes& attributes() const { return _attributes; }

    /// A buffer, or null when maximumBufferCount buffers are out.
    std::shared_ptr<PixelBuffer> createPixelBuffer();

    /// Memory blocks alive (out or free).
    std::size_t allocatedBufferCount() const;
    /// Memory blocks waiting to be reused.
    std::size_t freeBufferCount() const;

    PixelBufferPool(Key, const Attributes& attributes, std::vector<PixelBufferPlane> planes,
                    std::size_t dataSize);

private:
    struct Shelf {
        std::mutex mutex;
        std::vector<std::shared_ptr<unsigned char>> free;
        std::size_t allocated = 0;  ///< blocks alive, out or free
        std::size_t keepFree = 0;
    };

    Attributes _attributes;
    std::vector<PixelBufferPlane> _planes;
    std::size_t _dataSize;
    std::shared_ptr<Shelf> _shelf;
};

}  // namespace platform
