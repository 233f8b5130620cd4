#pragma once

#include "platform/ui/ViewController.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// Styles of alert controllers, with the platform's numbers. An action
/// sheet is shown like an alert.
enum class AlertControllerStyle { ActionSheet = 0, Alert = 1 };

/// Styles of alert actions, with the platform's numbers.
enum class AlertActionStyle { Default = 0, Cancel = 1, Destructive = 2 };

/// One button of an alert: a title, a style and the handler to call once
/// the alert has been dismissed by it. Main thread only.
class AlertAction {
public:
    using Handler = std::function<void(AlertAction&)>;

    static std::shared_ptr<AlertAction> create(const QString& title,
                                               AlertActionStyle style = AlertActionStyle::Default,
                                               Handler handler = {});

    const QString& title() const { return _title; }
    AlertActionStyle style() const { return _style; }
    /// Read when the alert appears: a disabled action's button is greyed
    /// out and does nothing.
    bool isEnabled() const { return _enabled; }
    void setEnabled(bool enabled) { _enabled = enabled; }

private:
    friend class AlertController;
    AlertAction(QString title, AlertActionStyle style, Handler handler);

    QString _title;
    AlertActionStyle _style;
    Handler _handler;
    bool _enabled = true;
};

using AlertActionPtr = std::shared_ptr<AlertAction>;

class AlertControllerView;

/// A modal alert, like the platform's alert controllers: a title, a message
/// and one button per action on a rounded box over a dimmed screen.
/// Presented with presentViewController, it fades in over the presenting
/// controller, which stays on screen without appearance callbacks. Tapping
/// an action dismisses the alert and then calls the action's handler; taps
/// after the first are ignored until the alert appears again. Main thread
/// only.
class AlertController : public ViewController {
public:
    static std::shared_ptr<AlertController> create(
        const QString& title, const QString& message,
        AlertControllerStyle style = AlertControllerStyle::Alert);

    const QString& title() const { return _title; }
    void setTitle(const QString& title);
    const QString& message() const { return _message; }
    void setMessage(const QString& message);
    AlertControllerStyle preferredStyle() const { return _style; }

    /// Adds a button for action. A second cancel action is refused with a
    /// log line, as the platform allows one.
    void addAction(const AlertActionPtr& action);
    const std::vector<AlertActionPtr>& actions() const { return _actions; }
    /// Chooses one of the alert's actions as a tap on its button would (the
    /// keyboard's Return and Escape use it).
    void performAction(const AlertActionPtr& action);

    void loadView() override;
    void viewWillAppear(bool animated) override;
    QString typeName() const override;

protected:
    AlertController(QString title, QString message, AlertControllerStyle style);

private:
    void actionTapped(const AlertActionPtr& action);
    /// The view when it is loaded and is the alert's own.
    AlertControllerView* alertView();
    void updateTexts();
    void updateButtons();

    QString _title;
    QString _message;
    AlertControllerStyle _style;
    std::vector<AlertActionPtr> _actions;
    bool _actionChosen = false;
};

}  // namespace platform
