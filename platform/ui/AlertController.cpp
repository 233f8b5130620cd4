#include "platform/ui/AlertController.h"

#include "platform/foundation/Log.h"
#include "platform/ui/AlertControllerView.h"

#include <algorithm>

namespace platform {

AlertAction::AlertAction(QString title, AlertActionStyle style, Handler handler)
    : _title(std::move(title)), _style(style), _handler(std::move(handler)) {}

std::shared_ptr<AlertAction> AlertAction::create(const QString& title, AlertActionStyle style,
                                                 Handler handler) {
    return std::shared_ptr<AlertAction>(new AlertAction(title, style, std::move(handler)));
}

std::shared_ptr<AlertController> AlertController::create(const QString& title,
                                                         const QString& message,
                                                         AlertControllerStyle style) {
    return make<AlertController>(title, message, style);
}

AlertController::AlertController(QString title, QString message, AlertControllerStyle style)
    : _title(std::move(title)), _message(std::move(message)), _style(style) {
    setModalPresentationStyle(ModalPresentationStyle::OverFullScreen);
    setModalTransitionStyle(ModalTransitionStyle::CrossDissolve);
}

QString AlertController::typeName() const {
    return QStringLiteral("AlertController");
}

void AlertController::setTitle(const QString& title) {
    _title = title;
    updateTexts();
}

void AlertController::setMessage(const QString& message) {
    _message = message;
    updateTexts();
}

void AlertController::addAction(const AlertActionPtr& action) {
    if (!action) {
        return;
    }
    const auto isCancel = [](const AlertActionPtr& a) {
        return a->style() == AlertActionStyle::Cancel;
    };
    if (isCancel(action) && std::any_of(_actions.begin(), _actions.end(), isCancel)) {
        log::write(QStringLiteral("%1 can only have one action with a style of cancel; "
                                  "ignoring \"%2\"")
                       .arg(description(), action->title()));
        return;
    }
    _actions.push_back(action);
    updateButtons();
}

void AlertController::loadView() {
    setView(AlertControllerView::create());
    updateTexts();
    updateButtons();
}

void AlertController::viewWillAppear(bool animated) {
    ViewController::viewWillAppear(animated);
    _actionChosen = false;
    if (auto* view = alertView()) {
        view->updateEnabledStates();
    }
}

AlertControllerView* AlertController::alertView() {
    return isViewLoaded() ? dynamic_cast<AlertControllerView*>(view().get()) : nullptr;
}

void AlertController::updateTexts() {
    if (auto* view = alertView()) {
        view->setTexts(_title, _message);
    }
}

void AlertController::updateButtons() {
    auto* view = alertView();
    if (view == nullptr) {
        return;
    }
    view->setActions(_actions, [weak = std::weak_ptr<ViewController>(weak_from_this())](
                                   const AlertActionPtr& action) {
        if (const auto self = weak.lock()) {
            static_cast<AlertController&>(*self).actionTapped(action);
        }
    });
}

void AlertController::performAction(const AlertActionPtr& action) {
    if (std::find(_actions.begin(), _actions.end(), action) != _actions.end()) {
        actionTapped(action);
    }
}

void AlertController::actionTapped(const AlertActionPtr& action) {
    // Taps while the alert comes or goes do nothing, as on the platform,
    // where the screen ignores touches during transitions.
    if (_actionChosen || !action->isEnabled() || isBeingPresented() || isBeingDismissed()) {
        return;
    }
    _actionChosen = true;
    dismissViewControllerAnimated(true, [action] {
        if (action->_handler) {
            action->_handler(*action);
        }
    });
}

}  // namespace platform
