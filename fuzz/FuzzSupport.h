#pragma once

// Shared set-up of the fuzz targets: an offscreen Qt application, a manual
// main run loop on the fuzzing thread, and a scratch folder for inputs that
// are read from files.

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

namespace fuzz {

/// Once per process: the Qt application and the run loop.
void initialize();
/// A folder of the process's own, made on first use and kept.
const QString& scratchFolder();
/// Writes data to name in the scratch folder (replacing it); its path.
QString writeScratch(const QString& name, const std::uint8_t* data, std::size_t size);

}  // namespace fuzz
