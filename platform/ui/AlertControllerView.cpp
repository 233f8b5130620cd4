#include "platform/ui/AlertControllerView.h"

#include "platform/ui/AlertController.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/Label.h"

#include <algorithm>

namespace platform {
namespace {

constexpr double kTextInset = 16.0;
constexpr double kTextTop = 20.0;
constexpr double kTextGap = 4.0;
constexpr double kTextBottom = 20.0;
constexpr double kCornerRadius = 13.0;
constexpr double kSeparator = 0.5;
// Labels wrap within their width and grow as tall as their text.
constexpr double kUnlimitedHeight = 1e6;

const QColor kDimming(0, 0, 0, 102);
const QColor kBoxColor(245, 245, 245);
const QColor kSeparatorColor(0, 0, 0, 48);
const QColor kDestructiveColor(255, 59, 48);

std::shared_ptr<Label> makeLabel(const QFont& font) {
    auto label = Label::create();
    label->setFont(font);
    label->setNumberOfLines(0);
    label->setTextAlignment(TextAlignment::Center);
    return label;
}

std::shared_ptr<Button> makeButton(const AlertAction& action) {
    auto button = Button::create(ButtonType::System);
    button->setTitle(action.title(), control_state::kNormal);
    button->titleLabel()->setFont(action.style() == AlertActionStyle::Cancel ? boldSystemFont(17)
                                                                             : systemFont(17));
    if (action.style() == AlertActionStyle::Destructive) {
        button->setTitleColor(kDestructiveColor, control_state::kNormal);
    }
    button->setIsAccessibilityElement(true);
    button->setAccessibilityLabel(action.title());
    return button;
}

}  // namespace

std::shared_ptr<AlertControllerView> AlertControllerView::create() {
    return make<AlertControllerView>();
}

AlertControllerView::AlertControllerView() = default;

QString AlertControllerView::typeName() const {
    return QStringLiteral("AlertControllerView");
}

void AlertControllerView::didCreate() {
    View::didCreate();
    setBackgroundColor(kDimming);
    _box = View::create();
    _box->setBackgroundColor(kBoxColor);
    _box->layer()->setCornerRadius(kCornerRadius);
    _box->setClipsToBounds(true);
    addSubview(_box);
    _titleLabel = makeLabel(boldSystemFont(17));
    _messageLabel = makeLabel(systemFont(13));
    _box->addSubview(_titleLabel);
    _box->addSubview(_messageLabel);
}

void AlertControllerView::setTexts(const QString& title, const QString& message) {
    _titleLabel->setText(title);
    _messageLabel->setText(message);
    setNeedsLayout();
}

void AlertControllerView::setActions(const std::vector<std::shared_ptr<AlertAction>>& actions,
                                     ActionHandler handler) {
    for (const auto& button : _buttons) {
        button->removeFromSuperview();
    }
    for (const auto& separator : _separators) {
        separator->removeFromSuperview();
    }
    _buttons.clear();
    _separators.clear();

    // The cancel button goes first in a row and last in a stack.
    _shownActions = actions;
    const auto cancel = std::find_if(_shownActions.begin(), _shownActions.end(), [](const auto& a) {
        return a->style() == AlertActionStyle::Cancel;
    });
    if (cancel != _shownActions.end()) {
        const auto action = *cancel;
        _shownActions.erase(cancel);
        if (_shownActions.size() < 2) {
            _shownActions.insert(_shownActions.begin(), action);
        } else {
            _shownActions.push_back(action);
        }
    }
    for (const auto& action : _shownActions) {
        auto button = makeButton(*action);
        button->addTarget(
            nullptr,
            [handler, weak = std::weak_ptr<AlertAction>(action)](Control&) {
                if (const auto chosen = weak.lock(); chosen && handler) {
                    handler(chosen);
                }
            },
            control_event::kTouchUpInside);
        _buttons.push_back(button);
        _box->addSubview(button);
    }
    // One line above the buttons, and one between each two of them.
    for (std::size_t i = 0; i < _shownActions.size(); ++i) {
        auto separator = View::create();
        separator->setBackgroundColor(kSeparatorColor);
        _separators.push_back(separator);
        _box->addSubview(separator);
    }
    updateEnabledStates();
    setNeedsLayout();
}

void AlertControllerView::updateEnabledStates() {
    for (std::size_t i = 0; i < _buttons.size(); ++i) {
        _buttons[i]->setEnabled(_shownActions[i]->isEnabled());
    }
}

void AlertControllerView::layoutSubviews() {
    View::layoutSubviews();
    const double width = std::min(kWidth, bounds().width());
    const double textHeight = layoutTexts(width);
    layoutButtons(textHeight, width);
    const bool row = _buttons.size() <= 2;
    const double buttonsHeight =
        _buttons.empty() ? 0.0 : kButtonHeight * (row ? 1.0 : double(_buttons.size()));
    const double height = textHeight + buttonsHeight;
    const QRectF area = bounds();
    _box->setFrame(
        QRectF(area.center().x() - width / 2.0, area.center().y() - height / 2.0, width, height));
}

double AlertControllerView::layoutTexts(double width) {
    const double textWidth = std::max(0.0, width - 2.0 * kTextInset);
    double y = kTextTop;
    bool any = false;
    for (const auto& label : {_titleLabel, _messageLabel}) {
        label->setHidden(label->text().isEmpty());
        if (label->isHidden()) {
            continue;
        }
        if (any) {
            y += kTextGap;
        }
        const double height = label->sizeThatFits(QSizeF(textWidth, kUnlimitedHeight)).height();
        label->setFrame(QRectF(kTextInset, y, textWidth, height));
        y += height;
        any = true;
    }
    return any ? y + kTextBottom : 0.0;
}

void AlertControllerView::layoutButtons(double top, double width) {
    if (_buttons.empty()) {
        return;
    }
    const bool row = _buttons.size() <= 2;
    const double buttonWidth = row ? width / double(_buttons.size()) : width;
    for (std::size_t i = 0; i < _buttons.size(); ++i) {
        const double x = row ? buttonWidth * double(i) : 0.0;
        const double y = row ? top : top + kButtonHeight * double(i);
        _buttons[i]->setFrame(QRectF(x, y, buttonWidth, kButtonHeight));
        // The first line spans the box above the buttons; in a row the
        // others stand between the buttons.
        const bool vertical = row && i > 0;
        _separators[i]->setFrame(vertical
                                     ? QRectF(x - kSeparator / 2.0, y, kSeparator, kButtonHeight)
                                     : QRectF(0.0, y, width, kSeparator));
    }
}

}  // namespace platform
