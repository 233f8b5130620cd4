#pragma once

#include <QString>

namespace platform {
class Bundle;
}

namespace support {

/// What is wrong with the framework bundle that was found (null: none was),
/// in words for the person running the host; empty when it looks whole: a
/// readable folder with an information dictionary, images and string tables.
QString bundleProblem(const platform::Bundle* bundle);

}  // namespace support
