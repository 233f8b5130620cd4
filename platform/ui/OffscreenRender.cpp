#include "platform/ui/OffscreenRender.h"

#include "platform/ui/Window.h"

namespace platform {

bool renderToPng(Window& window, const QString& path, double scale) {
    return window.snapshot(scale).save(path, "PNG");
}

}  // namespace platform
