#pragma once

#include <QFont>
#include <QString>

namespace platform {

/// The font a platform font name names at size points, such as
/// "HelveticaNeue-Light" or "HelveticaNeue-THIN": the family part is matched
/// against the installed families ignoring spaces and case ("HelveticaNeue"
/// finds "Helvetica Neue"), and the style part (case-insensitive: Thin,
/// UltraLight, Light, Regular, Medium, Semibold, Bold, Heavy, Black, with
/// an optional Italic) sets weight and slant. The platform's families that
/// are not installed ("HelveticaNeue", the system font) are drawn with an
/// installed face of close widths and the same weights (Roboto); any other
/// family that is not installed falls back to the system font's face with
/// the same weight, so text keeps its intended lightness. Sizes are points
/// of the view coordinates (pixel sizes of Qt), rounded to whole points.
QFont fontWithName(const QString& name, double size);

/// The system font (regular weight) at size points: Roboto where it is
/// installed, else the default sans-serif face.
QFont systemFont(double size);

/// The bold system font at size points.
QFont boldSystemFont(double size);

}  // namespace platform
