#pragma once

#include <optional>
#include <string>

namespace lumerix::autostart {

// The desktop's autostart entry that starts Lumerix at login:
// $XDG_CONFIG_HOME/autostart/io.lumerix.Lumerix.desktop (~/.config/...).
// None when neither XDG_CONFIG_HOME nor HOME is an absolute path.
std::optional<std::string> entryPath();

// Whether the entry at path starts Lumerix at login: it is there, and
// neither the desktop (X-GNOME-Autostart-enabled=false, which GNOME's own
// switches write) nor the user (Hidden=true) turned it off. Read back from
// the file each time, so that the preferences never claim what is not.
bool enabled(const std::string& path);

// Writes the entry (starting executable, an absolute path) or removes it.
// Written atomically; false when the folder or the file cannot be written
// or removed (the reason is in errno).
bool setEnabled(const std::string& path, bool on, const std::string& executable);

// This program's executable, absolute: what the entry starts.
std::string ownExecutable();

// The entry's text for an executable: Exec quoted as desktop entries want
// it, whatever characters the path holds.
std::string entryText(const std::string& executable);

}  // namespace lumerix::autostart
