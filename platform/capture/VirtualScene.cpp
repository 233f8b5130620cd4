#include "platform/capture/VirtualScene.h"

#include "platform/capture/VideoGeometry.h"

#include <QDir>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>
#include <QTransform>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>

namespace platform::virtual_scene {
namespace {

// Noise is added without clamping, so prepared values keep this much room
// from 0 and 255.
constexpr int kHeadroom = 8;
// Rows pick their noise from this many starting points in the table.
constexpr int kNoiseSpan = 1021;

std::uint64_t mix(std::uint64_t value) {
    // splitmix64 finaliser: a cheap, well-spread hash.
    value += 0x9E3779B97F4A7C15ULL;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

QImage filled(const QSize& size, const QColor& color) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    return image;
}

/// Draws image into a canvas of size, scaled to fill it and centred.
QImage aspectFill(const QImage& image, const QSize& size) {
    if (image.isNull()) {
        return filled(size, QColor(48, 48, 48));
    }
    QImage canvas(size, QImage::Format_RGB32);
    const double scale =
        std::max(double(size.width()) / image.width(), double(size.height()) / image.height());
    const QSizeF shown = QSizeF(image.size()) * scale;
    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF((size.width() - shown.width()) / 2,
                             (size.height() - shown.height()) / 2, shown.width(), shown.height()),
                      image);
    return canvas;
}

// A4: height over width.
constexpr double kPageAspect = 1414.0 / 1000.0;

QImage blurredBy(const QImage& image, double radius) {
    // Shrink and grow back smoothly: about a box blur of the shrink factor.
    const double factor = std::max(1.0, radius);
    const QSize small(std::max(1, int(image.width() / factor)),
                      std::max(1, int(image.height() / factor)));
    return image.scaled(small, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .scaled(image.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGB32);
}

/// sharp above sharpTop of the height, blurred below, with a soft seam.
QImage partlyBlurred(const QImage& sharp, const QImage& blurred, double sharpTop) {
    QImage out = blurred;
    const int height = sharp.height();
    const double seam = 0.08 * height;
    const double start = sharpTop * height;
    for (int y = 0; y < height; ++y) {
        const double weight = std::clamp((y - start) / seam, 0.0, 1.0);  // 1: blurred
        if (weight >= 1.0) {
            continue;
        }
        const auto* a = reinterpret_cast<const QRgb*>(sharp.constScanLine(y));
        auto* b = reinterpret_cast<QRgb*>(out.scanLine(y));
        const int w = static_cast<int>(std::lround(weight * 256));
        for (int x = 0; x < sharp.width(); ++x) {
            const auto mixChannel = [&](int shift) {
                const int ca = (a[x] >> shift) & 0xFF;
                const int cb = (b[x] >> shift) & 0xFF;
                return ((ca * (256 - w) + cb * w) >> 8) << shift;
            };
            b[x] = 0xFF000000u | mixChannel(16) | mixChannel(8) | mixChannel(0);
        }
    }
    return out;
}

class DocumentSource final : public Source {
public:
    DocumentSource(std::uint64_t seed, Desk desk, const SceneKnobs& knobs)
        : _seed(seed), _desk(desk), _knobs(knobs) {}

    QImage render(const QSize& size, int /*index*/) const override {
        QImage canvas(size, QImage::Format_RGB32);
        {
            QPainter painter(&canvas);
            painter.setRenderHint(QPainter::Antialiasing);
            std::mt19937_64 random(_seed);
            paintDesk(painter, size, random);
            if (_knobs.page) {
                paintPage(painter, pageCorners(size, 0), random);
            }
            paintLight(painter, size);
        }
        if (_knobs.blur > 0) {
            const double radius = _knobs.blur * std::min(size.width(), size.height());
            const QImage soft = blurredBy(canvas, radius);
            canvas = _knobs.sharpTop > 0 ? partlyBlurred(canvas, soft, _knobs.sharpTop) : soft;
        }
        return canvas;
    }

    QPolygonF pageCorners(const QSize& size, int /*index*/) const override {
        if (!_knobs.page || size.isEmpty()) {
            return {};
        }
        // The page's placement has a random stream of its own, so that it
        // does not depend on how much the desk drew.
        std::mt19937_64 random(mix(_seed ^ 0x70616765ULL));
        std::uniform_real_distribution<double> jitter(-0.008, 0.008);
        const double w = size.width();
        const double h = size.height();
        double pageWidth = 0.72 * w * _knobs.scale;
        double pageHeight = pageWidth * kPageAspect;
        if (pageHeight > 0.86 * h * _knobs.scale) {
            pageHeight = 0.86 * h * _knobs.scale;
            pageWidth = pageHeight / kPageAspect;
        }
        const double tilt = std::clamp(_knobs.tilt, -0.6, 0.6);
        const double top = pageWidth * (1 - tilt / 2);
        const double bottom = pageWidth * (1 + tilt / 2);
        QPolygonF corners({QPointF(-top / 2, -pageHeight / 2), QPointF(top / 2, -pageHeight / 2),
                           QPointF(bottom / 2, pageHeight / 2),
                           QPointF(-bottom / 2, pageHeight / 2)});
        for (QPointF& corner : corners) {
            corner += QPointF(jitter(random) * w, jitter(random) * w);
        }
        const QPointF centre((0.5 + _knobs.offset.x() + jitter(random)) * w,
                             (0.5 + _knobs.offset.y() + jitter(random)) * h);
        return QTransform().translate(centre.x(), centre.y()).rotate(_knobs.rotation).map(corners);
    }

private:
    QColor deskColor() const {
        if (_knobs.deskColor.isValid()) {
            return _knobs.deskColor;
        }
        switch (_desk) {
            case Desk::Wood:
                return {138, 96, 60};
            case Desk::Grey:
                return {112, 112, 116};
            case Desk::White:
                return {226, 226, 221};
        }
        return {112, 112, 116};
    }

    void paintDesk(QPainter& painter, const QSize& size, std::mt19937_64& random) const {
        const double w = size.width();
        const double h = size.height();
        const double texture = std::clamp(_knobs.deskTexture, 0.0, 1.0);
        const QColor base = deskColor();
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        painter.fillRect(QRectF(0, 0, w, h), base);
        const auto shaded = [&](int shade, int alpha) {
            return QColor(std::clamp(base.red() + shade, 0, 255),
                          std::clamp(base.green() + shade, 0, 255),
                          std::clamp(base.blue() + shade, 0, 255), alpha);
        };
        if (_desk == Desk::Wood) {
            // Grain: long wavy lines, a little darker or lighter than the board.
            for (int line = 0; line < 70; ++line) {
                const double y0 = unit(random) * h;
                const double wave = (0.004 + 0.01 * unit(random)) * h;
                const double phase = unit(random) * 6.28;
                const int shade = static_cast<int>(unit(random) * 50) - 25;
                QPainterPath path(QPointF(0, y0));
                for (int step = 1; step <= 24; ++step) {
                    const double x = w * step / 24.0;
                    path.lineTo(x, y0 + wave * std::sin(phase + step * 0.6));
                }
                painter.setPen(QPen(shaded(shade, int(110 * texture)),
                                    std::max(1.0, w / 400 * (1 + 2 * unit(random)))));
                painter.drawPath(path);
            }
        } else {
            // Speckle; a pale board has fainter specks.
            const int spread = _desk == Desk::White ? 10 : 24;
            painter.setPen(Qt::NoPen);
            for (int dot = 0; dot < 600; ++dot) {
                const int shade = static_cast<int>(unit(random) * spread) - spread / 2;
                painter.setBrush(shaded(shade, int(255 * texture)));
                const double r = std::max(1.0, w / 700);
                painter.drawEllipse(QPointF(unit(random) * w, unit(random) * h), r, r);
            }
        }
    }

    void paintPage(QPainter& painter, const QPolygonF& quad, std::mt19937_64& random) const {
        const QSizeF size(painter.device()->width(), painter.device()->height());
        painter.setPen(Qt::NoPen);
        for (int layer = 3; layer >= 1; --layer) {
            painter.setBrush(QColor(0, 0, 0, 28));
            painter.drawPolygon(
                quad.translated(size.width() * 0.004 * layer, size.height() * 0.003 * layer));
        }

        // Page units: an A4 sheet 1000 wide.
        const QRectF page(0, 0, 1000, 1000 * kPageAspect);
        QTransform toQuad;
        const QPolygonF corners(
            {page.topLeft(), page.topRight(), page.bottomRight(), page.bottomLeft()});
        if (!QTransform::quadToQuad(corners, quad, toQuad)) {
            return;
        }
        painter.save();
        painter.setTransform(toQuad, true);
        painter.fillRect(page, QColor(246, 245, 240));
        painter.fillRect(QRectF(70, 70, 860, 90), QColor(38, 50, 78));
        painter.fillRect(QRectF(70, 185, 420, 22), QColor(90, 90, 96));

        std::uniform_real_distribution<double> wordWidth(28, 130);
        std::uniform_int_distribution<int> paragraphLines(3, 7);
        const QColor ink(44, 44, 48);
        double y = 250;
        while (y < 1330) {
            const int lines = paragraphLines(random);
            for (int line = 0; line < lines && y < 1330; ++line) {
                const double right = line + 1 == lines ? 500 + wordWidth(random) * 2 : 930;
                for (double x = 70;;) {
                    const double width = wordWidth(random);
                    if (x + width > right) {
                        break;
                    }
                    painter.fillRect(QRectF(x, y, width, 15), ink);
                    x += width + 13;
                }
                y += 30;
            }
            y += 26;
        }
        painter.restore();
    }

    void paintLight(QPainter& painter, const QSize& size) const {
        const double w = size.width();
        const double h = size.height();
        // Light falls from the top left.
        const double gradient = std::clamp(_knobs.lightGradient, 0.0, 3.0);
        if (gradient > 0) {
            QLinearGradient light(0, 0, w, h);
            light.setColorAt(0.0, QColor(255, 255, 255, std::min(255, int(40 * gradient))));
            light.setColorAt(1.0, QColor(0, 0, 0, std::min(255, int(60 * gradient))));
            painter.fillRect(QRectF(0, 0, w, h), light);
        }
        // Something between the lamp and the desk darkens the left side, with
        // a soft edge across the page.
        const double shadow = std::clamp(_knobs.shadow, 0.0, 1.0);
        if (shadow > 0) {
            QLinearGradient band(0, 0, w, 0.35 * h);
            const QColor dark(0, 0, 0, int(170 * shadow));
            band.setColorAt(0.0, dark);
            band.setColorAt(0.3, dark);
            band.setColorAt(0.42, QColor(0, 0, 0, 0));
            painter.fillRect(QRectF(0, 0, w, h), band);
        }
    }

    std::uint64_t _seed;
    Desk _desk;
    SceneKnobs _knobs;
};

class ImageSource final : public Source {
public:
    explicit ImageSource(const QImage& image)
        : _image(image.convertToFormat(QImage::Format_RGB32)) {}
    QImage render(const QSize& size, int /*index*/) const override {
        return aspectFill(_image, size);
    }

private:
    QImage _image;
};

class FolderSource final : public Source {
public:
    explicit FolderSource(const QString& folder) {
        const QDir dir(folder);
        for (const QString& name :
             dir.entryList({"*.png", "*.jpg", "*.jpeg", "*.bmp", "*.PNG", "*.JPG", "*.JPEG"},
                           QDir::Files, QDir::Name)) {
            _paths << dir.filePath(name);
        }
    }
    int pictureCount() const override { return std::max<int>(1, int(_paths.size())); }
    QImage render(const QSize& size, int index) const override {
        if (_paths.isEmpty()) {
            return aspectFill(QImage(), size);
        }
        return aspectFill(QImage(_paths.at(index % _paths.size())), size);
    }

private:
    QStringList _paths;
};

/// Brightness for a lighting step, with the headroom the noise needs.
std::array<std::uint8_t, 256> lightingTable(int step, int low, int high) {
    const double gain = 0.9 + 0.08 * step;
    std::array<std::uint8_t, 256> table{};
    for (int v = 0; v < 256; ++v) {
        table[v] = static_cast<std::uint8_t>(std::clamp(int(std::lround(v * gain)), low, high));
    }
    return table;
}

QImage blurred(const QImage& image) {
    // Out of focus, cheaply: shrink and grow back smoothly.
    const QSize small(std::max(1, image.width() / 10), std::max(1, image.height() / 10));
    return image.scaled(small, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .scaled(image.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGB32);
}

void addNoise(std::uint8_t* dst, const std::uint8_t* src, const std::int8_t* noise,
              std::size_t count) {
    // Prepared values keep kHeadroom from both ends, so the sum stays a byte.
    for (std::size_t i = 0; i < count; ++i) {
        dst[i] = static_cast<std::uint8_t>(src[i] + noise[i]);
    }
}

}  // namespace

std::shared_ptr<const Source> makeDocumentSource(std::uint64_t seed, Desk desk,
                                                 const SceneKnobs& knobs) {
    return std::make_shared<DocumentSource>(seed, desk, knobs);
}

std::shared_ptr<const Source> makeImageSource(const QImage& image) {
    return std::make_shared<ImageSource>(image);
}

std::shared_ptr<const Source> makeFolderSource(const QString& folder) {
    return std::make_shared<FolderSource>(folder);
}

int marginFor(const QSize& frameSize) {
    const int shortSide = std::min(frameSize.width(), frameSize.height());
    return std::max(4, shortSide / 80 / 2 * 2);
}

QPoint frameOrigin(const QSize& frameSize, int dx, int dy) {
    const int margin = marginFor(frameSize);
    return {margin + std::clamp(dx, -margin, margin) / 2 * 2,
            margin + std::clamp(dy, -margin, margin) / 2 * 2};
}

QPolygonF canvasToFrame(const QPolygonF& canvasPoints, const FrameLayout& layout, int dx, int dy) {
    const QSize canvas = canvasSize(layout);
    const QTransform turn = QImage::trueMatrix(
        QTransform().rotate(video_geometry::rotationFromUpright(layout.orientation)),
        canvas.width(), canvas.height());
    QPolygonF points = turn.map(canvasPoints);
    const QSize turned = turn.mapRect(QRect(QPoint(0, 0), canvas)).size();
    const QPoint origin = frameOrigin(layout.size(), dx, dy);
    for (QPointF& point : points) {
        if (layout.mirrored) {
            point.setX(turned.width() - point.x());
        }
        point -= origin;
    }
    return points;
}

PreparedScene::PreparedScene(Key, const FrameLayout& layout, const Look& look, int margin)
    : _layout(layout), _look(look), _margin(margin) {}

QSize canvasSize(const FrameLayout& layout) {
    const int margin = marginFor(layout.size());
    return layout.sensorSize.transposed() + QSize(2 * margin, 2 * margin);
}

std::shared_ptr<const PreparedScene> PreparedScene::prepare(const QImage& canvas,
                                                            const FrameLayout& layout,
                                                            const Look& look, std::uint64_t seed,
                                                            int noiseAmplitude) {
    const QSize frame = layout.size();
    const int margin = marginFor(frame);
    auto scene = std::make_shared<PreparedScene>(Key{}, layout, look, margin);
    const std::uint32_t format = layout.pixelFormat;
    if (format == pixel_format::k422YpCbCr8_yuvs || frame.isEmpty()) {
        return scene;
    }

    QImage upright =
        canvas.size() == canvasSize(layout)
            ? canvas
            : canvas.scaled(canvasSize(layout), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (!look.focused) {
        upright = blurred(upright);
    }
    const QImage image = video_geometry::orientUpright(upright, layout.orientation, layout.mirrored)
                             .convertToFormat(QImage::Format_RGB32);
    const int width = image.width();
    const int height = image.height();

    const bool videoRange = format == pixel_format::k420YpCbCr8BiPlanarVideoRange;
    const auto light = lightingTable(look.lightingStep, kHeadroom, 255 - kHeadroom);
    if (format == pixel_format::k32BGRA) {
        scene->_bytesPerPixel = 4;
        Plane plane{std::vector<std::uint8_t>(std::size_t(width) * height * 4),
                    std::size_t(width) * 4};
        for (int y = 0; y < height; ++y) {
            const auto* in = reinterpret_cast<const std::uint8_t*>(image.constScanLine(y));
            std::uint8_t* out = plane.pixels.data() + y * plane.bytesPerRow;
            for (int x = 0; x < width * 4; x += 4) {
                out[x] = light[in[x]];
                out[x + 1] = light[in[x + 1]];
                out[x + 2] = light[in[x + 2]];
                out[x + 3] = 255;
            }
        }
        scene->_planes.push_back(std::move(plane));
    } else {
        scene->_bytesPerPixel = 1;
        Plane luma{std::vector<std::uint8_t>(std::size_t(width) * height), std::size_t(width)};
        Plane chroma{std::vector<std::uint8_t>(std::size_t(width) * (height / 2)),
                     std::size_t(width)};
        const auto lumaOf = [&](int r, int g, int b) {
            const int y = (77 * r + 150 * g + 29 * b + 128) >> 8;
            return videoRange ? 16 + (y * 219 + 127) / 255
                              : std::clamp(y, kHeadroom, 255 - kHeadroom);
        };
        const auto chromaOf = [&](int value) {
            const int c = std::clamp(128 + value, 0, 255);
            return videoRange ? 128 + ((c - 128) * 224) / 255 : c;
        };
        for (int y = 0; y < height; ++y) {
            const auto* in = reinterpret_cast<const std::uint8_t*>(image.constScanLine(y));
            std::uint8_t* out = luma.pixels.data() + y * luma.bytesPerRow;
            for (int x = 0; x < width; ++x) {
                out[x] = static_cast<std::uint8_t>(
                    lumaOf(light[in[4 * x + 2]], light[in[4 * x + 1]], light[in[4 * x]]));
            }
        }
        for (int y = 0; y + 1 < height; y += 2) {
            const auto* top = reinterpret_cast<const std::uint8_t*>(image.constScanLine(y));
            const auto* bottom = reinterpret_cast<const std::uint8_t*>(image.constScanLine(y + 1));
            std::uint8_t* out = chroma.pixels.data() + (y / 2) * chroma.bytesPerRow;
            for (int x = 0; x + 1 < width; x += 2) {
                const auto sum = [&](int channel) {
                    return light[top[4 * x + channel]] + light[top[4 * x + 4 + channel]] +
                           light[bottom[4 * x + channel]] + light[bottom[4 * x + 4 + channel]];
                };
                const int b = sum(0) / 4;
                const int g = sum(1) / 4;
                const int r = sum(2) / 4;
                out[x] = static_cast<std::uint8_t>(chromaOf((-43 * r - 85 * g + 128 * b) >> 8));
                out[x + 1] = static_cast<std::uint8_t>(chromaOf((128 * r - 107 * g - 21 * b) >> 8));
            }
        }
        scene->_planes.push_back(std::move(luma));
        scene->_planes.push_back(std::move(chroma));
    }

    const int amplitude = std::clamp(noiseAmplitude, 0, kHeadroom);
    if (amplitude > 0) {
        const std::size_t rowBytes = std::size_t(frame.width()) * scene->_bytesPerPixel;
        scene->_noise.resize(rowBytes + std::size_t(kNoiseSpan) * scene->_bytesPerPixel);
        std::mt19937_64 random(mix(seed ^ 0x6E6F697365ULL));
        std::uniform_int_distribution<int> value(-amplitude, amplitude);
        for (std::size_t i = 0; i < scene->_noise.size(); ++i) {
            // Alpha stays opaque.
            const bool alpha = scene->_bytesPerPixel == 4 && i % 4 == 3;
            scene->_noise[i] = static_cast<std::int8_t>(alpha ? 0 : value(random));
        }
    }
    return scene;
}

const std::int8_t* PreparedScene::noiseRow(std::uint64_t frameSeed, int row) const {
    const std::uint64_t start = mix(frameSeed + std::uint64_t(row) * 0x9E3779B1ULL) % kNoiseSpan;
    return _noise.data() + start * _bytesPerPixel;
}

void PreparedScene::renderFrame(PixelBuffer& buffer, int dx, int dy,
                                std::uint64_t frameSeed) const {
    const int width = buffer.width();
    const int height = buffer.height();
    if (_planes.empty()) {
        // The unsupported format: flat grey.
        for (int y = 0; y < height; ++y) {
            std::memset(buffer.planeData(0) + y * buffer.plane(0).bytesPerRow, 0x80,
                        std::size_t(width) * 2);
        }
        return;
    }
    const QPoint origin = frameOrigin(QSize(width, height), dx, dy);
    const int left = origin.x();
    const int top = origin.y();
    const Plane& main = _planes[0];
    const std::size_t rowBytes = std::size_t(width) * _bytesPerPixel;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* src =
            main.pixels.data() + (top + y) * main.bytesPerRow + std::size_t(left) * _bytesPerPixel;
        std::uint8_t* dst = buffer.planeData(0) + y * buffer.plane(0).bytesPerRow;
        if (_noise.empty()) {
            std::memcpy(dst, src, rowBytes);
        } else {
            addNoise(dst, src, noiseRow(frameSeed, y), rowBytes);
        }
    }
    if (_planes.size() > 1) {
        const Plane& chroma = _planes[1];
        for (int y = 0; y < height / 2; ++y) {
            const std::uint8_t* src =
                chroma.pixels.data() + (top / 2 + y) * chroma.bytesPerRow + std::size_t(left);
            std::memcpy(buffer.planeData(1) + y * buffer.plane(1).bytesPerRow, src,
                        std::size_t(width));
        }
    }
}

}  // namespace platform::virtual_scene
