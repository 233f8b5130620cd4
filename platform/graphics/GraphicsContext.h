#pragma once

#include <QColor>
#include <QSizeF>

#include <memory>

class QPainter;

namespace platform {

class Image;

/// The current graphics context, like the platform's drawing functions: each
/// thread has its own stack of contexts, and the drawing calls (paths,
/// colours) act on the top one. A context is a borrowed QPainter; image
/// contexts own theirs.
///
/// Every function here acts on the calling thread's stack only, so all are
/// safe to call from any thread; a context must not be shared between
/// threads.

/// Makes painter the current context until the matching popContext. The
/// painter is borrowed: it must stay alive and active until then.
void pushContext(QPainter& painter);

/// Removes the current context; does nothing when there is none. Popping an
/// image context this way ends it, like endImageContext.
void popContext();

/// The current context, or null when there is none.
QPainter* currentContext();

/// The colour the current context strokes with, like a colour's setStroke.
/// Does nothing without a context.
void setStrokeColor(const QColor& color);

/// The colour the current context fills with, like a colour's setFill. Does
/// nothing without a context.
void setFillColor(const QColor& color);

/// Starts an image context of size points at scale pixels a point and makes
/// it current. A scale of 0 (or less) means the main screen's scale. An
/// opaque context starts black, any other transparent. Strokes and fills
/// start black; drawing is antialiased. A size with no pixels makes no
/// context.
void beginImageContext(const QSizeF& size, bool opaque, double scale);

/// A snapshot of the current image context's pixels, with its scale; null
/// when the current context is not an image context.
std::shared_ptr<Image> imageFromCurrentImageContext();

/// Ends the current context if it is an image context; otherwise does
/// nothing.
void endImageContext();

/// Ends the current image context and returns its pixels, with its scale, as
/// an image. Nothing can draw into them any more, so they are handed over
/// without a copy: the cheap way to take an image and close its context.
/// Null, with nothing ended, when the current context is not an image
/// context.
std::shared_ptr<Image> endImageContextWithImage();

/// The scale image contexts use for a scale of 0. It starts at 1.0; the views
/// layer sets it from the main screen. Thread-safe.
void setMainScreenScaleForImageContexts(double scale);
double mainScreenScaleForImageContexts();

}  // namespace platform
