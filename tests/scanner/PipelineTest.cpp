// The scanner's pipeline after detection: the outline shown over time and
// the advice given, the flattened page with its shape and margins, the PNG
// and PDF output, and photos scanned from files with their EXIF turn.
#include "DocumentOutput.h"
#include "Guidance.h"
#include "OutlineSmoother.h"
#include "PageDetector.h"
#include "PageWarp.h"
#include "PhotoScan.h"
#include "VirtualFrames.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QImageWriter>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cmath>

namespace {

using namespace platform;
using scanner::Quad;

Quad rectangle(double x, double y, double w, double h) {
    return {QPointF(x, y), QPointF(x + w, y), QPointF(x + w, y + h), QPointF(x, y + h)};
}

Quad shifted(const Quad& quad, double dx, double dy) {
    return scanner::mapped(quad, QTransform::fromTranslate(dx, dy));
}

TEST(OutlineOverTime, SteadiesJitterIgnoresFlashesFollowsMotionAndSaysWhenItIsSteady) {
    scanner::OutlineSmoother smoother;
    const Quad page = rectangle(100, 150, 500, 700);
    const double frame = 1.0 / 30;
    double now = 0;

    // One frame is not enough: a flash never shows.
    EXPECT_FALSE(smoother.update(page, now));
    EXPECT_FALSE(smoother.update(std::nullopt, now += frame));
    EXPECT_FALSE(smoother.update(page, now += frame));
    ASSERT_TRUE(smoother.update(page, now += frame)) << "shown after two frames running";

    // Jitter of +-3 pixels moves the shown outline much less.
    double largestStep = 0;
    Quad previous = *smoother.outline();
    for (int i = 0; i < 40; ++i) {
        const double wobble = (i % 2 ? 3.0 : -3.0);
        const Quad& shown = *smoother.update(shifted(page, wobble, -wobble), now += frame);
        largestStep = std::max(largestStep, scanner::largestCornerDistance(shown, previous));
        previous = shown;
    }
    EXPECT_LT(largestStep, 3.0);
    EXPECT_GE(smoother.steadySeconds(now), 1.0) << "jitter is steady";

    // A lone detection elsewhere, and three misses, leave it in place.
    const Quad before = *smoother.outline();
    smoother.update(rectangle(20, 20, 200, 200), now += frame);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(smoother.update(std::nullopt, now += frame));
    }
    EXPECT_LT(scanner::largestCornerDistance(*smoother.outline(), before), 0.01);
    EXPECT_GE(smoother.steadySeconds(now), 1.0);

    // Real motion is followed within a few frames and restarts the steady time.
    const Quad moved = shifted(page, 40, 25);
    for (int i = 0; i < 4; ++i) {
        smoother.update(moved, now += frame);
    }
    EXPECT_LT(scanner::largestCornerDistance(*smoother.outline(), moved), 2.0);
    EXPECT_LT(smoother.steadySeconds(now), 0.2);

    // Four misses running take it away.
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(smoother.update(std::nullopt, now += frame));
    }
    EXPECT_FALSE(smoother.update(std::nullopt, now += frame));
    EXPECT_EQ(smoother.steadySeconds(now), 0.0);
}

TEST(OutlineOverTime, AdviceIsGivenOnceWhileItStandsAndAgainAfterAChange) {
    scanner::Guidance guidance;
    using Advice = scanner::Advice;
    scanner::Guidance::Situation nothing;
    std::vector<Advice> given;
    const auto step = [&](const scanner::Guidance::Situation& situation, double now) {
        if (const auto advice = guidance.update(situation, now)) {
            given.push_back(*advice);
        }
    };
    double now = 0;
    for (; now < 5; now += 0.1) {
        nothing.missingSeconds = now;
        step(nothing, now);
    }
    ASSERT_EQ(given, std::vector<Advice>{Advice::NoDocument}) << "once, though it stands 3 s";
    EXPECT_EQ(scanner::adviceText(Advice::NoDocument), "No document found");

    scanner::Guidance::Situation far{true, 0.08, 0.5, 0.5, 0};
    step(far, now += 0.1);
    step(far, now += 0.1);
    scanner::Guidance::Situation shaky{true, 0.4, 3.0, 0.1, 0};
    step(shaky, now += 0.1);
    scanner::Guidance::Situation good{true, 0.4, 3.0, 1.2, 0};
    step(good, now += 0.1);
    EXPECT_EQ(given,
              (std::vector<Advice>{Advice::NoDocument, Advice::MoveCloser, Advice::HoldStill}));
    EXPECT_EQ(scanner::adviceText(Advice::MoveCloser), "Move closer");
    EXPECT_EQ(scanner::adviceText(Advice::HoldStill), "Hold still");

    // Back to shaky at once: not repeated so soon; later it is.
    step(shaky, now += 0.1);
    EXPECT_EQ(given.size(), 3u);
    step(good, now += 5);
    step(shaky, now += 0.1);
    EXPECT_EQ(given.back(), Advice::HoldStill);
    EXPECT_EQ(given.size(), 4u);
}

QColor meanColour(const QImage& image, const QRect& region) {
    double r = 0, g = 0, b = 0;
    int count = 0;
    for (int y = region.top(); y <= region.bottom(); ++y) {
        for (int x = region.left(); x <= region.right(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            r += qRed(pixel);
            g += qGreen(pixel);
            b += qBlue(pixel);
            ++count;
        }
    }
    return QColor(int(r / count), int(g / count), int(b / count));
}

// The corner region shows paper: the colour of the page's margin a little
// further in, not the desk's (wood is orange, a pale desk darker than paper).
bool looksLikePaper(const QImage& page, const QRect& corner, const QRect& margin) {
    const QColor a = meanColour(page, corner);
    const QColor b = meanColour(page, margin);
    return std::abs(a.red() - b.red()) < 14 && std::abs(a.green() - b.green()) < 14 &&
           std::abs(a.blue() - b.blue()) < 14;
}

// A JPEG with an EXIF block that says how to turn it (1 to 8).
QByteArray withExifOrientation(const QByteArray& jpeg, quint16 orientation) {
    QByteArray tiff("II*\0\x08\0\0\0", 8);              // little endian, IFD at 8
    tiff += QByteArray("\x01\0", 2);                    // one entry
    tiff += QByteArray("\x12\x01\x03\0\x01\0\0\0", 8);  // Orientation, SHORT, 1
    tiff += char(orientation & 0xFF);
    tiff += char(orientation >> 8);
    tiff += QByteArray("\0\0\0\0\0\0", 6);  // padding, no next IFD
    const QByteArray payload = QByteArray("Exif\0\0", 6) + tiff;
    const int length = payload.size() + 2;
    QByteArray segment("\xFF\xE1", 2);
    segment += char(length >> 8);
    segment += char(length & 0xFF);
    segment += payload;
    return jpeg.left(2) + segment + jpeg.mid(2);  // right after the start marker
}

TEST(FlatPage, AStillBecomesAnA4PageWithPaperInEveryCornerAndAPdfOfItsPages) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const scanner::PageDetector detector;
    std::vector<QImage> pages;
    for (const virtual_scene::Desk desk : {virtual_scene::Desk::Wood, virtual_scene::Desk::White}) {
        auto config = VirtualCameraConfiguration::back();
        config.capabilities.focusModes = {focus_mode::kLocked};
        config.desk = desk;
        config.scene.rotation = desk == virtual_scene::Desk::Wood ? 8 : -5;
        config.scene.tilt = 0.12;
        auto camera = VirtualCamera::create(config);
        FrameLayout still;
        still.sensorSize = QSize(2016, 1512);
        still.orientation = video_orientation::kPortrait;
        const auto result = camera->captureStill({still, 1.0});
        const QImage picture = scanner_test::pictureOf(result.sampleBuffer);
        const Quad truth = scanner::fromPolygon(camera->stillPageCorners(still));

        // The outline of a smaller frame, carried over to the still, guides
        // the search there.
        const Quad fromFrame = scanner::frameToStill(scanner::scaled(truth, 0.5, 0.5),
                                                     picture.size() / 2, picture.size());
        EXPECT_LT(scanner::largestCornerDistance(fromFrame, truth), 1e-9);
        const auto found = detector.detect(picture, fromFrame);
        ASSERT_TRUE(found);
        EXPECT_GT(scanner::intersectionOverUnion(found->corners, truth), 0.97);

        const QImage page = scanner::flattenPage(picture, found->corners);
        ASSERT_FALSE(page.isNull());
        const double aspect = double(page.height()) / page.width();
        const QSizeF sides = scanner::meanSides(truth);
        EXPECT_NEAR(aspect / (sides.height() / sides.width()), 1.0, 0.02);
        EXPECT_NEAR(aspect, 1.414, 0.03) << "an A4 sheet";
        const int s = std::max(3, page.width() / 100);
        const QPoint inward(3 * s, 3 * s);
        for (const QPoint sign : {QPoint(1, 1), QPoint(-1, 1), QPoint(1, -1), QPoint(-1, -1)}) {
            const QPoint corner(sign.x() > 0 ? 0 : page.width() - s,
                                sign.y() > 0 ? 0 : page.height() - s);
            const QPoint margin(corner.x() + sign.x() * inward.x(),
                                corner.y() + sign.y() * inward.y());
            EXPECT_TRUE(
                looksLikePaper(page, QRect(corner, QSize(s, s)), QRect(margin, QSize(s, s))))
                << "desk in the page's corner at " << corner.x() << "," << corner.y();
        }
        pages.push_back(page);
    }
    pages.front().save(QDir::current().filePath("flat-page.png"));

    QString error;
    const QString out = folder.filePath("out/nested");
    const QStringList written = scanner::writeDocument(pages, out, "document.pdf", &error);
    ASSERT_EQ(written.size(), 3) << error.toStdString();
    EXPECT_TRUE(written[0].endsWith("page-1.png"));
    EXPECT_EQ(QImage(written[1]).size(), pages[1].size());
    EXPECT_EQ(scanner::pdfPageCount(written[2]), 2);

    // Where nothing can be written, the error says so and nothing crashes.
    EXPECT_FALSE(scanner::writePdf(pages, folder.filePath("missing/folder/x.pdf"), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(scanner::pdfPageCount(written[0]), -1) << "a PNG is no PDF";
}

TEST(PhotoScan, CornersAreInStoredPixelsAndThePageIsTurnedUprightAsExifSays) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    auto config = VirtualCameraConfiguration::back();
    config.capabilities.focusModes = {focus_mode::kLocked};
    auto camera = VirtualCamera::create(config);
    FrameLayout layout;
    layout.sensorSize = QSize(1600, 1200);
    // Stored on its side, as a phone held upright stores a photo, with EXIF
    // orientation 6 (turn a quarter clockwise to show it).
    layout.orientation = video_orientation::kLandscapeRight;
    const QImage stored = scanner_test::pictureOf(camera->renderFrame(0, layout));
    const Quad truth = scanner::fromPolygon(camera->pageCorners(0, layout));
    const QString photo = folder.filePath("photo.jpg");
    {
        QBuffer encoded;
        encoded.open(QIODevice::WriteOnly);
        ASSERT_TRUE(stored.save(&encoded, "JPEG", 95));
        QFile file(photo);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(withExifOrientation(encoded.data(), 6));
    }
    ASSERT_EQ(QImageReader(photo).transformation(), QImageIOHandler::TransformationRotate90);

    const scanner::PageDetector detector;
    const QString out = folder.filePath("pages");
    const scanner::PhotoScan scan = scanner::scanPhoto(photo, detector, out);
    ASSERT_TRUE(scan.corners);
    EXPECT_EQ(scan.size, stored.size());
    EXPECT_GT(scanner::intersectionOverUnion(*scan.corners, truth), 0.95);
    const QImage page(scan.pagePath);
    ASSERT_FALSE(page.isNull());
    // Upright: the page as printed is taller than wide, and its title bar
    // (dark) is at the top.
    EXPECT_GT(page.height(), page.width());
    EXPECT_LT(qGray(page.pixel(page.width() / 2, page.height() * 8 / 100)), 100);
    EXPECT_GT(qGray(page.pixel(page.width() / 2, page.height() * 97 / 100)), 180);

    const QJsonObject json = QJsonDocument::fromJson(scanner::toJson(scan)).object();
    EXPECT_EQ(json["file"].toString(), photo);
    EXPECT_EQ(json["width"].toInt(), stored.width());
    EXPECT_EQ(json["corners"].toArray().size(), 4);
    EXPECT_NEAR(json["corners"].toArray()[0].toArray()[0].toDouble(), truth[0].x(), 6);
    EXPECT_EQ(json["page"].toString(), scan.pagePath);

    // A photo of a bare desk: null corners, no page; a missing file: an error.
    auto bare = config;
    bare.scene.page = false;
    const QString empty = folder.filePath("desk.png");
    scanner_test::pictureOf(VirtualCamera::create(bare)->renderFrame(0, layout)).save(empty);
    const auto none = scanner::scanPhoto(empty, detector, out);
    EXPECT_FALSE(none.corners);
    EXPECT_TRUE(none.pagePath.isEmpty());
    EXPECT_TRUE(QJsonDocument::fromJson(scanner::toJson(none)).object()["corners"].isNull());
    const auto missing = scanner::scanPhoto(folder.filePath("nope.jpg"), detector, out);
    EXPECT_FALSE(missing.error.isEmpty());
    EXPECT_TRUE(QJsonDocument::fromJson(scanner::toJson(missing)).object().contains("error"));
}

}  // namespace
