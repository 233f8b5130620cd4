#pragma once

#include "platform/graphics/Image.h"

class QXDManualEditController;

/// Told how the manual edit screen ended. Both methods are optional (empty
/// by default) and are called on the main thread. The screen never dismisses
/// itself: the delegate does.
class QXDManualEditControllerDelegate {
public:
    virtual ~QXDManualEditControllerDelegate() = default;

    /// The cancel button was tapped.
    virtual void controllerDidCancel(QXDManualEditController& /*controller*/) {}
    /// The confirm button was tapped; image is the result as it stands (the
    /// very image the screen was made with when it was never turned).
    virtual void controllerDidConfirmEditedImage(QXDManualEditController& /*controller*/,
                                                 const platform::ImagePtr& /*image*/) {}
};
