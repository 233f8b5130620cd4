#pragma once

#include "platform/graphics/Image.h"
#include "platform/ui/Control.h"
#include "platform/ui/EdgeInsets.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"

#include <QColor>
#include <QString>

#include <map>
#include <memory>

namespace platform {

enum class ButtonType { Custom = 0, System = 1 };

/// A control showing an image and a title side by side over a background
/// image, each chosen by the control state, like the platform's buttons.
///
/// A value set for a state is used in exactly that state; any state without
/// its own value shows the normal state's (so selected|highlighted falls back
/// to normal, not to selected). The title label and image view are made on
/// first use. Custom buttons have white titles; system buttons have the
/// platform's blue, faded while highlighted and grey while disabled (images
/// are not tinted). Main thread only.
class Button : public Control {
public:
    static std::shared_ptr<Button> create(ButtonType type = ButtonType::Custom);

    ButtonType buttonType() const { return _type; }

    // Values per control_state; a null image, empty title or invalid colour
    // removes the state's own value.
    void setImage(ImagePtr image, unsigned state);
    ImagePtr imageForState(unsigned state) const;
    void setBackgroundImage(ImagePtr image, unsigned state);
    ImagePtr backgroundImageForState(unsigned state) const;
    void setTitle(const QString& title, unsigned state);
    QString titleForState(unsigned state) const;
    void setTitleColor(const QColor& color, unsigned state);
    QColor titleColorForState(unsigned state) const;

    ImagePtr currentImage() const { return imageForState(state()); }
    ImagePtr currentBackgroundImage() const { return backgroundImageForState(state()); }
    QString currentTitle() const { return titleForState(state()); }
    QColor currentTitleColor() const { return titleColorForState(state()); }

    /// The label showing the current title (system font of 15 points).
    const std::shared_ptr<Label>& titleLabel();
    /// The image view showing the current image (scale to fill).
    const std::shared_ptr<ImageView>& imageView();

    /// Insets of the area image and title share; they count in the intrinsic size.
    const EdgeInsets& contentEdgeInsets() const { return _contentInsets; }
    void setContentEdgeInsets(const EdgeInsets& insets);
    /// Insets that move and shrink the image's area only; they do not count
    /// in the intrinsic size.
    const EdgeInsets& imageEdgeInsets() const { return _imageInsets; }
    void setImageEdgeInsets(const EdgeInsets& insets);
    /// Likewise for the title.
    const EdgeInsets& titleEdgeInsets() const { return _titleInsets; }
    void setTitleEdgeInsets(const EdgeInsets& insets);

    /// Darken the image while highlighted, when the state has no image of its own.
    bool adjustsImageWhenHighlighted() const { return _adjustsWhenHighlighted; }
    void setAdjustsImageWhenHighlighted(bool adjusts);
    /// Lighten the image while disabled, when the state has no image of its own.
    bool adjustsImageWhenDisabled() const { return _adjustsWhenDisabled; }
    void setAdjustsImageWhenDisabled(bool adjusts);

    QRectF contentRectForBounds(const QRectF& bounds) const;
    /// Where the current image goes: no larger than its area, beside the
    /// title, placed by the content alignments.
    QRectF imageRectForContentRect(const QRectF& contentRect) const;
    QRectF titleRectForContentRect(const QRectF& contentRect) const;

    /// The image and the title side by side, plus the content insets.
    QSizeF intrinsicContentSize() const override;
    QSizeF sizeThatFits(const QSizeF& size) const override;
    void layoutSubviews() override;
    QString typeName() const override;

protected:
    explicit Button(ButtonType type);
    void stateDidChange() override;

private:
    friend class View;

    template <typename T>
    class PerState {
    public:
        void set(unsigned state, const T& value, bool isSet) {
            if (isSet) {
                _values[state] = value;
            } else {
                _values.erase(state);
            }
        }
        bool has(unsigned state) const { return _values.count(state) != 0; }
        /// The state's value, else the normal state's, else T().
        T find(unsigned state) const {
            auto it = _values.find(state);
            if (it == _values.end()) {
                it = _values.find(control_state::kNormal);
            }
            return it == _values.end() ? T() : it->second;
        }

    private:
        std::map<unsigned, T> _values;
    };

    struct Placement {
        QRectF image;
        QRectF title;
    };
    Placement place(const QRectF& contentRect) const;
    QSizeF imageSize() const;
    QSizeF titleSize() const;
    // The image to show now, with the highlight or disabled adjustment.
    ImagePtr displayedImage();
    // Shows the current state's values in the subviews.
    void updateContent();
    void contentSizeDidChange();

    ButtonType _type;
    PerState<ImagePtr> _images;
    PerState<ImagePtr> _backgroundImages;
    PerState<QString> _titles;
    PerState<QColor> _titleColors;
    EdgeInsets _contentInsets;
    EdgeInsets _imageInsets;
    EdgeInsets _titleInsets;
    bool _adjustsWhenHighlighted = true;
    bool _adjustsWhenDisabled = true;
    std::shared_ptr<Label> _titleLabel;
    std::shared_ptr<ImageView> _imageView;
    std::shared_ptr<ImageView> _backgroundView;
    // The last adjusted image, made from `source` with `overlay`.
    struct Adjusted {
        ImagePtr source;
        QColor overlay;
        ImagePtr image;
    } _adjusted;
};

}  // namespace platform
