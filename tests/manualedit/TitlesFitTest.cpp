#include "QXDCameraCore.h"
#include "QXDManualEditController.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/Label.h"
#include "platform/ui/OffscreenRender.h"
#include "platform/ui/TextLayout.h"
#include "platform/ui/Window.h"

#include <QCoreApplication>
#include <QDir>
#include <QFontInfo>
#include <QFontMetricsF>

#include <gtest/gtest.h>

// Readable failure messages for titles.
void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

using platform::RunLoop;

// What a one-line label shows of text in width points.
QString shown(const QString& text, const QFont& font, double width) {
    const platform::TextBlock block(text, font, width, 1,
                                    platform::LineBreakMode::TruncatingMiddle);
    return block.lines().empty() ? QString() : block.lines().front().text;
}

class TitlesFitTest : public ::testing::Test {
protected:
    void TearDown() override { QXDCameraCore::bundle()->setPreferredLanguages({}); }
};

// Every button title of every language, on the smallest phone screen, at
// the fonts the screens ask for: the edit screen's 80x30 buttons at
// "HelveticaNeue-Light" 17, and the capture screen's cancel button at
// "HelveticaNeue-THIN" 18, which has the room between the left margin (10)
// and the centred 100-wide watermark of a 320-wide screen. Writes the edit
// screen of each language to titles/edit-<language>.png beside the test.
TEST_F(TitlesFitTest, EveryTitleOfEveryLanguageFitsItsFrame) {
    const QFont light = platform::fontWithName(QStringLiteral("HelveticaNeue-Light"), 17);
    const QFont thin = platform::fontWithName(QStringLiteral("HelveticaNeue-THIN"), 18);
    EXPECT_EQ(QFontInfo(light).family(), QStringLiteral("Roboto")) << "fonts-roboto-unhinted";
    EXPECT_EQ(QFontInfo(light).style(), QFont::StyleNormal);
    EXPECT_EQ(QFontInfo(thin).family(), QStringLiteral("Roboto"));
    EXPECT_LT(QFontInfo(thin).weight(), QFontInfo(light).weight());
    EXPECT_LT(QFontInfo(light).weight(), QFont::Normal);

    const auto bundle = QXDCameraCore::bundle();
    const QStringList languages = bundle->localizations();
    EXPECT_EQ(languages.size(), 8);
    RunLoop::main().useManualClock();
    const QString folder = QCoreApplication::applicationDirPath() + QStringLiteral("/titles");
    QDir().mkpath(folder);
    for (const QString& language : languages) {
        SCOPED_TRACE(language.toStdString());
        bundle->setPreferredLanguages({language});
        ASSERT_EQ(bundle->preferredLocalization(), language);

        const QString cancel = bundle->localizedString(QStringLiteral("button.cancel"), QString());
        const QString captureCancelRoom = shown(cancel, thin, (320 - 100) / 2.0 - 10);
        EXPECT_EQ(captureCancelRoom, cancel) << "capture screen's cancel title";

        QImage page(300, 400, QImage::Format_RGB32);
        page.fill(Qt::white);
        auto controller =
            QXDManualEditController::initWithImage(platform::Image::withCGImage(page), {});
        auto window = platform::Window::create({0, 0, 320, 480});
        window->setRootViewController(controller);
        window->makeKeyAndVisible();
        RunLoop::main().advance(1.0);
        window->layoutIfNeededForHost();

        for (const auto& button : {controller->cancelButton(), controller->confirmButton()}) {
            const QString title = button->currentTitle();
            SCOPED_TRACE(title.toStdString());
            EXPECT_FALSE(title.isEmpty());
            EXPECT_EQ(button->bounds().size(), QSizeF(80, 30));
            const auto& label = button->titleLabel();
            EXPECT_EQ(label->font(), light);
            const QRectF frame = label->frame();
            EXPECT_TRUE(button->bounds().contains(frame)) << "the title stays in its button";
            EXPECT_EQ(shown(title, light, frame.width()), title) << "shown whole, not cut";
            EXPECT_LE(QFontMetricsF(light).horizontalAdvance(title), 80.0);
            EXPECT_LE(QFontMetricsF(light).height(), 30.0);
        }
        EXPECT_TRUE(platform::renderToPng(
            *window, QStringLiteral("%1/edit-%2.png").arg(folder, language), 2.0));
    }
}

}  // namespace
