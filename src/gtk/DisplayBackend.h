#pragma once

namespace lumerix::gtk {

// How the bar stays above every window, full-screen players included.
enum class BarKind {
  x11Popup,    // an override-redirect window: no window manager stacks it below
  layerShell,  // the Wayland compositor's overlay layer
  toplevel,    // a keep-above window: the best a Wayland without layer shell allows
};

struct BackendChoice {
  // A Wayland session without the layer shell, sent to XWayland instead:
  // its compositor may still stack a native full-screen window over us.
  bool waylandWithoutLayerShell = false;
};

// Picks GDK's backend; call before GTK starts. A user's own GDK_BACKEND is
// kept as it is.
BackendChoice chooseBackend();

// After GTK has started: the kind of window the display allows.
BarKind barKind();

}  // namespace lumerix::gtk
