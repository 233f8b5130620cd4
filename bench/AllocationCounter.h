#pragma once

#include <cstddef>
#include <cstdint>

/// Counts heap blocks large enough to hold pixels (a 256 x 256 grey picture
/// or more) while counting is on, whoever asks for them: Qt's images, our
/// contexts, the standard library. The benchmark program routes the C
/// allocation functions through here; everything else behaves as usual.
namespace bench::allocations {

inline constexpr std::size_t kPixelSized = 256 * 256;

/// Starts counting from zero on every thread.
void start();
/// Stops counting and returns the number of pixel-sized blocks allocated
/// since start().
std::uint64_t stop();

}  // namespace bench::allocations
