// The headless scanner end to end, as the main job runs it: two pages from
// the virtual camera into PNGs and a two-page PDF.
#include "DocumentOutput.h"
#include "Quad.h"

#include "platform/capture/VirtualCamera.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

namespace {

using namespace platform;

// Where the virtual page lies in the engine's stills, as the default back
// camera shows it, and its shape (height over width, by opposite sides).
double virtualPageAspect() {
    auto camera = VirtualCamera::create(VirtualCameraConfiguration::back());
    FrameLayout still;
    still.sensorSize = VirtualCameraConfiguration::back().capabilities.stillImageSize;
    still.orientation = video_orientation::kPortrait;
    const QSizeF sides = scanner::meanSides(scanner::fromPolygon(camera->stillPageCorners(still)));
    return sides.height() / sides.width();
}

TEST(ScannerHeadless, ScansTwoPagesIntoPngsAndATwoPagePdf) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString out = folder.filePath("out");
    QProcess app;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    app.setProcessEnvironment(environment);
    app.setProcessChannelMode(QProcess::ForwardedChannels);
    app.start(QStringLiteral(QXD_SCANNER_APP), {QStringLiteral("--output"), out});
    // A guard against hangs only.
    ASSERT_TRUE(app.waitForFinished(380000)) << "the scanner did not finish";
    ASSERT_EQ(app.exitStatus(), QProcess::NormalExit);
    ASSERT_EQ(app.exitCode(), 0);

    const QDir dir(out);
    EXPECT_EQ(scanner::pdfPageCount(dir.filePath("document.pdf")), 2);
    EXPECT_FALSE(QImage(dir.filePath("capture-screen.png")).isNull());
    const double expected = virtualPageAspect();
    for (const char* name : {"page-1.png", "page-2.png"}) {
        SCOPED_TRACE(name);
        const QImage page =
            QImage(dir.filePath(QString::fromLatin1(name))).convertToFormat(QImage::Format_RGB32);
        ASSERT_FALSE(page.isNull());
        const double aspect = double(page.height()) / page.width();
        EXPECT_NEAR(aspect / expected, 1.0, 0.02) << aspect << " against " << expected;
        // No desk in the corners: the wood desk is brown (red well above
        // blue); paper is neutral.
        const int s = page.width() / 100;
        for (const QPoint corner :
             {QPoint(0, 0), QPoint(page.width() - s, 0), QPoint(0, page.height() - s),
              QPoint(page.width() - s, page.height() - s)}) {
            int warm = 0;
            for (int y = corner.y(); y < corner.y() + s; ++y) {
                for (int x = corner.x(); x < corner.x() + s; ++x) {
                    const QRgb p = page.pixel(x, y);
                    warm += qRed(p) - qBlue(p) > 25 || qGray(p) < 120;
                }
            }
            EXPECT_LT(warm, s * s / 50)
                << "desk in the corner at " << corner.x() << "," << corner.y();
        }
    }
}

}  // namespace
