#include "linux/Autostart.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "util/Files.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix::autostart {

namespace {

// The value of key in the [Desktop Entry] group, if there.
std::optional<std::string> value(const std::string& text, std::string_view key) {
  bool inEntry = false;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string_view line =
        unicode::trim(std::string_view(text).substr(start, end - start), unicode::isWhitespace);
    start = end + 1;
    if (line.starts_with('[')) {
      inEntry = line == "[Desktop Entry]";
    } else if (inEntry && line.starts_with(key)) {
      std::string_view rest = unicode::trim(line.substr(key.size()), unicode::isWhitespace);
      if (rest.starts_with('=')) return std::string(unicode::trim(rest.substr(1), unicode::isWhitespace));
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> entryPath() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg && xdg[0] == '/') return path::append(xdg, "autostart/io.lumerix.Lumerix.desktop");
  const char* home = std::getenv("HOME");
  if (home && home[0] == '/') return path::append(home, ".config/autostart/io.lumerix.Lumerix.desktop");
  return std::nullopt;
}

std::string ownExecutable() {
  char self[4096];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  return n > 0 ? std::string(self, static_cast<std::size_t>(n)) : std::string("lumerix");
}

bool enabled(const std::string& path) {
  std::string text;
  if (!readWholeFile(path, text)) return false;
  return value(text, "X-GNOME-Autostart-enabled") != "false" && value(text, "Hidden") != "true";
}

std::string entryText(const std::string& executable) {
  // Exec's quoting: inside double quotes, " ` $ and \ take a backslash, and
  // a literal % is %%. The file's own escaping then doubles every backslash.
  std::string quoted = "\"";
  for (char c : executable) {
    if (c == '"' || c == '`' || c == '$') quoted += "\\\\";
    if (c == '\\') quoted += "\\\\\\";
    if (c == '%') quoted += '%';
    quoted += c;
  }
  quoted += '"';
  return "[Desktop Entry]\n"
         "Type=Application\n"
         "Name=Lumerix\n"
         "Comment=Floating subtitles for any media player, synced to playback\n"
         "Exec=" +
         quoted +
         "\n"
         "Icon=io.lumerix.Lumerix\n"
         "Terminal=false\n"
         "X-GNOME-Autostart-enabled=true\n";
}

bool setEnabled(const std::string& path, bool on, const std::string& executable) {
  if (!on) return ::unlink(path.c_str()) == 0 || errno == ENOENT;
  const std::string folder = path::parent(path);
  ::mkdir(path::parent(folder).c_str(), 0700);  // ~/.config itself may not be there yet
  if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return false;
  return writeFileAtomically(path, entryText(executable));
}

}  // namespace lumerix::autostart
