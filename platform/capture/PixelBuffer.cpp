#include "platform/capture/PixelBuffer.h"

#include "platform/graphics/PixelMemory.h"

namespace platform {
namespace {

constexpr std::size_t kRowAlignment = 64;

std::size_t alignTo64(std::size_t bytes) {
    return (bytes + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
}

}  // namespace

bool PixelBuffer::isSupportedFormat(std::uint32_t pixelFormat) {
    return pixelFormat == pixel_format::k32BGRA ||
           pixelFormat == pixel_format::k420YpCbCr8BiPlanarFullRange ||
           pixelFormat == pixel_format::k420YpCbCr8BiPlanarVideoRange ||
           pixelFormat == pixel_format::k422YpCbCr8_yuvs;
}

bool PixelBuffer::layout(int width, int height, std::uint32_t format,
                         std::vector<PixelBufferPlane>& planes, std::size_t& dataSize,
                         std::size_t extraBytesPerRow) {
    planes.clear();
    dataSize = 0;
    if (width <= 0 || height <= 0 || !isSupportedFormat(format)) {
        return false;
    }
    const auto w = static_cast<std::size_t>(width);
    const auto h = static_cast<std::size_t>(height);
    const auto alignedRow = [extraBytesPerRow](std::size_t bytes) {
        return alignTo64(bytes) + extraBytesPerRow;
    };
    if (format == pixel_format::k32BGRA) {
        planes.push_back({width, height, alignedRow(w * 4), 0});
    } else if (format == pixel_format::k422YpCbCr8_yuvs) {
        planes.push_back({width, height, alignedRow(w * 2), 0});
    } else {
        if (width % 2 != 0 || height % 2 != 0) {
            return false;
        }
        const std::size_t lumaRow = alignedRow(w);
        planes.push_back({width, height, lumaRow, 0});
        planes.push_back({width / 2, height / 2, alignedRow(w), lumaRow * h});
    }
    const PixelBufferPlane& last = planes.back();
    dataSize = last.offset + last.bytesPerRow * static_cast<std::size_t>(last.height);
    return true;
}

std::shared_ptr<PixelBuffer> PixelBuffer::create(int width, int height, std::uint32_t pixelFormat) {
    std::vector<PixelBufferPlane> planes;
    std::size_t dataSize = 0;
    if (!layout(width, height, pixelFormat, planes, dataSize)) {
        return nullptr;
    }
    auto memory = allocatePixels(dataSize);
    return std::make_shared<PixelBuffer>(Key{}, width, height, pixelFormat, std::move(planes),
                                         dataSize, std::move(memory), Recycler{});
}

std::shared_ptr<PixelBuffer> PixelBuffer::wrapExternal(int width, int height,
                                                       std::uint32_t pixelFormat,
                                                       const std::vector<ExternalPlane>& planes,
                                                       std::shared_ptr<const void> owner) {
    std::vector<PixelBufferPlane> layoutPlanes;
    std::size_t dataSize = 0;
    if (!layout(width, height, pixelFormat, layoutPlanes, dataSize) ||
        planes.size() != layoutPlanes.size()) {
        return nullptr;
    }
    std::vector<unsigned char*> pointers;
    dataSize = 0;
    for (std::size_t i = 0; i < planes.size(); ++i) {
        if (planes[i].data == nullptr) {
            return nullptr;
        }
        layoutPlanes[i].bytesPerRow = planes[i].bytesPerRow;
        layoutPlanes[i].offset = 0;
        dataSize += planes[i].bytesPerRow * static_cast<std::size_t>(layoutPlanes[i].height);
        pointers.push_back(planes[i].data);
    }
    auto buffer = std::make_shared<PixelBuffer>(
        Key{}, width, height, pixelFormat, std::move(layoutPlanes), dataSize, nullptr, Recycler{});
    buffer->_externalPlanes = std::move(pointers);
    buffer->_externalOwner = std::move(owner);
    return buffer;
}

PixelBuffer::PixelBuffer(Key, int width, int height, std::uint32_t format,
                         std::vector<PixelBufferPlane> planes, std::size_t dataSize,
                         std::shared_ptr<unsigned char> memory, Recycler recycler)
    : _width(width),
      _height(height),
      _format(format),
      _planes(std::move(planes)),
      _dataSize(dataSize),
      _memory(std::move(memory)),
      _recycler(std::move(recycler)) {}

PixelBuffer::~PixelBuffer() {
    if (_recycler) {
        _recycler(std::move(_memory));
    }
}

void* PixelBuffer::baseAddressOfPlane(std::size_t plane) const {
    if (!isLocked() || plane >= _planes.size()) {
        return nullptr;
    }
    return planeData(plane);
}

int PixelBuffer::widthOfPlane(std::size_t plane) const {
    return plane < _planes.size() ? _planes[plane].width : 0;
}

int PixelBuffer::heightOfPlane(std::size_t plane) const {
    return plane < _planes.size() ? _planes[plane].height : 0;
}

std::size_t PixelBuffer::bytesPerRowOfPlane(std::size_t plane) const {
    return plane < _planes.size() ? _planes[plane].bytesPerRow : 0;
}

int PixelBuffer::lockBaseAddress(std::uint64_t flags) {
    if ((flags & ~kPixelBufferLockReadOnly) != 0) {
        return cv_return::kInvalidArgument;
    }
    if (_refusesLock.load() || !isIntact()) {
        return cv_return::kError;
    }
    ++_lockCount;
    return cv_return::kSuccess;
}

int PixelBuffer::unlockBaseAddress(std::uint64_t flags) {
    if ((flags & ~kPixelBufferLockReadOnly) != 0) {
        return cv_return::kInvalidArgument;
    }
    int current = _lockCount.load();
    while (current > 0 && !_lockCount.compare_exchange_weak(current, current - 1)) {
    }
    return current > 0 ? cv_return::kSuccess : cv_return::kError;
}

unsigned char* PixelBuffer::planeData(std::size_t plane) const {
    if (plane >= _planes.size()) {
        return nullptr;
    }
    return _externalPlanes.empty() ? _memory.get() + _planes[plane].offset : _externalPlanes[plane];
}

std::shared_ptr<PixelBufferPool> PixelBufferPool::create(const Attributes& attributes) {
    std::vector<PixelBufferPlane> planes;
    std::size_t dataSize = 0;
    if (!PixelBuffer::layout(attributes.width, attributes.height, attributes.pixelFormat, planes,
                             dataSize, attributes.extraBytesPerRow)) {
        return nullptr;
    }
    return std::make_shared<PixelBufferPool>(Key{}, attributes, std::move(planes), dataSize);
}

PixelBufferPool::PixelBufferPool(Key, const Attributes& attributes,
                                 std::vector<PixelBufferPlane> planes, std::size_t dataSize)
    : _attributes(attributes),
      _planes(std::move(planes)),
      _dataSize(dataSize),
      _shelf(std::make_shared<Shelf>()) {
    _shelf->keepFree = attributes.maximumFreeBufferCount;
}

std::shared_ptr<PixelBuffer> PixelBufferPool::createPixelBuffer() {
    std::shared_ptr<unsigned char> memory;
    {
        std::lock_guard lock(_shelf->mutex);
        if (!_shelf->free.empty()) {
            // Most recently returned first: its memory is the warmest.
            memory = std::move(_shelf->free.back());
            _shelf->free.pop_back();
        } else if (_attributes.maximumBufferCount != 0 &&
                   _shelf->allocated >= _attributes.maximumBufferCount) {
            return nullptr;
        } else {
            ++_shelf->allocated;
        }
    }
    if (!memory) {
        memory = allocatePixels(_dataSize);
    }
    std::weak_ptr<Shelf> shelf = _shelf;
    auto recycler = [shelf](std::shared_ptr<unsigned char> block) {
        if (auto alive = shelf.lock()) {
            std::lock_guard lock(alive->mutex);
            if (alive->keepFree == 0 || alive->free.size() < alive->keepFree) {
                alive->free.push_back(std::move(block));
                return;
            }
            --alive->allocated;
        }
        // Beyond what the pool keeps: the memory goes back to the system
        // here, outside the lock.
    };
    return std::make_shared<PixelBuffer>(PixelBuffer::Key{}, _attributes.width, _attributes.height,
                                         _attributes.pixelFormat, _planes, _dataSize,
                                         std::move(memory), std::move(recycler));
}

std::size_t PixelBufferPool::allocatedBufferCount() const {
    std::lock_guard lock(_shelf->mutex);
    return _shelf->allocated;
}

std::size_t PixelBufferPool::freeBufferCount() const {
    std::lock_guard lock(_shelf->mutex);
    return _shelf->free.size();
}

}  // namespace platform
