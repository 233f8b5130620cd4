#include "QXDAlertView.h"

#include "QXDCameraCore.h"
#include "platform/foundation/RunLoop.h"
#include "platform/foundation/Value.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/speech/SpeechSynthesizer.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/InterfaceLoader.h"
#include "platform/ui/Label.h"
#include "platform/ui/ScrollView.h"
#include "platform/ui/TextLayout.h"
#include "views/UIView+NSLayoutContraint.h"

#include <limits>
#include <map>

const QString QXDAlertViewShowNotification = QStringLiteral("QXDAlertViewShowNotification");

namespace {

const QString kInterfaceName = QStringLiteral("QXDAlertView");
const QString kTapAction = QStringLiteral("didTapOnView");

// A string as the platform's "%@" writes it: a missing one reads "(null)".
QString objectDescription(const QString& text) {
    return text.isNull() ? QStringLiteral("(null)") : text;
}

// The transform of a missing view reads as all zeros.
QTransform transformOf(const platform::ViewPtr& view) {
    return view ? view->transform() : platform::affine::make(0, 0, 0, 0, 0, 0);
}

QRectF frameOf(const platform::ViewPtr& view) {
    return view ? view->frame() : QRectF();
}

}  // namespace

// The file's owner while the interface file loads: collects the outlets, which
// belong to the banner the file makes, and routes the tap to that banner.
class QXDAlertView::InterfaceOutlets : public platform::InterfaceOwner {
public:
    bool setOutlet(const QString& name, const platform::ViewPtr& view) override {
        static const QStringList known = {
            QStringLiteral("contentView"), QStringLiteral("titleLabel"),
            QStringLiteral("messageLabel"), QStringLiteral("warningIcon"),
            QStringLiteral("scrollView")};
        if (!known.contains(name)) {
            return false;
        }
        _views[name] = view;
        return true;
    }

    platform::GestureRecognizer::Action actionNamed(const QString& name) override {
        if (name != kTapAction) {
            return {};
        }
        return [](platform::GestureRecognizer& recognizer) {
            for (auto view = recognizer.view(); view; view = view->superview()) {
                if (auto alert = std::dynamic_pointer_cast<QXDAlertView>(view)) {
                    alert->didTapOnView(recognizer);
                    return;
                }
            }
        };
    }

    void connect(QXDAlertView& alert) const {
        alert._contentView = view<platform::View>(QStringLiteral("contentView"));
        alert._titleLabel = view<platform::Label>(QStringLiteral("titleLabel"));
        alert._messageLabel = view<platform::Label>(QStringLiteral("messageLabel"));
        alert._warningIcon = view<platform::ImageView>(QStringLiteral("warningIcon"));
        alert._scrollView = view<platform::ScrollView>(QStringLiteral("scrollView"));
    }

private:
    template <typename T>
    std::shared_ptr<T> view(const QString& name) const {
        const auto it = _views.find(name);
        return it == _views.end() ? nullptr : std::dynamic_pointer_cast<T>(it->second);
    }

    std::map<QString, platform::ViewPtr> _views;
};

std::shared_ptr<QXDAlertView> QXDAlertView::initWithInitialState(const platform::ViewPtr& view) {
    platform::InterfaceLoader::registerViewType(
        kInterfaceName, [] { return platform::View::make<QXDAlertView>(); });
    InterfaceOutlets owner;
    const auto objects =
        platform::InterfaceLoader::load(kInterfaceName, QXDCameraCore::bundle(), &owner);
    auto alert = objects.empty() ? nullptr : std::dynamic_pointer_cast<QXDAlertView>(objects[0]);
    if (alert) {
        owner.connect(*alert);
        alert->setFrame(frameOf(view));
        alert->setTransform(transformOf(view));
        alert->layer()->setMasksToBounds(true);
        alert->setTranslatesAutoresizingMaskIntoConstraints(false);
        alert->_initialView = view;
        alert->_alertDismissTime = 7.0;
    }
    return alert;
}

std::shared_ptr<QXDAlertView> QXDAlertView::init() {
    auto alert = platform::View::make<QXDAlertView>();
    alert->layer()->setMasksToBounds(true);
    alert->setTranslatesAutoresizingMaskIntoConstraints(false);
    alert->_alertDismissTime = 7.0;
    return alert;
}

QString QXDAlertView::typeName() const {
    return QStringLiteral("QXDAlertView");
}

std::shared_ptr<QXDAlertView> QXDAlertView::self() {
    return std::static_pointer_cast<QXDAlertView>(shared_from_this());
}

void QXDAlertView::setTitle(const QString& title) {
    if (platform::value::isSameObject(title, _title)) {
        return;
    }
    _title = title;
    if (auto label = titleLabel()) {
        label->setText(_title);
    }
}

void QXDAlertView::setMessage(const QString& message) {
    if (platform::value::isSameObject(message, _message)) {
        return;
    }
    _message = message;
    if (auto label = messageLabel()) {
        label->setText(_message);
    }
    updateScrollViewContentSize();
}

const std::shared_ptr<platform::SpeechSynthesizer>& QXDAlertView::synthesizer() {
    if (!_synthesizer) {
        _synthesizer = platform::SpeechSynthesizer::create();
    }
    return _synthesizer;
}

void QXDAlertView::layoutSubviews() {
    View::layoutSubviews();
    if (auto content = contentView()) {
        content->layoutIfNeeded();
    }
    updateScrollViewContentSize();
}

void QXDAlertView::initConstraints(const platform::ViewPtr& view) {
    const std::map<QString, platform::ViewPtr> views = {
        {QStringLiteral("self"), shared_from_this()},
        {QStringLiteral("_scrollView"), scrollView()},
        {QStringLiteral("_messageLabel"), messageLabel()},
    };
    std::vector<platform::LayoutConstraintPtr> constraints;
    for (const char* format :
         {"H:|-20-[self]-20-|", "V:|-40-[self]", "H:[_messageLabel(==_scrollView)]"}) {
        const auto made = platform::LayoutConstraint::constraintsWithVisualFormat(
            QString::fromLatin1(format), 0, {}, views);
        constraints.insert(constraints.end(), made.begin(), made.end());
    }
    view->addConstraints(constraints);

    if (const auto icon = warningIcon()) {
        if (auto top = constraintForAttribute(*icon, platform::LayoutAttribute::Top)) {
            top->setConstant(6.0);
        }
        if (auto leading = constraintForAttribute(*icon, platform::LayoutAttribute::Leading)) {
            leading->setConstant(8.0);
        }
    }
    updateScrollViewContentSize();
}

double QXDAlertView::getLabelHeight(const platform::Label& label, const QSizeF& size) const {
    return platform::boundingRectWithSize(
               label.text(), size, platform::string_drawing::kUsesLineFragmentOrigin, label.font())
        .height();
}

void QXDAlertView::updateScrollViewContentSize() {
    const auto scroll = scrollView();
    const auto label = messageLabel();
    if (!scroll || !label) {
        return;
    }
    const double width = scroll->bounds().width();
    const double height = getLabelHeight(*label, QSizeF(width, std::numeric_limits<double>::max()));
    // The label wraps at the scroll view's width, and the scroll view scrolls
    // over the whole text: neither follows from the constraints by itself.
    label->setPreferredMaxLayoutWidth(width);
    scroll->setContentSize(QSizeF(width, height));

    if (auto constraint = constraintForAttribute(*scroll, platform::LayoutAttribute::Height)) {
        const auto host = superview();
        const double half = host ? host->bounds().height() / 2.0 : 0.0;
        constraint->setConstant(height < half ? height : half);
    }
    updateConstraintsIfNeeded();
}

void QXDAlertView::showInView(const platform::ViewPtr& view) {
    layer()->setCornerRadius(5.0);
    view->addSubview(shared_from_this());
    initConstraints(view);

    // Completion blocks live in the running animations, which the banner's
    // own layers hold: they see the banner weakly, or it would keep itself.
    const std::weak_ptr<QXDAlertView> weak = self();
    View::animate(
        0.3, [this] { layoutIfNeeded(); },
        [weak](bool finished) {
            const auto alert = weak.lock();
            if (!finished || !alert) {
                return;
            }
            View::animate(0.2, [alert] {
                alert->updateScrollViewContentSize();
                if (auto content = alert->contentView()) {
                    content->setAlpha(1.0);
                }
            });
        });
    startHideCounter();

    QXD_LOG(QStringLiteral("QXDAlertView added to the view with title: ") +
            objectDescription(_title) + QStringLiteral(" body: ") + objectDescription(_message) +
            QString::asprintf(" dismiss time: %f", _alertDismissTime));
}

void QXDAlertView::startHideCounter() {
    if (_alertDismissTime > 0.0) {
        platform::RunLoop::main().performAfterDelay(this, _alertDismissTime,
                                                    [alert = self()] { alert->hide(); });
    }
}

void QXDAlertView::hide() {
    // The hide handler may drop the last owner but its caller's.
    const auto keep = self();
    // A tap before the timer leaves no second hide behind.
    platform::RunLoop::main().cancelPreviousPerformRequests(this);

    // Until the slide ends the banner is kept by its host, never by its own
    // animation's completion.
    const std::weak_ptr<QXDAlertView> weak = keep;
    View::animate(
        0.3,
        [this] {
            setTransform(transformOf(_initialView));
            setFrame(frameOf(_initialView));
            setAlpha(0.0);
        },
        [weak](bool finished) {
            const auto alert = weak.lock();
            if (finished && alert) {
                alert->removeFromSuperview();
            }
        });
    if (_hideHandler) {
        _hideHandler();
    }
    QXD_LOG(QStringLiteral("QXDAlertView was removed from the view"));
}

void QXDAlertView::didTapOnView(platform::GestureRecognizer& /*recognizer*/) {
    hide();
}
