#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "subtitles/Cue.h"

namespace lumerix {

struct CommandLine {
  enum class Mode { help, version, dumpCues, headless, usageError };
  Mode mode = Mode::help;
  std::string file;    // dumpCues: the subtitle file; headless: the start-up subtitle, if any
  bool demo = false;   // headless: the built-in player and the bundled sample
  std::string player;  // headless: the MPRIS player to follow; empty: the setting, else any
  std::string error;   // usageError: one line for stderr
};

// args excludes the program name.
CommandLine parseCommandLine(const std::vector<std::string>& args);

std::string helpText();
std::string versionText();

// The cues as one JSON array of {"start", "end", "text"} objects, in list
// order. Numbers are written so that they read back to the identical double.
std::string cuesToJson(const std::vector<Cue>& cues);

// Reads the file and writes its cues to out; on failure writes
// "Failed to load: <reason>" to err. Returns the process exit status.
int runDumpCues(const std::string& path, std::ostream& out, std::ostream& err);

}  // namespace lumerix
