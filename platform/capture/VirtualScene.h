#pragma once

#include "platform/capture/CaptureDeviceDriver.h"
#include "platform/capture/PixelBuffer.h"

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QPolygonF>
#include <QSize>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <vector>

/// What the virtual camera sees, and how it turns that into frames cheaply:
/// a scene is rendered once per frame layout and look (lighting, focus) into
/// the frame's own pixel layout with a margin around it, and each frame is
/// then a shifted window of it (hand motion) plus noise from a table.
namespace platform::virtual_scene {

/// The desk under the page: wood grain, speckled grey, or a near-white
/// board as pale as the page itself.
enum class Desk { Wood, Grey, White };

/// How a document scene looks: the knobs that make detection hard. The
/// defaults give a well-lit A4 page in slight perspective on the desk.
struct SceneKnobs {
    QColor deskColor;            ///< invalid: the desk's own colour
    double deskTexture = 1.0;    ///< 0 (plain) to 1 (the desk's full grain or speckle)
    double lightGradient = 1.0;  ///< 0 (even light) to 3: fall-off from the top left
    double shadow = 0.0;         ///< 0 (none) to 1: a soft shadow over one side
    bool page = true;            ///< false: the desk alone
    double scale = 1.0;          ///< page width over about 0.72 of the picture's width
    double rotation = 0.0;       ///< page turned on the desk, degrees clockwise
    double tilt = 0.06;     ///< perspective: the top edge is this much narrower (<0: the bottom)
    QPointF offset;         ///< page centre moved by these fractions of the picture
    double blur = 0.0;      ///< out of focus: blur radius over the picture's short side
    double sharpTop = 0.0;  ///< fraction of the picture from the top that stays sharp
    bool operator==(const SceneKnobs&) const = default;
};

/// A picture source, upright (as a phone held in portrait sees it).
/// Immutable, so it may be used from any thread.
class Source {
public:
    virtual ~Source() = default;
    /// Pictures to cycle through (a folder's images); 1 otherwise.
    virtual int pictureCount() const { return 1; }
    /// Picture index filling size (cropped to fill), as Format_RGB32.
    virtual QImage render(const QSize& size, int index) const = 0;
    /// Where the page's corners lie in render(size, index): top left, top
    /// right, bottom right, bottom left of the page as printed, in pixel
    /// coordinates (a pixel covers [x, x + 1)). Empty when no page shows.
    virtual QPolygonF pageCorners(const QSize& /*size*/, int /*index*/) const { return {}; }
};

/// A printed page (title bar, lines of dark text blocks) on a desk, seen in
/// slight perspective; the layout follows from seed.
std::shared_ptr<const Source> makeDocumentSource(std::uint64_t seed, Desk desk,
                                                 const SceneKnobs& knobs = {});
std::shared_ptr<const Source> makeImageSource(const QImage& image);
/// The folder's images (png, jpg, jpeg, bmp) in name order; a picture that
/// does not load is dark grey.
std::shared_ptr<const Source> makeFolderSource(const QString& folder);

/// The scene's look at one moment.
struct Look {
    int lightingStep = 0;  ///< 0 (ambient) to 4 (torch at full level)
    bool focused = true;   ///< false: blurred
    int picture = 0;
    bool operator==(const Look&) const = default;
};

/// One source prepared for one frame layout and look. Immutable; renderFrame
/// may run on several threads at once.
class PreparedScene {
    struct Key {};

public:
    /// canvas is the source rendered upright at canvasSize(layout).
    /// layout.pixelFormat may be any PixelBuffer format; 'yuvs' frames are
    /// flat grey (it only serves as the unsupported format).
    static std::shared_ptr<const PreparedScene> prepare(const QImage& canvas,
                                                        const FrameLayout& layout, const Look& look,
                                                        std::uint64_t seed, int noiseAmplitude);

    const FrameLayout& layout() const { return _layout; }
    const Look& look() const { return _look; }
    /// Pixels of slack on every side; shifts must stay within it.
    int margin() const { return _margin; }

    /// Writes one frame into buffer (of the layout's size and format): the
    /// window shifted by (dx, dy) (even numbers within the margin) with the
    /// noise picked by frameSeed.
    void renderFrame(PixelBuffer& buffer, int dx, int dy, std::uint64_t frameSeed) const;

    struct Plane {
        std::vector<std::uint8_t> pixels;
        std::size_t bytesPerRow = 0;
    };
    PreparedScene(Key, const FrameLayout& layout, const Look& look, int margin);

private:
    const std::int8_t* noiseRow(std::uint64_t frameSeed, int row) const;

    FrameLayout _layout;
    Look _look;
    int _margin;
    int _bytesPerPixel = 4;
    std::vector<Plane> _planes;
    std::vector<std::int8_t> _noise;  ///< empty: no noise
};

/// The even margin for frames of size: room for slight hand motion.
int marginFor(const QSize& frameSize);
/// The window of the oriented canvas a frame shifted by (dx, dy) shows: its
/// top left corner (PreparedScene::renderFrame's arithmetic).
QPoint frameOrigin(const QSize& frameSize, int dx, int dy);
/// Points of the upright canvas (canvasSize(layout)) in the pixels of a
/// frame of layout shifted by (dx, dy).
QPolygonF canvasToFrame(const QPolygonF& canvasPoints, const FrameLayout& layout, int dx, int dy);
/// What a source renders for layout: the upright frame with its margins.
QSize canvasSize(const FrameLayout& layout);

}  // namespace platform::virtual_scene
