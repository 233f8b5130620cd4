#pragma once

#include "platform/ui/View.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace platform {

class AlertAction;
class Button;
class Label;

/// The view of an alert controller: a dimmed full-screen backdrop with a
/// centred rounded box, kWidth points wide, holding the title (bold), the
/// message and one button per action: side by side for up to two actions
/// (cancel on the left), stacked otherwise (cancel at the bottom), laid out
/// by hand. Internal to the views layer; main thread only.
class AlertControllerView : public View {
public:
    static constexpr double kWidth = 270.0;
    static constexpr double kButtonHeight = 44.0;
    using ActionHandler = std::function<void(const std::shared_ptr<AlertAction>&)>;

    static std::shared_ptr<AlertControllerView> create();

    void setTexts(const QString& title, const QString& message);
    /// Replaces the buttons; handler is called with the action of a tapped
    /// button.
    void setActions(const std::vector<std::shared_ptr<AlertAction>>& actions,
                    ActionHandler handler);
    /// Greys out the buttons of disabled actions.
    void updateEnabledStates();

    const ViewPtr& box() const { return _box; }
    const std::shared_ptr<Label>& titleLabel() const { return _titleLabel; }
    const std::shared_ptr<Label>& messageLabel() const { return _messageLabel; }
    /// The buttons in the order they are shown (left to right, top down).
    const std::vector<std::shared_ptr<Button>>& buttons() const { return _buttons; }

    void layoutSubviews() override;
    QString typeName() const override;

protected:
    AlertControllerView();
    void didCreate() override;

private:
    friend class View;

    // The height of the title and message block, placing the labels.
    double layoutTexts(double width);
    void layoutButtons(double top, double width);

    ViewPtr _box;
    std::shared_ptr<Label> _titleLabel;
    std::shared_ptr<Label> _messageLabel;
    std::vector<std::shared_ptr<Button>> _buttons;
    std::vector<std::shared_ptr<AlertAction>> _shownActions;
    std::vector<ViewPtr> _separators;
};

}  // namespace platform
