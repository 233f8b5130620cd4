#include "platform/capture/CaptureDevice.h"
#include "platform/capture/PixelConversion.h"
#include "platform/capture/QtCameraDriver.h"
#include "platform/capture/QtCameraSource.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QPoint>
#include <QThread>
#include <QVideoFrame>
#include <QVideoFrameFormat>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

using namespace platform;

namespace {

struct Bgra {
    int b, g, r, a;
    bool operator==(const Bgra&) const = default;
};

// The conversion, one pixel at a time in floating point.
Bgra reference(int y, int u, int v) {
    const auto c = [](double x) { return static_cast<int>(std::clamp(std::lround(x), 0L, 255L)); };
    return {c(y + 1.772 * (u - 128)), c(y - 0.344136 * (u - 128) - 0.714136 * (v - 128)),
            c(y + 1.402 * (v - 128)), 255};
}

Bgra at(const std::vector<std::uint8_t>& image, std::size_t stride, int x, int y) {
    const std::uint8_t* p = image.data() + y * stride + 4 * x;
    return {p[0], p[1], p[2], p[3]};
}

Bgra yuyvPixel(int y, int u, int v) {
    const std::uint8_t src[4] = {static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(u),
                                 static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(v)};
    std::vector<std::uint8_t> dst(8);
    convertYuyvToBgra(src, 4, dst.data(), 8, 2, 1);
    return at(dst, 8, 1, 0);
}

std::uint8_t noise(int a, int b) {
    return static_cast<std::uint8_t>((a * 73 + b * 151 + a * b * 7) & 0xFF);
}

}  // namespace

TEST(PixelConversion, KnownColoursGiveExactValues) {
    EXPECT_EQ(yuyvPixel(0, 128, 128), (Bgra{0, 0, 0, 255}));
    EXPECT_EQ(yuyvPixel(255, 128, 128), (Bgra{255, 255, 255, 255}));
    EXPECT_EQ(yuyvPixel(128, 128, 128), (Bgra{128, 128, 128, 255}));
    EXPECT_EQ(yuyvPixel(76, 85, 255), (Bgra{0, 0, 254, 255}));   // red
    EXPECT_EQ(yuyvPixel(150, 44, 21), (Bgra{1, 255, 0, 255}));   // green
    EXPECT_EQ(yuyvPixel(29, 255, 107), (Bgra{254, 0, 0, 255}));  // blue
}

TEST(PixelConversion, YuyvMatchesReferenceOnOddSizesAndStrides) {
    const int width = 37, height = 5;
    const std::size_t srcStride = 2 * 38 + 6, dstStride = 4 * width + 12;
    std::vector<std::uint8_t> src(srcStride * height);
    for (std::size_t i = 0; i < src.size(); ++i) {
        src[i] = noise(static_cast<int>(i), 3);
    }
    std::vector<std::uint8_t> dst(dstStride * height, 0);
    convertYuyvToBgra(src.data(), srcStride, dst.data(), dstStride, width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::uint8_t* m = src.data() + y * srcStride + 4 * (x / 2);
            const Bgra want = reference(m[(x % 2) * 2], m[1], m[3]);
            const Bgra got = at(dst, dstStride, x, y);
            ASSERT_LE(
                std::abs(got.r - want.r) + std::abs(got.g - want.g) + std::abs(got.b - want.b), 1)
                << x << "," << y;
            ASSERT_EQ(got.a, 255);
        }
        EXPECT_EQ(dst[y * dstStride + 4 * width], 0) << "wrote past the row";
    }
}

TEST(PixelConversion, Nv12MatchesReferenceOnOddSizesAndStrides) {
    const int width = 23, height = 7;
    const std::size_t lumaStride = 29, chromaStride = 26, dstStride = 4 * width + 4;
    std::vector<std::uint8_t> luma(lumaStride * height), chroma(chromaStride * 4);
    for (std::size_t i = 0; i < luma.size(); ++i) {
        luma[i] = noise(static_cast<int>(i), 1);
    }
    for (std::size_t i = 0; i < chroma.size(); ++i) {
        chroma[i] = noise(static_cast<int>(i), 2);
    }
    std::vector<std::uint8_t> dst(dstStride * height);
    convertNv12ToBgra(luma.data(), lumaStride, chroma.data(), chromaStride, dst.data(), dstStride,
                      width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::uint8_t* uv = chroma.data() + (y / 2) * chromaStride + 2 * (x / 2);
            const Bgra want = reference(luma[y * lumaStride + x], uv[0], uv[1]);
            const Bgra got = at(dst, dstStride, x, y);
            ASSERT_LE(
                std::abs(got.r - want.r) + std::abs(got.g - want.g) + std::abs(got.b - want.b), 1)
                << x << "," << y;
        }
    }
}

TEST(PixelConversion, EveryWidthAroundTheBlockSizeMatchesTheReference) {
    // Rows are converted in blocks of sixteen pixels and the rest one by
    // one: every width up to three blocks and a bit, odd heights for NV12's
    // unpaired last row, and extreme chroma that must clamp.
    for (int width = 1; width <= 50; ++width) {
        const int height = 3;
        const std::size_t stride = 2 * ((width + 1) / 2) + 2;
        std::vector<std::uint8_t> luma(stride * height), chroma(stride * 2),
            yuyv(2 * stride * height);
        for (std::size_t i = 0; i < luma.size(); ++i) {
            luma[i] = noise(static_cast<int>(i), width);
        }
        for (std::size_t i = 0; i < chroma.size(); ++i) {
            chroma[i] = i % 5 == 0 ? 255 : i % 7 == 0 ? 0 : noise(static_cast<int>(i), 7);
        }
        for (std::size_t i = 0; i < yuyv.size(); ++i) {
            yuyv[i] =
                i % 2 == 0 ? noise(static_cast<int>(i), 3) : (i % 8 == 1 ? 255 : noise(int(i), 9));
        }
        const std::size_t dstStride = 4 * width + 4;
        std::vector<std::uint8_t> fromNv12(dstStride * height, 0), fromYuyv(dstStride * height, 0);
        convertNv12ToBgra(luma.data(), stride, chroma.data(), stride, fromNv12.data(), dstStride,
                          width, height);
        convertYuyvToBgra(yuyv.data(), 2 * stride, fromYuyv.data(), dstStride, width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const std::uint8_t* uv = chroma.data() + (y / 2) * stride + 2 * (x / 2);
                const Bgra nv12 = reference(luma[y * stride + x], uv[0], uv[1]);
                const std::uint8_t* m = yuyv.data() + y * 2 * stride + 4 * (x / 2);
                const Bgra packed = reference(m[(x % 2) * 2], m[1], m[3]);
                const Bgra gotNv12 = at(fromNv12, dstStride, x, y);
                const Bgra gotYuyv = at(fromYuyv, dstStride, x, y);
                ASSERT_LE(std::abs(gotNv12.r - nv12.r) + std::abs(gotNv12.g - nv12.g) +
                              std::abs(gotNv12.b - nv12.b),
                          1)
                    << "NV12 width " << width << " at " << x << "," << y;
                ASSERT_LE(std::abs(gotYuyv.r - packed.r) + std::abs(gotYuyv.g - packed.g) +
                              std::abs(gotYuyv.b - packed.b),
                          1)
                    << "YUYV width " << width << " at " << x << "," << y;
                ASSERT_EQ(gotNv12.a, 255);
                ASSERT_EQ(gotYuyv.a, 255);
            }
            ASSERT_EQ(fromNv12[y * dstStride + 4 * width], 0) << "wrote past the row";
            ASSERT_EQ(fromYuyv[y * dstStride + 4 * width], 0) << "wrote past the row";
        }
    }
}

TEST(QtCameraMapping, PositionsAndPresets) {
    EXPECT_EQ(qt_camera::positionFrom(QCameraDevice::BackFace), device_position::kBack);
    EXPECT_EQ(qt_camera::positionFrom(QCameraDevice::FrontFace), device_position::kFront);
    EXPECT_EQ(qt_camera::positionFrom(QCameraDevice::UnspecifiedPosition),
              device_position::kUnspecified);

    const QList<QSize> video = {{640, 480}, {1280, 720}, {1920, 1088}, {960, 540}};
    EXPECT_EQ(qt_camera::stillSizeFor({}, video), QSize(1920, 1088));
    EXPECT_EQ(qt_camera::stillSizeFor({{2592, 1944}, {640, 480}}, video), QSize(2592, 1944));
    // Exact sizes only: 1920x1088 is no 1080p format.
    EXPECT_EQ(qt_camera::sessionPresetsFor(video, QSize(2592, 1944)),
              QStringList({session_preset::kPhoto, session_preset::k1280x720,
                           session_preset::kiFrame960x540}));
    EXPECT_TRUE(qt_camera::sessionPresetsFor({}, {}).isEmpty());
}

TEST(QtCameraMapping, CapabilitiesOfAWebcamAndOfAPhoneLikeCamera) {
    QtCameraDescription webcam;
    webcam.videoFormats = {{{640, 480}, QVideoFrameFormat::Format_YUYV, 30.0f},
                           {{1280, 720}, QVideoFrameFormat::Format_YUYV, 10.0f},
                           {{1280, 720}, QVideoFrameFormat::Format_Jpeg, 30.0f}};
    webcam.focusModes = {QCamera::FocusModeAuto};
    webcam.exposureModes = {QCamera::ExposureAuto, QCamera::ExposureManual};
    webcam.flashModes = {QCamera::FlashOff};
    webcam.torchModes = {QCamera::TorchOff};
    CaptureDeviceCapabilities caps = qt_camera::capabilitiesFor(webcam);
    EXPECT_EQ(caps.stillImageSize, QSize(1280, 720));
    EXPECT_EQ(caps.videoSizeForPreset(session_preset::kHigh), QSize(1280, 720));
    EXPECT_FALSE(caps.supportsPreset(session_preset::k1920x1080));
    EXPECT_EQ(caps.focusModes,
              (std::vector<int>{focus_mode::kAutoFocus, focus_mode::kContinuousAutoFocus}));
    EXPECT_EQ(caps.exposureModes,
              (std::vector<int>{exposure_mode::kLocked, exposure_mode::kAutoExpose,
                                exposure_mode::kContinuousAutoExposure}));
    EXPECT_FALSE(caps.hasFlash);
    EXPECT_FALSE(caps.hasTorch);
    EXPECT_FALSE(caps.focusPointOfInterest);

    QtCameraDescription phone = webcam;
    phone.focusModes = {};  // fixed focus
    phone.flashModes = {QCamera::FlashOff, QCamera::FlashOn, QCamera::FlashAuto};
    phone.torchModes = {QCamera::TorchOff, QCamera::TorchOn};
    phone.features = QCamera::Feature::CustomFocusPoint;
    caps = qt_camera::capabilitiesFor(phone);
    EXPECT_EQ(caps.focusModes, std::vector<int>{focus_mode::kLocked});
    EXPECT_TRUE(caps.hasFlash);
    EXPECT_EQ(caps.flashModes,
              (std::vector<int>{flash_mode::kOff, flash_mode::kOn, flash_mode::kAuto}));
    EXPECT_TRUE(caps.hasTorch);
    EXPECT_TRUE(caps.focusPointOfInterest);
    EXPECT_EQ(qt_camera::flashModeFor(flash_mode::kAuto), QCamera::FlashAuto);
    EXPECT_EQ(qt_camera::torchModeFor(torch_mode::kOn), QCamera::TorchOn);
    EXPECT_EQ(qt_camera::focusModeFor(focus_mode::kContinuousAutoFocus), QCamera::FocusModeAuto);

    // The smoothest format of a size wins, then the one closest to the output.
    EXPECT_EQ(
        qt_camera::formatFor(webcam.videoFormats, {1280, 720}, pixel_format::k32BGRA).pixelFormat,
        QVideoFrameFormat::Format_Jpeg);
    EXPECT_TRUE(qt_camera::formatFor(webcam.videoFormats, {1920, 1080}, pixel_format::k32BGRA)
                    .resolution.isEmpty());
    // Stills keep the stream's aspect ratio when the camera has such a size.
    const QList<QSize> stills = {{2592, 1944}, {1920, 1080}, {1280, 720}, {640, 480}};
    EXPECT_EQ(qt_camera::largestLike(stills, {1280, 720}), QSize(1920, 1080));
    EXPECT_EQ(qt_camera::largestLike(stills, {640, 480}), QSize(2592, 1944));
    EXPECT_EQ(qt_camera::largestLike(stills, {1000, 1000}), QSize(2592, 1944));
}

namespace {

// Where source pixel (x, y) of a width x height picture lands under turn.
QPoint turnedPosition(int x, int y, int width, int height, Turn turn) {
    QPoint p;
    int w = width;
    switch (turn.quarterTurns) {
        case 1:
            p = {height - 1 - y, x};
            w = height;
            break;
        case 2:
            p = {width - 1 - x, height - 1 - y};
            break;
        case 3:
            p = {y, width - 1 - x};
            w = height;
            break;
        default:
            p = {x, y};
            break;
    }
    if (turn.mirrored) {
        p.setX(w - 1 - p.x());
    }
    return p;
}

struct Planes {
    std::vector<std::uint8_t> a, b;
    std::size_t strideA = 0, strideB = 0;
};

}  // namespace

TEST(PixelConversion, EveryConverterTurnsAndMirrorsAsItConverts) {
    // Sizes across the tile and band edges of the turned path; the turned
    // output must be the unturned one, moved.
    for (const QSize size : {QSize(38, 22), QSize(150, 34)}) {
        const int w = size.width(), h = size.height();
        const std::size_t pad = 8;
        std::vector<std::uint8_t> yuyv((2 * w + pad) * h), luma((w + pad) * h),
            uv((w + pad) * (h / 2)), u((w / 2 + pad) * (h / 2)), v((w / 2 + pad) * (h / 2)),
            bgra((4 * w + pad) * h);
        for (auto* plane : {&yuyv, &luma, &uv, &u, &v, &bgra}) {
            for (std::size_t i = 0; i < plane->size(); ++i) {
                (*plane)[i] = noise(static_cast<int>(i), static_cast<int>(plane->size() % 97));
            }
        }
        const std::size_t ys = 2 * w + pad, ls = w + pad, cs = w / 2 + pad, bs = 4 * w + pad;
        // Each converter, as out(turn) -> planes of Bytes-byte elements.
        struct Case {
            const char* name;
            bool biPlanar;
            std::function<void(Planes&, int outWidth, Turn)> run;
        };
        const auto bgraOut = [&](auto convert) {
            return [=](Planes& out, int outWidth, Turn turn) {
                out.strideA = 4 * outWidth + 12;
                out.a.assign(out.strideA * (turn.quarterTurns % 2 ? w : h), 0);
                convert(out.a.data(), out.strideA, turn);
            };
        };
        const auto biPlanarOut = [&](auto convert) {
            return [=](Planes& out, int outWidth, Turn turn) {
                const int outHeight = turn.quarterTurns % 2 ? w : h;
                out.strideA = outWidth + 4;
                out.strideB = outWidth + 6;
                out.a.assign(out.strideA * outHeight, 0);
                out.b.assign(out.strideB * outHeight / 2, 0);
                convert(out.a.data(), out.strideA, out.b.data(), out.strideB, turn);
            };
        };
        const std::vector<Case> cases = {
            {"YUYV to BGRA", false, bgraOut([&](std::uint8_t* d, std::size_t s, Turn t) {
                 convertYuyvToBgra(yuyv.data(), ys, d, s, w, h, t);
             })},
            {"NV12 to BGRA", false, bgraOut([&](std::uint8_t* d, std::size_t s, Turn t) {
                 convertNv12ToBgra(luma.data(), ls, uv.data(), ls, d, s, w, h, t);
             })},
            {"I420 to BGRA", false, bgraOut([&](std::uint8_t* d, std::size_t s, Turn t) {
                 convertI420ToBgra(luma.data(), ls, u.data(), cs, v.data(), cs, d, s, w, h, t);
             })},
            {"BGRX to BGRA", false, bgraOut([&](std::uint8_t* d, std::size_t s, Turn t) {
                 copyBgra(bgra.data(), bs, d, s, w, h, t, true);
             })},
            {"YUYV to 420f", true,
             biPlanarOut(
                 [&](std::uint8_t* l, std::size_t lst, std::uint8_t* c, std::size_t cst, Turn t) {
                     convertYuyvTo420f(yuyv.data(), ys, l, lst, c, cst, w, h, t);
                 })},
            {"I420 to 420f", true,
             biPlanarOut(
                 [&](std::uint8_t* l, std::size_t lst, std::uint8_t* c, std::size_t cst, Turn t) {
                     convertI420To420f(luma.data(), ls, u.data(), cs, v.data(), cs, l, lst, c, cst,
                                       w, h, t);
                 })},
            {"NV12 to 420f", true,
             biPlanarOut(
                 [&](std::uint8_t* l, std::size_t lst, std::uint8_t* c, std::size_t cst, Turn t) {
                     copyNv12(luma.data(), ls, uv.data(), ls, l, lst, c, cst, w, h, t);
                 })},
            {"BGRA to 420f", true,
             biPlanarOut(
                 [&](std::uint8_t* l, std::size_t lst, std::uint8_t* c, std::size_t cst, Turn t) {
                     convertBgraTo420f(bgra.data(), bs, l, lst, c, cst, w, h, t);
                 })},
        };
        for (const Case& c : cases) {
            Planes plain;
            c.run(plain, w, {});
            if (!c.biPlanar) {
                for (int y = 0; y < h; ++y) {
                    for (int x = 0; x < w; ++x) {
                        ASSERT_EQ(plain.a[y * plain.strideA + 4 * x + 3], 255) << c.name;
                    }
                }
            }
            for (int quarters = 0; quarters < 4; ++quarters) {
                for (const bool mirrored : {false, true}) {
                    const Turn turn{quarters, mirrored};
                    const int outWidth = quarters % 2 ? h : w;
                    Planes turned;
                    c.run(turned, outWidth, turn);
                    const auto same = [&](const std::vector<std::uint8_t>& from,
                                          std::size_t fromStride,
                                          const std::vector<std::uint8_t>& to, std::size_t toStride,
                                          int pw, int ph, int bytes) {
                        for (int y = 0; y < ph; ++y) {
                            for (int x = 0; x < pw; ++x) {
                                const QPoint p = turnedPosition(x, y, pw, ph, turn);
                                for (int k = 0; k < bytes; ++k) {
                                    if (from[y * fromStride + bytes * x + k] !=
                                        to[p.y() * toStride + bytes * p.x() + k]) {
                                        return false;
                                    }
                                }
                            }
                        }
                        return true;
                    };
                    const bool lumaSame = same(plain.a, plain.strideA, turned.a, turned.strideA, w,
                                               h, c.biPlanar ? 1 : 4);
                    EXPECT_TRUE(lumaSame) << c.name << " " << w << "x" << h << " turned "
                                          << quarters << (mirrored ? " mirrored" : "");
                    if (c.biPlanar) {
                        EXPECT_TRUE(
                            same(plain.b, plain.strideB, turned.b, turned.strideB, w / 2, h / 2, 2))
                            << c.name << " chroma turned " << quarters
                            << (mirrored ? " mirrored" : "");
                    }
                }
            }
        }
    }
}

TEST(PixelConversion, FourTwoZeroFullRangeFromYuyvAndI420KeepsLumaAndAveragesChroma) {
    // 4x2 YUYV: two rows with different chroma; I420 of the same picture.
    const std::uint8_t yuyv[] = {10, 100, 20, 200, 30, 50, 40, 60,  //
                                 11, 110, 21, 210, 31, 70, 41, 80};
    std::uint8_t luma[8] = {}, chroma[4] = {};
    convertYuyvTo420f(yuyv, 8, luma, 4, chroma, 4, 4, 2);
    EXPECT_EQ(std::vector<std::uint8_t>(luma, luma + 8),
              (std::vector<std::uint8_t>{10, 20, 30, 40, 11, 21, 31, 41}));
    EXPECT_EQ(std::vector<std::uint8_t>(chroma, chroma + 4),
              (std::vector<std::uint8_t>{105, 205, 60, 70}));

    const std::uint8_t y420[] = {1, 2, 3, 4, 5, 6, 7, 8}, u420[] = {9, 10}, v420[] = {11, 12};
    convertI420To420f(y420, 4, u420, 2, v420, 2, luma, 4, chroma, 4, 4, 2);
    EXPECT_EQ(std::vector<std::uint8_t>(luma, luma + 8),
              (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(std::vector<std::uint8_t>(chroma, chroma + 4),
              (std::vector<std::uint8_t>{9, 11, 10, 12}));
}

TEST(PixelConversion, I420GivesWhatNv12GivesForTheSameChroma) {
    // The NV12 converter is checked against the reference above; I420 differs
    // only in where its chroma lies. Odd sizes, and widths past a block.
    for (const QSize size : {QSize(37, 21), QSize(150, 34)}) {
        const int w = size.width(), h = size.height();
        const int cw = (w + 1) / 2, ch = (h + 1) / 2;
        std::vector<std::uint8_t> luma(w * h), u(cw * ch), v(cw * ch), uv(2 * cw * ch);
        for (std::size_t i = 0; i < luma.size(); ++i) {
            luma[i] = noise(static_cast<int>(i), 5);
        }
        for (std::size_t i = 0; i < u.size(); ++i) {
            u[i] = noise(static_cast<int>(i), 11);
            v[i] = noise(static_cast<int>(i), 13);
            uv[2 * i] = u[i];
            uv[2 * i + 1] = v[i];
        }
        const std::size_t stride = 4 * w;
        std::vector<std::uint8_t> fromI420(stride * h), fromNv12(stride * h);
        convertI420ToBgra(luma.data(), w, u.data(), cw, v.data(), cw, fromI420.data(), stride, w,
                          h);
        convertNv12ToBgra(luma.data(), w, uv.data(), 2 * cw, fromNv12.data(), stride, w, h);
        EXPECT_EQ(fromI420, fromNv12) << w << "x" << h;
    }
}
