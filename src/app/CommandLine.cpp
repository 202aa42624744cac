#include "app/CommandLine.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <ostream>

#include "app/GlobalActions.h"
#include "app/PlatformServices.h"
#include "subtitles/SRTParser.h"
#include "util/JsonText.h"

namespace lumerix {

CommandLine parseCommandLine(const std::vector<std::string>& args) {
  CommandLine cl;
  auto usage = [&](std::string message) {
    cl.mode = CommandLine::Mode::usageError;
    cl.error = "lumerix: " + std::move(message) + " (see 'lumerix --help')";
    cl.file.clear();
    return cl;
  };
  bool headless = false, dumpCues = false, standalone = false;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help" || a == "-h" || a == "--version") {
      if (args.size() > 1) return usage("'" + a + "' takes no other arguments");
      cl.mode = a == "--version" ? CommandLine::Mode::version : CommandLine::Mode::help;
      standalone = true;
    } else if (a == "--dump-cues") {
      if (i + 1 >= args.size()) return usage("--dump-cues needs a FILE");
      dumpCues = true;
      files.push_back(args[++i]);
    } else if (a.starts_with("--dump-cues=")) {
      dumpCues = true;
      files.push_back(a.substr(std::string("--dump-cues=").size()));
      if (files.back().empty()) return usage("--dump-cues needs a FILE");
    } else if (a == "--do" || a.starts_with("--do=")) {
      // Bound to a desktop's key: nothing else may ride along unnoticed.
      if (a == "--do" && i + 1 >= args.size()) return usage("--do needs an ACTION");
      const std::string action = a == "--do" ? args[++i] : a.substr(std::string("--do=").size());
      if (args.size() != (a == "--do" ? 2u : 1u)) return usage("--do takes no other arguments");
      if (!findGlobalAction(action)) {
        cl.mode = CommandLine::Mode::usageError;
        cl.error = "lumerix: unknown action '" + action + "'; one of: " + globalActionNames();
        return cl;
      }
      cl.mode = CommandLine::Mode::doAction;
      cl.action = action;
      return cl;
    } else if (a == "--headless") {
      headless = true;
    } else if (a == "--second" || a.starts_with("--second=")) {
      if (a == "--second" && i + 1 >= args.size()) return usage("--second needs a FILE");
      cl.second = a == "--second" ? args[++i] : a.substr(std::string("--second=").size());
      if (cl.second.empty()) return usage("--second needs a FILE");
    } else if (a == "--demo") {
      cl.demo = true;
    } else if (a == "--listen") {
      cl.listen = true;
    } else if (a == "--player" || a.starts_with("--player=")) {
      if (a == "--player" && i + 1 >= args.size()) return usage("--player needs a NAME");
      cl.player = a == "--player" ? args[++i] : a.substr(std::string("--player=").size());
      if (cl.player.empty() || cl.player.find('/') != std::string::npos) return usage("--player needs a NAME");
    } else if (a == "--") {
      files.insert(files.end(), args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
      break;
    } else if (a.starts_with("-") && a.size() > 1) {
      return usage("unknown option '" + a + "'");
    } else {
      files.push_back(a);
    }
  }
  if (standalone) return cl;
  if (dumpCues) {
    if (headless || cl.demo || !cl.player.empty() || !cl.second.empty() || cl.listen) {
      return usage("--dump-cues cannot be combined with --headless, --demo, --listen, --player or --second");
    }
    if (files.size() > 1) return usage("unexpected argument '" + files[1] + "'");
    cl.mode = CommandLine::Mode::dumpCues;
    cl.file = files[0];
    return cl;
  }
  if (cl.demo && !files.empty()) return usage("--demo plays its own sample; drop '" + files[0] + "'");
  if (cl.demo && !cl.second.empty()) return usage("--demo plays its own sample; drop '--second'");
  if (files.size() > 1) return usage("unexpected argument '" + files[1] + "'");
  if (cl.listen && (cl.demo || files.empty())) return usage("--listen needs a FILE and no --demo");
  cl.mode = CommandLine::Mode::run;
  cl.headless = headless;
  if (!files.empty()) cl.file = files[0];
  return cl;
}

std::optional<std::string> missingStartupFileNote(const std::string& file) {
  struct stat st {};
  if (file.empty() || ::stat(file.c_str(), &st) == 0) return std::nullopt;
  return "lumerix: " + file + ": " + std::strerror(errno) + " (starting without a subtitle)";
}

int deliveryStatus(platform::Delivery delivery, const std::string& action, const std::string& why, std::ostream& err) {
  switch (delivery) {
    case platform::Delivery::delivered:
      return 0;
    case platform::Delivery::notRunning:
      err << "Lumerix is not running\n";
      return 1;
    case platform::Delivery::failed:
      err << "lumerix: the running bar did not take '" << action << "': " << why << '\n';
      return 1;
  }
  return 1;
}

std::string helpText(bool window, bool linux) {
  const char* player = linux ? " [--player NAME]" : "";
  std::string text = std::string("Usage: lumerix") + player + " [--listen] [--second FILE2] [FILE]\n" +
                     "       lumerix --headless" + player + " [--listen] [--second FILE2] [FILE]\n" +
                     "       lumerix --demo [--headless]\n"
                     "       lumerix --dump-cues FILE\n"
                     "       lumerix --do ACTION\n"
                     "       lumerix --help | --version\n"
                     "\n"
                     "Lumerix shows subtitles for video whose player cannot load them, following\n"
                     "the player's position.\n"
                     "\n";
  text += window ? "  [FILE]             show the subtitle bar, following the media player, with\n"
                   "                     FILE (SubRip .srt, WebVTT .vtt or SubStation .ass,\n"
                   "                     .ssa) loaded\n"
                 : "  [FILE]             this build has no window: the same as --headless [FILE]\n";
  text +=
      "  --headless [FILE]  follow the media player and print what the bar would\n"
      "                     show, one JSON object a line (t: seconds since start):\n"
      "                     {\"t\", \"text\", \"brand\", \"pos\", \"sub\"} a change of the\n"
      "                       shown text (\"\" for none); brand: true for the nameplate;\n"
      "                       pos, sub: the player's position and the subtitle\n"
      "                       time it was shown for, when the player has one\n"
      "                     {\"t\", \"status\"} a change of the status line\n"
      "                     {\"t\", \"alert\"} a message the bar would show\n"
      "                     {\"t\", \"fullscreen\"} the player's full-screen state\n";
  text += linux ? "                       (the window manager's word on X11, the player's\n"
                  "                       own on Wayland)\n"
                : "                       (the now-playing stream leads then)\n";
  text +=
      "                     FILE is the subtitle to load. Stops on Ctrl-C, SIGTERM\n"
      "                     or SIGHUP, saving the timing next to FILE as\n"
      "                     FILE.sync.json.\n"
      "  --second FILE2     show FILE2 too, under FILE (or above: the \"SecondPosition\"\n"
      "                     setting), timed on its own (FILE2.sync.json); the headless\n"
      "                     lines then carry its text as \"second\". Without FILE,\n"
      "                     FILE2 is the first\n";
  if (linux) {
    text +=
        "  --player NAME      follow the MPRIS player org.mpris.MediaPlayer2.NAME\n"
        "                     (and its NAME.* instances), e.g. mpv or vlc, else\n"
        "                     one with NAME as a part of its bus name (celluloid,\n"
        "                     chromium). Without it: the \"TargetPlayer\" setting,\n"
        "                     else whichever player is playing\n";
  }
  text +=
      "  --listen FILE      sync FILE by listening from the start, as the key l\n"
      "                     does: the sound that plays is examined in memory for\n"
      "                     speech, never written or sent anywhere, until the\n"
      "                     offset and rate are sure (then saved to\n"
      "                     FILE.sync.json) or 90 s of playing were not enough\n";
  text += window ? "  --demo             the bar against a built-in player that plays from 0 s\n"
                   "                     (\"Demo S01E01\") with a bundled sample subtitle; with\n"
                   "                     --headless, printed instead; your settings are not\n"
                   "                     touched, but for remembering that the first-run\n"
                   "                     guide was seen\n"
                 : "  --demo             the same, against a built-in player that plays from 0 s\n"
                   "                     (\"Demo S01E01\") with a bundled sample subtitle; your\n"
                   "                     settings are not touched\n";
  // The actions' names, wrapped into the description's column.
  text += "  --do ACTION        hand one action to the running bar and exit, as a key\n"
          "                     bound in the desktop's keyboard settings would:";
  std::size_t column = 69;
  for (const GlobalAction& a : globalActions()) {
    const bool last = &a == &globalActions().back();
    if (column + a.name.size() + 2 > 78) {
      text += "\n                    ";
      column = 20;
    }
    text += " " + std::string(a.name) + (last ? "." : ",");
    column += a.name.size() + 2;
  }
  text +=
      "\n                     Exit status 1, saying so, when no bar is running\n";
  text +=
      "  --dump-cues FILE   read FILE (SubRip .srt, WebVTT .vtt or SubStation .ass,\n"
      "                     .ssa: the dialogue of its [Events]) and print its cues\n"
      "                     to stdout as a JSON array of {\"start\", \"end\",\n"
      "                     \"text\"}, sorted by start, times in seconds. Exit\n"
      "                     status 1 if FILE cannot be read.\n"
      "  -h, --help         show this help and exit\n"
      "  --version          print the version and exit\n"
      "\n"
      "Encodings: a byte-order mark decides (UTF-8, UTF-16, UTF-32); UTF-16 without\n"
      "one is told by its zero bytes; valid UTF-8 is UTF-8. Anything else is\n"
      "guessed (uchardet): the Windows code pages, KOI8-R and -U, Shift-JIS, EUC-JP,\n"
      "CP949, GB 18030, Big5. The \"FallbackEncoding\" setting goes first when the\n"
      "guess is unsure; the menu's Reopen with Encoding overrides it for a file.\n"
      "\n";
  if (window) {
    text +=
        "Keys on the bar, once it was clicked (right-click: the menu):\n"
        "  , .                timing offset -0.1 s, +0.1 s\n"
        "  Left Right         timing offset -0.5 s, +0.5 s\n"
        "  Up Down            timing rate +0.05 %, -0.05 %\n"
        "  1 2                two-point calibration: 1 with a line aligned early\n"
        "                     in the video, 2 with one aligned near the end\n"
        "  f                  next frame-rate ratio\n"
        "  s                  the timing keys, f and 1 2 adjust the second subtitle,\n"
        "                     or the first again\n"
        "  a                  the subtitle for the episode playing\n"
        "  l                  sync by listening (again: stop)\n"
        "  o                  open a subtitle\n"
        "  t                  outline or black band\n"
        "  + -                text size\n"
        "  9 0                band opacity\n"
        "  Shift+arrows       bar size\n"
        "  h                  hide the bar until h is pressed with the chord\n"
        "  q Escape           quit\n";
    text += linux ? "With the chord held (Ctrl+Alt+Super unless Preferences says otherwise),\n"
                    "Left Right , . f 1 2 h work while another program has the keyboard,\n"
                    "where the desktop lets them (X11; KDE Plasma and Hyprland on Wayland);\n"
                    "elsewhere bind lumerix --do ACTION to keys of your own.\n"
                  : "With Control+Option held (unless Preferences says otherwise), Left Right\n"
                    ", . f 1 2 h work while another program has the keyboard.\n";
    text += "\n";
  }
  text += linux ? "Settings live in $XDG_CONFIG_HOME/lumerix/settings.json (~/.config/...).\n"
                : "Settings are the app's user defaults (defaults read app.lumerix.Lumerix).\n";
  text += "Exit status 2 for a command line that cannot be understood.\n";
  return text;
}

std::string versionText() {
  return "Lumerix " LUMERIX_VERSION "\n";
}

void writeCuesJson(const std::vector<Cue>& cues, std::ostream& out) {
  // Written in pieces as it goes: a document of a whole season need not
  // exist twice in memory, and no tree is built for it.
  std::string chunk;
  chunk.reserve(1 << 17);
  chunk += '[';
  for (std::size_t i = 0; i < cues.size(); ++i) {
    chunk += i ? ",{\"start\":" : "{\"start\":";
    json::appendNumber(chunk, cues[i].start);
    chunk += ",\"end\":";
    json::appendNumber(chunk, cues[i].end);
    chunk += ",\"text\":";
    json::appendString(chunk, cues[i].text);
    chunk += '}';
    if (chunk.size() >= (1 << 16)) {
      out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
      chunk.clear();
    }
  }
  chunk += "]\n";
  out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
}

int runDumpCues(const std::string& path, std::ostream& out, std::ostream& err) {
  auto cues = Result<std::vector<Cue>, SubtitleReadError>::failure(FileReadError{ENOMEM, std::strerror(ENOMEM)});
  try {
    cues = SRTParser::parse(path);
  } catch (const std::bad_alloc&) {  // what a file needs in memory is a failed load, not a crash
  } catch (const std::length_error&) {
  }
  if (!cues) {
    err << "Failed to load " << path << ": " << describe(cues.error()) << '\n';
    return 1;
  }
  writeCuesJson(cues.value(), out);
  out.flush();
  // The process ends right after this: handing a season's worth of cue
  // texts back to the allocator one by one would cost more than printing
  // them. The pointer keeps them reachable, so leak checkers stay quiet.
  static const auto* kept = new std::vector<Cue>(std::move(cues).value());
  (void)kept;
  return out ? 0 : 1;
}

}  // namespace lumerix
