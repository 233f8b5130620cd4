#pragma once

#include "Quad.h"

#include <QImage>

#include <optional>

namespace scanner {

/// A page found in a picture.
struct Detection {
    Quad corners;         ///< in the picture's pixels
    double support = 0;   ///< 0 to 1: how much of the outline lies on strong edges
    double coverage = 0;  ///< the outline's area over the picture's
};

struct DetectorSettings {
    /// The long side of the grey picture the search runs on.
    int workingSize = 320;
    /// Smallest page, as a fraction of the picture's area.
    double minimumCoverage = 0.05;
};

/// Finds the four corners of a document page in a picture.
///
/// The search runs on a grey picture shrunk to about workingSize pixels (a
/// grey picture, such as a 420f frame's luma plane, is shrunk as it is; a
/// colour one is shrunk first and turned grey afterwards). Dark print is
/// closed away so text-heavy pages look plain; edges come from Canny with
/// thresholds that follow the picture's own contrast, so a white page on a
/// pale desk is found as well as one on dark wood. Outlines are proposed from
/// edge contours and, when contours break (blur, a shadow across a side), from
/// straight lines; each proposal is scored by how much of its outline lies on
/// edges that keep one direction of contrast. The winner's sides are then
/// located in the full-resolution picture and fitted as straight lines.
///
/// Stateless: detect may run on several threads at once.
class PageDetector {
public:
    explicit PageDetector(DetectorSettings settings = {});

    /// The page in picture (any format; Format_Grayscale8 and Format_RGB32 /
    /// ARGB32 are read without conversion), or nothing. When prior is given
    /// (an outline where the page is expected), proposals near it are
    /// preferred.
    std::optional<Detection> detect(const QImage& picture,
                                    const std::optional<Quad>& prior = std::nullopt) const;

private:
    DetectorSettings _settings;
};

}  // namespace scanner
