#pragma once

#include "platform/ui/View.h"

#include <QSizeF>
#include <QString>

#include <functional>
#include <memory>

namespace platform {
class GestureRecognizer;
class ImageView;
class Label;
class ScrollView;
class SpeechSynthesizer;
}  // namespace platform

/// Posted by a host to show, update or speak an alert on the capture screen.
/// User-info keys: "title", "message", "dismissTime", "useVoice".
extern const QString QXDAlertViewShowNotification;

/// A transient banner with a warning icon, a title and a scrollable message,
/// shown over a host view. It slides from an initial view's frame into its
/// place 20 points in from the host's sides and 40 below its top, fades its
/// content in, and after alertDismissTime seconds (or a tap, or hide())
/// slides back and removes itself. It also keeps the speech synthesizer the
/// capture screen reads alerts aloud with.
///
/// The banner's views come from the interface file "QXDAlertView" in the
/// framework bundle. Main thread only.
class QXDAlertView : public platform::View {
public:
    using HideHandler = std::function<void()>;

    /// The banner of the interface file, starting from view's frame and
    /// transform (the zero transform for a null view); null when the file
    /// cannot be loaded.
    static std::shared_ptr<QXDAlertView> initWithInitialState(const platform::ViewPtr& view);
    /// A bare banner without the interface file's views.
    static std::shared_ptr<QXDAlertView> init();

    /// Called once when the banner starts to hide.
    const HideHandler& hideHandler() const { return _hideHandler; }
    void setHideHandler(HideHandler handler) { _hideHandler = std::move(handler); }
    const QString& title() const { return _title; }
    /// Shows title in the title label; the very string already held changes
    /// nothing.
    void setTitle(const QString& title);
    const QString& message() const { return _message; }
    /// Shows message in the message label and re-sizes the scroll view; the
    /// very string already held changes nothing.
    void setMessage(const QString& message);
    /// Seconds from showInView to the automatic hide; 0 or less: never.
    double alertDismissTime() const { return _alertDismissTime; }
    void setAlertDismissTime(double seconds) { _alertDismissTime = seconds; }

    // The interface file's views (null for a bare banner or once gone).
    platform::ViewPtr contentView() const { return _contentView.lock(); }
    std::shared_ptr<platform::Label> titleLabel() const { return _titleLabel.lock(); }
    std::shared_ptr<platform::Label> messageLabel() const { return _messageLabel.lock(); }
    std::shared_ptr<platform::ImageView> warningIcon() const { return _warningIcon.lock(); }
    std::shared_ptr<platform::ScrollView> scrollView() const { return _scrollView.lock(); }

    /// The view whose frame and transform the banner starts from and returns to.
    const platform::ViewPtr& initialView() const { return _initialView; }
    void setInitialView(const platform::ViewPtr& view) { _initialView = view; }

    /// Made on first use and kept.
    const std::shared_ptr<platform::SpeechSynthesizer>& synthesizer();

    void layoutSubviews() override;
    /// Places the banner in view (its host) and gives the icon its margins.
    void initConstraints(const platform::ViewPtr& view);
    /// Fits the scroll view to the message, at most half the host's height.
    void updateScrollViewContentSize();
    /// The height of label's text wrapped within size.
    double getLabelHeight(const platform::Label& label, const QSizeF& size) const;

    /// Adds the banner to view, slides it in and starts the hide timer.
    void showInView(const platform::ViewPtr& view);
    /// Schedules hide() after alertDismissTime when that is positive.
    void startHideCounter();
    /// Slides the banner back and removes it; the handler runs at once.
    void hide();
    /// The interface file's tap recogniser calls this.
    void didTapOnView(platform::GestureRecognizer& recognizer);

    QString typeName() const override;

protected:
    QXDAlertView() = default;

private:
    class InterfaceOutlets;
    std::shared_ptr<QXDAlertView> self();

    HideHandler _hideHandler;
    QString _title;
    QString _message;
    double _alertDismissTime = 0.0;
    std::weak_ptr<platform::View> _contentView;
    std::weak_ptr<platform::Label> _titleLabel;
    std::weak_ptr<platform::Label> _messageLabel;
    std::weak_ptr<platform::ImageView> _warningIcon;
    std::weak_ptr<platform::ScrollView> _scrollView;
    platform::ViewPtr _initialView;
    std::shared_ptr<platform::SpeechSynthesizer> _synthesizer;
};
