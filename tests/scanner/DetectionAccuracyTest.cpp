// How well pages are found in virtual frames whose true corners are known:
// across desks (wood, grey, near-white, coloured, plain), light fall-off,
// shadows, page tilt, rotation, scale and position, focus blur (whole and
// partial), noise, both frame formats and orientations; and that a desk
// without a page never gets an outline.
#include "PageDetector.h"
#include "VirtualFrames.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QPainter>

#include <cstdio>
#include <map>

namespace {

using namespace platform;
using scanner_test::VirtualFrame;

struct SceneCase {
    std::string name;
    virtual_scene::Desk desk;
    virtual_scene::SceneKnobs knobs;
    int noise = 4;
};

std::vector<SceneCase> sceneCases() {
    using virtual_scene::Desk;
    std::vector<SceneCase> cases;
    const auto add = [&](const std::string& name, auto change, int noise = 4) {
        for (const Desk desk : {Desk::Wood, Desk::Grey, Desk::White}) {
            virtual_scene::SceneKnobs knobs;
            change(knobs);
            const char* deskName = desk == Desk::Wood   ? "wood"
                                   : desk == Desk::Grey ? "grey"
                                                        : "white";
            cases.push_back({name + "/" + deskName, desk, knobs, noise});
        }
    };
    add("plain", [](auto&) {});
    add("strong-light-gradient", [](auto& k) { k.lightGradient = 2.5; });
    add("shadow", [](auto& k) { k.shadow = 0.7; });
    add("turned", [](auto& k) { k.rotation = 18; });
    add("turned-back", [](auto& k) {
        k.rotation = -25;
        k.tilt = 0.1;
    });
    add("tilted", [](auto& k) { k.tilt = 0.25; });
    add("tilted-towards", [](auto& k) {
        k.tilt = -0.18;
        k.rotation = 6;
    });
    add("small-and-aside", [](auto& k) {
        k.scale = 0.55;
        k.offset = QPointF(-0.12, 0.1);
    });
    add("close", [](auto& k) { k.scale = 1.18; });
    add("blurred", [](auto& k) { k.blur = 0.008; });
    add("partly-blurred", [](auto& k) {
        k.blur = 0.014;
        k.sharpTop = 0.45;
    });
    add(
        "noisy", [](auto& k) { k.shadow = 0.3; }, 8);
    add("plain-desk", [](auto& k) {
        k.deskTexture = 0;
        k.lightGradient = 0.5;
    });
    add("coloured-desk", [](auto& k) {
        k.deskColor = QColor(196, 184, 160);
        k.rotation = -9;
    });
    return cases;
}

FrameLayout layoutFor(std::size_t index) {
    FrameLayout layout;
    // Mostly the scanner's live frames (portrait 720p), some full HD and
    // some landscape, in both of the engine's formats.
    layout.sensorSize = index % 5 == 4 ? QSize(1920, 1080) : QSize(1280, 720);
    layout.orientation =
        index % 7 == 3 ? video_orientation::kLandscapeRight : video_orientation::kPortrait;
    layout.pixelFormat =
        index % 2 ? pixel_format::k420YpCbCr8BiPlanarFullRange : pixel_format::k32BGRA;
    return layout;
}

VirtualCameraConfiguration configFor(const SceneCase& scene, std::uint64_t seed) {
    auto config = VirtualCameraConfiguration::back();
    config.capabilities.focusModes = {focus_mode::kLocked};
    config.seed = seed;
    config.desk = scene.desk;
    config.scene = scene.knobs;
    config.noiseAmplitude = scene.noise;
    return config;
}

QString outputFolder() {
    const QString folder = QDir::current().filePath("detection");
    QDir().mkpath(folder);
    return folder;
}

void saveOverlay(const VirtualFrame& frame, const std::optional<scanner::Quad>& found,
                 const QString& path) {
    QImage overlay = frame.picture.convertToFormat(QImage::Format_RGB32);
    QPainter painter(&overlay);
    painter.setRenderHint(QPainter::Antialiasing);
    if (frame.truth) {
        painter.setPen(QPen(Qt::green, 3));
        painter.drawPolygon(scanner::toPolygon(*frame.truth));
    }
    if (found) {
        painter.setPen(QPen(Qt::red, 2));
        painter.drawPolygon(scanner::toPolygon(*found));
    }
    painter.end();
    overlay.scaled(overlay.size() / 2, Qt::KeepAspectRatio, Qt::SmoothTransformation).save(path);
}

TEST(DetectionAccuracy, PagesAreFoundAcrossTheScenesKnobsAndNeverOnABareDesk) {
    const scanner::PageDetector detector;
    const QString folder = outputFolder();
    std::vector<double> scores;
    std::map<std::string, std::pair<double, int>> byScene;
    double worst = 1;
    std::size_t index = 0;
    for (const SceneCase& scene : sceneCases()) {
        const auto frames = scanner_test::renderVirtualFrames(
            configFor(scene, 100 + index), layoutFor(index), {0, 11, 23, 37, 52}, scene.name);
        for (const VirtualFrame& frame : frames) {
            ASSERT_TRUE(frame.truth) << scene.name;
            const auto found = detector.detect(frame.picture);
            const double iou =
                found ? scanner::intersectionOverUnion(found->corners, *frame.truth) : 0.0;
            scores.push_back(iou);
            byScene[scene.name].first += iou;
            ++byScene[scene.name].second;
            if (iou < worst || iou < 0.9) {
                worst = std::min(worst, iou);
                QString name = QString::fromStdString(scene.name).replace('/', '-');
                saveOverlay(
                    frame, found ? std::optional(found->corners) : std::nullopt,
                    folder + "/low-" + name + "-" + QString::number(scores.size()) + ".png");
            }
        }
        ++index;
    }
    ASSERT_GE(scores.size(), 200u);
    double sum = 0;
    int good = 0;
    for (const double iou : scores) {
        sum += iou;
        good += iou >= 0.9;
    }
    const double mean = sum / double(scores.size());
    const double goodShare = double(good) / double(scores.size());
    std::printf("detection over %zu frames: mean IoU %.4f, %.1f%% at IoU >= 0.9, worst %.3f\n",
                scores.size(), mean, 100 * goodShare, worst);
    for (const auto& [name, total] : byScene) {
        if (total.first / total.second < 0.95) {
            std::printf("  %-32s mean IoU %.3f\n", name.c_str(), total.first / total.second);
        }
    }
    EXPECT_GE(mean, 0.95);
    EXPECT_GE(goodShare, 0.95);

    // Bare desks under the same knobs: no outline at all.
    int outlines = 0;
    int frames = 0;
    std::size_t bare = 0;
    for (const SceneCase& scene : sceneCases()) {
        if (bare++ % 2) {
            continue;  // every other scene, 5 frames each: more than 50 frames
        }
        SceneCase empty = scene;
        empty.knobs.page = false;
        for (const VirtualFrame& frame : scanner_test::renderVirtualFrames(
                 configFor(empty, 300 + bare), layoutFor(bare), {0, 9, 21, 33, 48}, scene.name)) {
            ++frames;
            const auto found = detector.detect(frame.picture);
            if (found) {
                ++outlines;
                saveOverlay(frame, found->corners,
                            folder + "/false-" +
                                QString::fromStdString(scene.name).replace('/', '-') + "-" +
                                QString::number(frames) + ".png");
            }
        }
    }
    EXPECT_GE(frames, 50);
    EXPECT_EQ(outlines, 0) << "outlines on bare desks, of " << frames << " frames";
}

}  // namespace
