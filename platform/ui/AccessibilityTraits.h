#pragma once

namespace platform {

/// Accessibility trait bits of views, with the platform's values. A view
/// with no traits set takes those of its kind: controls are buttons, image
/// views images, labels static text.
namespace accessibility_traits {
inline constexpr unsigned kNone = 0;
inline constexpr unsigned kButton = 1u << 0;
inline constexpr unsigned kLink = 1u << 1;
inline constexpr unsigned kImage = 1u << 2;
inline constexpr unsigned kSelected = 1u << 3;
inline constexpr unsigned kStaticText = 1u << 6;
inline constexpr unsigned kNotEnabled = 1u << 8;
inline constexpr unsigned kUpdatesFrequently = 1u << 9;
inline constexpr unsigned kAdjustable = 1u << 12;
inline constexpr unsigned kHeader = 1u << 16;
}  // namespace accessibility_traits

}  // namespace platform
