#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "subtitles/Cue.h"

namespace lumerix {

namespace platform {
enum class Delivery;
}

struct CommandLine {
  enum class Mode { help, version, dumpCues, run, doAction, usageError };
  Mode mode = Mode::help;
  std::string file;       // dumpCues: the subtitle file; run: the start-up subtitle, if any
  std::string second;     // run: the second subtitle shown with it, if any
  bool headless = false;  // run: print what the bar would show instead of showing it
  bool demo = false;      // run: the built-in player and the bundled sample
  bool listen = false;    // run: sync FILE by listening from the start, as the key does
  std::string player;     // run: the MPRIS player to follow; empty: the setting, else any
  std::string action;     // doAction: the name of one of globalActions()
  std::string error;      // usageError: one line for stderr
};

// args excludes the program name. `lumerix [--second FILE2] [FILE]` runs the
// program (the bar, following the player, with FILE loaded, and FILE2 under it).
CommandLine parseCommandLine(const std::vector<std::string>& args);

// Said on stderr when the start-up subtitle named on the command line does
// not exist: the program starts without one, as it would with no name.
std::optional<std::string> missingStartupFileNote(const std::string& file);

// window: whether this build shows the bar (else it runs headless);
// linux: whether it follows MPRIS players, which --player names, and keeps
// its settings in a file (macOS follows the TV app alone, and keeps them in
// the user defaults).
std::string helpText(bool window, bool linux = true);

// `--do ACTION` once the running bar answered: what it says on err, and the
// exit status (0 taken; 1 no bar, or it did not take it, with why).
int deliveryStatus(platform::Delivery delivery, const std::string& action, const std::string& why, std::ostream& err);
std::string versionText();

// The cues as one JSON array of {"start", "end", "text"} objects, in list
// order, and a line feed. Numbers are written so that they read back to the
// identical double.
void writeCuesJson(const std::vector<Cue>& cues, std::ostream& out);

// Reads the file and writes its cues to out; on failure writes
// "Failed to load <path>: <reason>" to err. Returns the process exit status.
int runDumpCues(const std::string& path, std::ostream& out, std::ostream& err);

}  // namespace lumerix
