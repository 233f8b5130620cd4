#include "PageWarp.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace scanner {

QImage flattenPage(const QImage& picture, const Quad& outline) {
    const QSizeF sides = meanSides(outline);
    const double trim = std::max(1.0, 0.003 * std::min(sides.width(), sides.height()));
    const int width = static_cast<int>(std::lround(sides.width() - 2 * trim));
    const int height = static_cast<int>(std::lround(sides.height() - 2 * trim));
    if (picture.isNull() || width < 2 || height < 2 || !isConvex(outline) ||
        double(width) * height > 16.0 * picture.width() * picture.height()) {
        return {};
    }
    const bool grey = picture.format() == QImage::Format_Grayscale8;
    const QImage source = grey ? picture : picture.convertToFormat(QImage::Format_RGB32);
    const cv::Mat input(source.height(), source.width(), grey ? CV_8UC1 : CV_8UC4,
                        const_cast<uchar*>(source.constBits()),
                        static_cast<std::size_t>(source.bytesPerLine()));
    QImage page(width, height, grey ? QImage::Format_Grayscale8 : QImage::Format_RGB32);
    cv::Mat output(height, width, grey ? CV_8UC1 : CV_8UC4, page.bits(),
                   static_cast<std::size_t>(page.bytesPerLine()));
    // Outlines run along pixel edges; OpenCV puts pixel centres on whole
    // numbers.
    const cv::Point2f from[4] = {{float(outline[0].x() - 0.5), float(outline[0].y() - 0.5)},
                                 {float(outline[1].x() - 0.5), float(outline[1].y() - 0.5)},
                                 {float(outline[2].x() - 0.5), float(outline[2].y() - 0.5)},
                                 {float(outline[3].x() - 0.5), float(outline[3].y() - 0.5)}};
    const float low = float(-0.5 - trim);
    const float right = float(width - 0.5 + trim);
    const float bottom = float(height - 0.5 + trim);
    const cv::Point2f to[4] = {{low, low}, {right, low}, {right, bottom}, {low, bottom}};
    cv::warpPerspective(input, output, cv::getPerspectiveTransform(from, to), output.size(),
                        cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return page;
}

Quad frameToStill(const Quad& outline, const QSize& frameSize, const QSize& stillSize) {
    if (frameSize.isEmpty()) {
        return outline;
    }
    return scaled(outline, double(stillSize.width()) / frameSize.width(),
                  double(stillSize.height()) / frameSize.height());
}

}  // namespace scanner
