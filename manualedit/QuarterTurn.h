#pragma once

#include "platform/graphics/Image.h"

/// The manual edit screen's re-drawing of a turn: image, shown a quarter turn
/// clockwise (or counter-clockwise), drawn upright into a new image of its
/// swapped point size at scale 1. Thread-safe (it uses the calling thread's
/// image context).
platform::ImagePtr drawQuarterTurn(const platform::Image& image, bool clockwise);
