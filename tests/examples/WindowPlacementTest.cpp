#include "WindowPlacement.h"

#include <gtest/gtest.h>

namespace {

using examples::fitWindow;
using examples::kScreenMargin;

// A phone-sized window on common screens, at 100 % to 200 % scale (the
// available area is in device-independent pixels, so a 1920x1080 screen at
// 200 % offers 960x540 less its panel).
TEST(WindowPlacementTest, WindowsFitTheAvailableAreaWithAMarginAndKeepTheirShape) {
    const QSize wanted(375, 667);
    const int titleBar = 37;
    const int border = 1;
    struct Screen {
        QRect available;
        bool shrinks;
    };
    for (const Screen& screen : {Screen{{0, 27, 1920, 1053}, false},    // 100 %, top panel
                                 Screen{{0, 0, 1280, 760}, false},      // 150 % of 1920x1080
                                 Screen{{0, 27, 960, 513}, true},       // 200 %, top panel
                                 Screen{{1920, 0, 683, 384}, true}}) {  // 200 % of 1366x768
        SCOPED_TRACE(testing::Message()
                     << screen.available.width() << "x" << screen.available.height());
        const QRect placed = fitWindow(wanted, screen.available, titleBar, border);
        const QRect withFrame = placed.adjusted(-border, -titleBar, border, border);
        EXPECT_TRUE(screen.available.contains(withFrame)) << "the whole window is on screen";
        EXPECT_GE(withFrame.top(), screen.available.top() + kScreenMargin);
        EXPECT_LE(withFrame.bottom(), screen.available.bottom() - kScreenMargin + 1);
        EXPECT_EQ(placed.size() != wanted, screen.shrinks);
        EXPECT_NEAR(double(placed.width()) / placed.height(), 375.0 / 667.0, 0.01);
        EXPECT_NEAR(placed.center().x(), screen.available.center().x(), 1);
    }
}

}  // namespace
