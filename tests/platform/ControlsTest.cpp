#include "platform/foundation/RunLoop.h"
#include "platform/graphics/Image.h"
#include "platform/layers/Transaction.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"
#include "platform/ui/ScrollView.h"
#include "platform/ui/TapGestureRecognizer.h"
#include "platform/ui/TextLayout.h"
#include "platform/ui/VisualEffectView.h"
#include "platform/ui/Window.h"

#include <QFontMetricsF>
#include <QPainter>

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

namespace {

using platform::Button;
using platform::GestureRecognizer;
using platform::ImagePtr;
using platform::Touch;
namespace control_event = platform::control_event;
namespace control_state = platform::control_state;

ImagePtr solidImage(QSize pixels, const QColor& color, double scale = 1.0) {
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return platform::Image::withCGImage(image, scale);
}

// The left half of the stored pixels red, the right half green.
ImagePtr halvesImage(QSize pixels, double scale, platform::ImageOrientation orientation) {
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::green);
    QPainter(&image).fillRect(0, 0, pixels.width() / 2, pixels.height(), Qt::red);
    return platform::Image::withCGImage(image, scale, orientation);
}

int luminance(const QImage& image, int x, int y) {
    return qGray(image.pixel(x, y));
}

// The smallest rectangle holding the pixels darker than mid-grey.
QRect inkBounds(const QImage& image) {
    QRect ink;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (luminance(image, x, y) < 128) {
                ink |= QRect(x, y, 1, 1);
            }
        }
    }
    return ink;
}

// A 200 × 200 white window on the manual clock, with implicit layer
// animations off so that snapshots show the model.
class WindowTest : public testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        platform::Transaction::begin();
        platform::Transaction::setDisableActions(true);
        window->setBackgroundColor(Qt::white);
    }
    void TearDown() override { platform::Transaction::commit(); }

    void drag(const QPointF& from, const QPointF& to) {
        window->sendTouch(Touch::Phase::Began, from);
        window->sendTouch(Touch::Phase::Moved, to);
        window->sendTouch(Touch::Phase::Ended, to);
    }

    std::shared_ptr<platform::Window> window = platform::Window::create({0, 0, 200, 200});
};

// --- Touch tracking of buttons --------------------------------------------------

class ButtonTouchTest : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        button->setFrame({20, 20, 60, 40});
        window->addSubview(button);
        button->addTarget(
            this, [this](platform::Control&) { ++ups; }, control_event::kTouchUpInside);
        button->addTarget(
            this, [this](platform::Control&) { ++outs; }, control_event::kTouchUpOutside);
    }

    std::shared_ptr<Button> button = Button::create();
    int ups = 0;
    int outs = 0;
};

TEST_F(ButtonTouchTest, TapInsideHighlightsThenSendsTouchUpInsideOnce) {
    window->sendTouch(Touch::Phase::Began, {50, 40});
    EXPECT_TRUE(button->isHighlighted());
    EXPECT_EQ(button->state(), control_state::kHighlighted);
    window->sendTouch(Touch::Phase::Ended, {52, 41});
    EXPECT_FALSE(button->isHighlighted());
    EXPECT_EQ(ups, 1);
    EXPECT_EQ(outs, 0);
}

TEST_F(ButtonTouchTest, TouchLiftedFarOutsideSendsTouchUpOutsideInstead) {
    window->sendTouch(Touch::Phase::Began, {50, 40});
    window->sendTouch(Touch::Phase::Moved, {120, 40});
    EXPECT_TRUE(button->isHighlighted()) << "40 points out is within the tracking slop";
    window->sendTouch(Touch::Phase::Moved, {190, 190});
    EXPECT_FALSE(button->isHighlighted());
    window->sendTouch(Touch::Phase::Ended, {190, 190});
    EXPECT_EQ(ups, 0);
    EXPECT_EQ(outs, 1);
}

TEST_F(ButtonTouchTest, DisabledButtonAbsorbsTapsWithoutActing) {
    button->setEnabled(false);
    EXPECT_EQ(button->state(), control_state::kDisabled);
    EXPECT_EQ(window->hitTest({50, 40}), button) << "the touch stays with the button";
    window->tap({50, 40});
    EXPECT_EQ(ups, 0);
    EXPECT_FALSE(button->isHighlighted());
    button->setEnabled(true);
    window->tap({50, 40});
    EXPECT_EQ(ups, 1);

    window->sendTouch(Touch::Phase::Began, {50, 40});
    button->setEnabled(false);
    window->sendTouch(Touch::Phase::Ended, {50, 40});
    EXPECT_EQ(ups, 1) << "disabled while the finger was down";
}

TEST_F(ButtonTouchTest, ActionsFollowTheirEventsKeysAndTargetLifetimes) {
    int changes = 0;
    auto owner = std::make_shared<int>(0);
    button->addTarget(
        std::weak_ptr<void>(owner), [&](platform::Control&) { ++changes; },
        control_event::kValueChanged);
    const int key = 0;
    button->addTarget(
        &key, [&](platform::Control&) { changes += 10; },
        control_event::kValueChanged | control_event::kTouchDown);
    button->sendActionsForControlEvents(control_event::kValueChanged);
    EXPECT_EQ(changes, 11);

    owner.reset();
    button->removeTarget(&key, control_event::kValueChanged);
    button->sendActionsForControlEvents(control_event::kValueChanged);
    EXPECT_EQ(changes, 11) << "the owner is gone and the keyed action lost this event";
    EXPECT_NE(button->allControlEvents() & control_event::kTouchDown, 0u);
    button->sendActionsForControlEvents(control_event::kTouchDown);
    EXPECT_EQ(changes, 21);
}

// --- Tap recognisers -------------------------------------------------------------

class TapRecognizerTest : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        window->addSubview(area);
        area->addGestureRecognizer(tap);
        tap->addTarget(this, [this](GestureRecognizer& recognizer) {
            EXPECT_EQ(recognizer.state(), GestureRecognizer::Recognized);
            ++taps;
            inArea = recognizer.locationInView(area.get());
            inWindow = recognizer.locationInView(nullptr);
        });
    }

    platform::ViewPtr area = platform::View::create({50, 60, 100, 80});
    std::shared_ptr<platform::TapGestureRecognizer> tap = platform::TapGestureRecognizer::create();
    int taps = 0;
    QPointF inArea;
    QPointF inWindow;
};

TEST_F(TapRecognizerTest, SingleTapReportsWhereItLanded) {
    window->tap({70, 90});
    EXPECT_EQ(taps, 1);
    EXPECT_EQ(inArea, QPointF(20, 30));
    EXPECT_EQ(inWindow, QPointF(70, 90));
    EXPECT_EQ(tap->state(), GestureRecognizer::State::Possible) << "reset after the touch";

    drag({70, 90}, {85, 90});
    EXPECT_EQ(taps, 1) << "a finger that moved 15 points did not tap";
    window->sendTouch(Touch::Phase::Began, {70, 90});
    window->sendTouch(Touch::Phase::Ended, {70, 102});
    EXPECT_EQ(taps, 1) << "nor one that lifted 12 points away";
    window->tap({60, 70});
    EXPECT_EQ(taps, 2);
}

TEST_F(TapRecognizerTest, DoubleTapNeedsTheSecondTapInTime) {
    tap->setNumberOfTapsRequired(2);
    window->tap({70, 90});
    platform::RunLoop::main().advance(0.2);
    EXPECT_EQ(taps, 0);
    window->tap({72, 91});
    EXPECT_EQ(taps, 1);

    window->tap({70, 90});
    platform::RunLoop::main().advance(0.5);
    EXPECT_EQ(tap->state(), GestureRecognizer::State::Failed);
    window->tap({70, 90});
    EXPECT_EQ(taps, 1) << "a late second tap only starts a new gesture";
    platform::RunLoop::main().advance(0.1);
    window->tap({70, 90});
    EXPECT_EQ(taps, 2);
}

TEST_F(TapRecognizerTest, EnabledButtonsKeepTheirTapsFromRecognizersBehindThem) {
    auto button = Button::create();
    button->setFrame({10, 10, 30, 30});
    area->addSubview(button);
    int presses = 0;
    button->addTarget(
        this, [&](platform::Control&) { ++presses; }, control_event::kTouchUpInside);

    window->tap({70, 90});
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(taps, 0);
    button->setEnabled(false);
    window->tap({70, 90});
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(taps, 1) << "a disabled button lets the recogniser have the tap";
}

// --- Button content ------------------------------------------------------------------

using ButtonContentTest = WindowTest;

TEST_F(ButtonContentTest, StatesWithoutTheirOwnValuesFallBackToNormal) {
    auto button = Button::create();
    EXPECT_EQ(button->currentTitleColor(), QColor(Qt::white));
    const ImagePtr off = solidImage({4, 4}, Qt::red);
    const ImagePtr on = solidImage({4, 4}, Qt::green);
    button->setImage(off, control_state::kNormal);
    button->setTitle(QStringLiteral("Off"), control_state::kNormal);
    button->setTitleColor(Qt::blue, control_state::kNormal);

    EXPECT_EQ(button->imageForState(control_state::kSelected), off);
    button->setSelected(true);
    EXPECT_EQ(button->currentImage(), off);
    EXPECT_EQ(button->imageView()->image(), off);

    button->setImage(on, control_state::kSelected);
    button->setTitle(QStringLiteral("On"), control_state::kSelected);
    EXPECT_EQ(button->imageView()->image(), on);
    EXPECT_EQ(button->titleLabel()->text(), QStringLiteral("On"));
    EXPECT_EQ(button->titleLabel()->textColor(), QColor(Qt::blue));
    EXPECT_EQ(button->imageForState(control_state::kSelected | control_state::kHighlighted), off)
        << "a combined state falls back to normal, not to selected";

    button->setSelected(false);
    button->setHighlighted(true);
    EXPECT_EQ(button->currentImage(), off);
    EXPECT_NE(button->imageView()->image(), off) << "shown darkened while highlighted";
    EXPECT_EQ(button->titleLabel()->text(), QStringLiteral("Off"));
}

TEST_F(ButtonContentTest, IntrinsicSizeIsImageAndTitleSideBySidePlusContentInsets) {
    auto button = Button::create();
    button->setImage(solidImage({40, 30}, Qt::red, 2.0), control_state::kNormal);
    EXPECT_EQ(button->intrinsicContentSize(), QSizeF(20, 15)) << "in points, at scale 2";
    button->setImageEdgeInsets({12, 8, 12, 8});
    EXPECT_EQ(button->intrinsicContentSize(), QSizeF(20, 15)) << "image insets do not count";
    button->setContentEdgeInsets({5, 6, 7, 8});
    EXPECT_EQ(button->intrinsicContentSize(), QSizeF(34, 27));

    button->setTitle(QStringLiteral("Cancel"), control_state::kNormal);
    button->titleLabel()->setFont(platform::fontWithName(QStringLiteral("HelveticaNeue-THIN"), 18));
    const QSizeF title = button->titleLabel()->intrinsicContentSize();
    EXPECT_GT(title.width(), 30);
    EXPECT_EQ(button->intrinsicContentSize(),
              QSizeF(20 + title.width() + 14, std::max(15.0, title.height()) + 12));
}

TEST_F(ButtonContentTest, LayoutCentresTheImageWithinItsInsetsAndAlignment) {
    auto button = Button::create();
    button->setFrame({0, 0, 100, 60});
    window->addSubview(button);
    button->setImage(solidImage({20, 10}, Qt::red), control_state::kNormal);
    window->layoutIfNeededForHost();
    EXPECT_EQ(button->imageView()->frame(), QRectF(40, 25, 20, 10));

    button->setImageEdgeInsets({0, 20, 0, 0});
    window->layoutIfNeededForHost();
    EXPECT_EQ(button->imageView()->frame(), QRectF(50, 25, 20, 10));

    button->setContentHorizontalAlignment(platform::ContentHorizontalAlignment::Left);
    window->layoutIfNeededForHost();
    EXPECT_EQ(button->imageView()->frame(), QRectF(20, 25, 20, 10));

    // An image larger than its area shrinks to the area.
    button->setFrame({0, 0, 50, 44});
    button->setContentHorizontalAlignment(platform::ContentHorizontalAlignment::Center);
    button->setImageEdgeInsets({12, 8, 12, 8});
    button->setImage(solidImage({40, 40}, Qt::red), control_state::kNormal);
    window->layoutIfNeededForHost();
    EXPECT_EQ(button->imageView()->frame(), QRectF(8, 12, 34, 20));
}

// --- Labels and text measurement -----------------------------------------------

class LabelTest : public WindowTest {
protected:
    const QString text =
        QStringLiteral("Hold the camera steady over the document until the outline turns green.");
    const QFont font = platform::fontWithName(QStringLiteral("HelveticaNeue-Light"), 17);
    const QFontMetricsF metrics{font};
};

TEST_F(LabelTest, FontNamesMapToWeightAndSize) {
    EXPECT_EQ(font.weight(), QFont::Light);
    EXPECT_EQ(font.pixelSize(), 17);
    EXPECT_EQ(platform::fontWithName(QStringLiteral("HelveticaNeue-THIN"), 18).weight(),
              QFont::Thin);
    EXPECT_EQ(platform::systemFont(13).weight(), QFont::Normal);
}

TEST_F(LabelTest, MeasurementWrapsLongTextWithinTheWidth) {
    using platform::boundingRectWithSize;
    const unsigned lineFragments = platform::string_drawing::kUsesLineFragmentOrigin;
    const QRectF one = boundingRectWithSize(text, {DBL_MAX, DBL_MAX}, lineFragments, font);
    EXPECT_DOUBLE_EQ(one.width(), metrics.horizontalAdvance(text));
    EXPECT_DOUBLE_EQ(one.height(), metrics.height());

    const QRectF wrapped = boundingRectWithSize(text, {150, DBL_MAX}, lineFragments, font);
    EXPECT_EQ(wrapped.topLeft(), QPointF(0, 0));
    EXPECT_LE(wrapped.width(), 150);
    const double lines = std::round(wrapped.height() / metrics.height());
    EXPECT_GE(lines, 3);
    EXPECT_DOUBLE_EQ(wrapped.height(), lines * metrics.height()) << "fractional, not rounded";

    const QRectF baseline = boundingRectWithSize(text, {150, DBL_MAX}, 0, font);
    EXPECT_DOUBLE_EQ(baseline.top(), -metrics.ascent()) << "one line from the baseline";
    EXPECT_DOUBLE_EQ(baseline.width(), one.width());
}

TEST_F(LabelTest, IntrinsicSizeFollowsLinesAndPreferredWidth) {
    auto label = platform::Label::create();
    EXPECT_EQ(label->intrinsicContentSize(), QSizeF(0, 0));
    label->setFont(font);
    label->setText(text);
    const QSizeF single = label->intrinsicContentSize();
    EXPECT_EQ(single.width(), std::ceil(metrics.horizontalAdvance(text)));
    EXPECT_EQ(single.height(), std::ceil(metrics.height()));

    label->setNumberOfLines(0);
    label->setPreferredMaxLayoutWidth(120);
    const QSizeF wrapped = label->intrinsicContentSize();
    EXPECT_LE(wrapped.width(), 120);
    EXPECT_GE(wrapped.height(), std::ceil(4 * metrics.height()));
    label->setNumberOfLines(2);
    EXPECT_EQ(label->intrinsicContentSize().height(), std::ceil(2 * metrics.height()));
}

TEST_F(LabelTest, DrawsItsTextAlignedAndCentredVertically) {
    auto label = platform::Label::create({10, 10, 180, 60});
    label->setText(QStringLiteral("Cancel"));
    window->addSubview(label);
    label->setTextAlignment(platform::TextAlignment::Right);
    QRect ink = inkBounds(window->snapshot());
    ASSERT_FALSE(ink.isEmpty());
    EXPECT_GE(ink.right(), 184);
    EXPECT_LE(ink.right(), 190);
    EXPECT_GT(ink.left(), 100);
    EXPECT_NEAR(ink.center().y(), 40, 4);

    label->setTextAlignment(platform::TextAlignment::Center);
    ink = inkBounds(window->snapshot());
    EXPECT_NEAR(ink.center().x(), 100, 3);
}

// --- Image views -------------------------------------------------------------------

using ImageViewTest = WindowTest;

TEST_F(ImageViewTest, AspectFitLetterboxesAndCentreKeepsTheNaturalSize) {
    auto view = platform::ImageView::create(solidImage({40, 20}, Qt::red));
    EXPECT_EQ(view->frame(), QRectF(0, 0, 40, 20));
    EXPECT_EQ(view->intrinsicContentSize(), QSizeF(40, 20));
    view->setFrame({0, 0, 100, 100});
    view->setContentMode(platform::ContentMode::ScaleAspectFit);
    window->addSubview(view);

    QImage shot = window->snapshot();
    EXPECT_EQ(shot.pixelColor(50, 50), QColor(Qt::red));
    EXPECT_EQ(shot.pixelColor(1, 27), QColor(Qt::red)) << "the full width";
    EXPECT_EQ(shot.pixelColor(50, 72), QColor(Qt::red));
    EXPECT_EQ(shot.pixelColor(50, 22), QColor(Qt::white)) << "bars above and below";
    EXPECT_EQ(shot.pixelColor(50, 78), QColor(Qt::white));

    view->setContentMode(platform::ContentMode::Center);
    shot = window->snapshot();
    EXPECT_EQ(shot.pixelColor(31, 41), QColor(Qt::red));
    EXPECT_EQ(shot.pixelColor(28, 50), QColor(Qt::white));
    EXPECT_EQ(shot.pixelColor(50, 62), QColor(Qt::white));
}

TEST_F(ImageViewTest, ShowsTheImageTurnedByItsOrientation) {
    // Stored 20 × 10 pixels at scale 2, turned a quarter clockwise: 5 × 10
    // points with the stored left half on top.
    auto view =
        platform::ImageView::create(halvesImage({20, 10}, 2.0, platform::ImageOrientation::Right));
    EXPECT_EQ(view->intrinsicContentSize(), QSizeF(5, 10));
    view->setFrame({0, 0, 50, 100});
    window->addSubview(view);
    const QImage shot = window->snapshot();
    EXPECT_EQ(shot.pixelColor(25, 20), QColor(Qt::red));
    EXPECT_EQ(shot.pixelColor(25, 80), QColor(Qt::green));
}

// --- Scroll views -------------------------------------------------------------------

using ScrollViewTest = WindowTest;

TEST_F(ScrollViewTest, DraggingMovesTheOffsetWithinTheContent) {
    auto scroll = platform::ScrollView::create({0, 0, 100, 100});
    scroll->setContentSize({100, 300});
    auto marker = platform::View::create({0, 150, 100, 50});
    marker->setBackgroundColor(Qt::red);
    marker->setUserInteractionEnabled(false);
    scroll->addSubview(marker);
    window->addSubview(scroll);
    EXPECT_TRUE(scroll->clipsToBounds());

    drag({50, 80}, {30, 30});
    EXPECT_EQ(scroll->contentOffset(), QPointF(0, 50))
        << "no sideways scrolling on a narrow content";
    drag({50, 90}, {50, 20});
    EXPECT_EQ(scroll->contentOffset(), QPointF(0, 120));
    EXPECT_EQ(window->snapshot().pixelColor(50, 40), QColor(Qt::red)) << "content moved up by 120";

    window->sendTouch(Touch::Phase::Began, {50, 90});
    window->sendTouch(Touch::Phase::Moved, {50, -200});
    EXPECT_TRUE(scroll->isDragging());
    EXPECT_EQ(scroll->contentOffset(), QPointF(0, 200)) << "stopped at the bottom";
    window->sendTouch(Touch::Phase::Ended, {50, -200});
    drag({50, 10}, {50, 400});
    EXPECT_EQ(scroll->contentOffset(), QPointF(0, 0)) << "stopped at the top";

    scroll->setScrollEnabled(false);
    drag({50, 90}, {50, 20});
    EXPECT_EQ(scroll->contentOffset(), QPointF(0, 0));
}

// --- Visual effects --------------------------------------------------------------------

class VisualEffectViewTest : public WindowTest {
protected:
    // Vertical stripes, 4 points black then 4 white, over the whole window.
    void addStripes() {
        QImage stripes(200, 200, QImage::Format_ARGB32_Premultiplied);
        stripes.fill(Qt::white);
        QPainter painter(&stripes);
        for (int x = 0; x < 200; x += 8) {
            painter.fillRect(x, 0, 4, 200, Qt::black);
        }
        window->addSubview(platform::ImageView::create(platform::Image::withCGImage(stripes, 1.0)));
    }

    // Mean and range of the luminance along row y between x0 and x1.
    static std::pair<double, int> rowStats(const QImage& image, int y, int x0, int x1) {
        double sum = 0;
        int low = 255;
        int high = 0;
        for (int x = x0; x < x1; ++x) {
            const int value = luminance(image, x, y);
            sum += value;
            low = std::min(low, value);
            high = std::max(high, value);
        }
        return {sum / (x1 - x0), high - low};
    }
};

TEST_F(VisualEffectViewTest, DarkBlurDarkensAndSmoothsWhatIsBeneath) {
    addStripes();
    auto blur = platform::VisualEffectView::create(
        platform::BlurEffect::effectWithStyle(platform::BlurEffectStyle::Dark), {100, 0, 100, 200});
    auto badge = platform::View::create({40, 40, 10, 10});
    badge->setBackgroundColor(Qt::red);
    blur->contentView()->addSubview(badge);
    window->addSubview(blur);
    window->layoutIfNeededForHost();
    EXPECT_EQ(blur->contentView()->frame(), QRectF(0, 0, 100, 200));

    const QImage shot = window->snapshot();
    const auto [plainMean, plainRange] = rowStats(shot, 100, 20, 80);
    const auto [blurredMean, blurredRange] = rowStats(shot, 100, 130, 180);
    EXPECT_EQ(plainRange, 255);
    EXPECT_LT(blurredRange, 40) << "the stripes are smoothed";
    EXPECT_LT(blurredMean, plainMean * 0.75) << "and darkened";
    EXPECT_EQ(shot.pixelColor(145, 45), QColor(Qt::red)) << "content stays sharp on top";
}

TEST_F(VisualEffectViewTest, VibrancyLiftsWhatIsBeneathSlightly) {
    window->setBackgroundColor(Qt::black);
    const auto dark = platform::BlurEffect::effectWithStyle(platform::BlurEffectStyle::Dark);
    window->addSubview(platform::VisualEffectView::create(
        platform::VibrancyEffect::effectForBlurEffect(dark), {0, 0, 100, 100}));
    const QImage shot = window->snapshot();
    EXPECT_EQ(luminance(shot, 150, 50), 0);
    EXPECT_GT(luminance(shot, 50, 50), 5);
    EXPECT_LT(luminance(shot, 50, 50), 60);
}

}  // namespace
