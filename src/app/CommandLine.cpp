#include "app/CommandLine.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "subtitles/SRTParser.h"

namespace lumerix {

CommandLine parseCommandLine(const std::vector<std::string>& args) {
  CommandLine cl;
  auto usage = [&](std::string message) {
    cl.mode = CommandLine::Mode::usageError;
    cl.error = "lumerix: " + std::move(message) + " (see 'lumerix --help')";
    return cl;
  };
  if (args.empty()) return usage("nothing to do");
  const std::string& first = args[0];
  if (first == "--help" || first == "-h") {
    cl.mode = CommandLine::Mode::help;
  } else if (first == "--version") {
    cl.mode = CommandLine::Mode::version;
  } else if (first == "--dump-cues" || first.starts_with("--dump-cues=")) {
    cl.mode = CommandLine::Mode::dumpCues;
    if (first == "--dump-cues") {
      if (args.size() < 2) return usage("--dump-cues needs a FILE");
      if (args.size() > 2) return usage("unexpected argument '" + args[2] + "'");
      cl.file = args[1];
      return cl;
    }
    cl.file = first.substr(std::string("--dump-cues=").size());
    if (cl.file.empty()) return usage("--dump-cues needs a FILE");
  } else if (first.starts_with("-")) {
    return usage("unknown option '" + first + "'");
  } else {
    return usage("unexpected argument '" + first + "'");
  }
  if (args.size() > 1) return usage("unexpected argument '" + args[1] + "'");
  return cl;
}

std::string helpText() {
  return "Usage: lumerix --dump-cues FILE\n"
         "       lumerix --help | --version\n"
         "\n"
         "Lumerix shows subtitles for video whose player cannot load them, following\n"
         "the player's position. This build reads subtitle files; the floating\n"
         "subtitle bar and player following are not part of it yet.\n"
         "\n"
         "  --dump-cues FILE  read FILE (SubRip .srt or WebVTT .vtt; UTF-8, GB 18030,\n"
         "                    Big5 or ISO 8859-1) and print its cues to stdout as a\n"
         "                    JSON array of {\"start\", \"end\", \"text\"}, sorted by\n"
         "                    start, times in seconds. Exit status 1 if FILE cannot\n"
         "                    be read.\n"
         "  -h, --help        show this help and exit\n"
         "  --version         print the version and exit\n"
         "\n"
         "Exit status 2 for a command line that cannot be understood.\n";
}

std::string versionText() {
  return "Lumerix " LUMERIX_VERSION "\n";
}

std::string cuesToJson(const std::vector<Cue>& cues) {
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const Cue& cue : cues) {
    array.push_back({{"start", cue.start}, {"end", cue.end}, {"text", cue.text}});
  }
  // The reader only ever produces valid UTF-8, so the strict handler cannot
  // fire; replacing would hide a fault if it ever did.
  return array.dump();
}

int runDumpCues(const std::string& path, std::ostream& out, std::ostream& err) {
  auto cues = SRTParser::parse(path);
  if (!cues) {
    err << "Failed to load: " << describe(cues.error()) << '\n';
    return 1;
  }
  try {
    out << cuesToJson(cues.value()) << '\n';
  } catch (const nlohmann::ordered_json::exception& e) {
    err << "lumerix: cannot write the cues as JSON: " << e.what() << '\n';
    return 1;
  }
  out.flush();
  return out ? 0 : 1;
}

}  // namespace lumerix
