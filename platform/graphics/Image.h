#pragma once

#include <QImage>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QTransform>

#include <memory>

class QPainter;

namespace platform {

class Bundle;

/// How the stored pixels are turned for display, with the platform's
/// numbering.
enum class ImageOrientation {
    Up = 0,             ///< as stored
    Down = 1,           ///< turned 180°
    Left = 2,           ///< turned 90° counter-clockwise
    Right = 3,          ///< turned 90° clockwise
    UpMirrored = 4,     ///< flipped left to right
    DownMirrored = 5,   ///< flipped top to bottom
    LeftMirrored = 6,   ///< flipped left to right, then turned 90° counter-clockwise
    RightMirrored = 7,  ///< flipped left to right, then turned 90° clockwise
};

/// True for the orientations that swap width and height.
bool swapsAxes(ImageOrientation orientation);

/// The transform from stored pixel coordinates to displayed pixel
/// coordinates for an image of the given stored size.
QTransform orientationTransform(ImageOrientation orientation, const QSize& storedSize);

/// The pixels of image as displayed with orientation, at the same resolution.
/// Quarter turns and flips of 32-bit images are done as tiled copies, with no
/// resampling; other formats go through a 32-bit conversion first.
QImage applyOrientation(const QImage& image, ImageOrientation orientation);

/// An immutable picture: pixels, the scale of those pixels (pixels a point)
/// and an orientation, like the platform's image objects. Thread-safe.
class Image {
public:
    /// Null for a null image or a non-positive scale.
    static std::shared_ptr<Image> withCGImage(const QImage& image, double scale = 1.0,
                                              ImageOrientation orientation = ImageOrientation::Up);
    /// The bundle's image called name, at the best variant for screenScale;
    /// null when the bundle is null, the name unknown or the file unreadable.
    static std::shared_ptr<Image> named(const QString& name, const std::shared_ptr<Bundle>& bundle,
                                        double screenScale = 1.0);
    /// Null when the file cannot be read; a "@2x"/"@3x" suffix sets the scale.
    static std::shared_ptr<Image> withContentsOfFile(const QString& path);

    Image(QImage image, double scale, ImageOrientation orientation);

    const QImage& cgImage() const { return _image; }
    double scale() const { return _scale; }
    ImageOrientation imageOrientation() const { return _orientation; }

    /// The displayed size in points: pixel size over scale, width and height
    /// swapped for the quarter-turn orientations.
    QSizeF size() const;

    /// Draws the image, turned by its orientation, to fill rect. When rect
    /// maps pixel for pixel onto a 32-bit image the painter draws into, with
    /// no clipping, the turn is copied straight into the target's memory.
    void drawInRect(QPainter& painter, const QRectF& rect) const;
    /// Draws at its size with its top left corner at point.
    void drawAtPoint(QPainter& painter, const QPointF& point) const;

private:
    // The pixel-for-pixel case of drawInRect; false when it does not apply.
    bool drawDirect(QPainter& painter, const QRectF& rect) const;

    QImage _image;
    double _scale;
    ImageOrientation _orientation;
};

using ImagePtr = std::shared_ptr<const Image>;

}  // namespace platform
