#pragma once

namespace lumerix::gtk {

// What the desktop's message buses offer, asked before GTK starts. Without a
// session bus (ssh, containers, bare window managers) the tray library warns
// on every start, and without an accessibility bus GTK's bridge does: we say
// it once in our own words instead and leave those parts out.
struct BusFacts {
  bool session = false;        // a session bus answers (a tray and players are possible)
  bool accessibility = false;  // the accessibility bus runs or can be started on demand
  bool trayHost = false;       // a StatusNotifier host (a panel that shows tray icons) watches
};

BusFacts probeBuses();

}  // namespace lumerix::gtk
