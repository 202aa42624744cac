#include "app/Demo.h"

#include <sys/stat.h>
#include <unistd.h>  // mkdtemp on macOS

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "subtitles/SRTParser.h"
#include "util/Files.h"
#include "util/Path.h"

namespace lumerix {

double demoLoopSeconds(std::string_view sample) {
  double last = 0;
  if (auto cues = SRTParser::parseBytes(std::string(sample))) {
    for (const Cue& cue : cues.value()) last = std::max(last, cue.end);
  }
  return last + 3.0;
}

DemoFolder::DemoFolder(std::string_view sampleText) {
  std::vector<std::string> candidates;
  if (const char* tmp = std::getenv("TMPDIR"); tmp && tmp[0] == '/') candidates.emplace_back(tmp);
  candidates.emplace_back("/tmp");
  for (const std::string& base : candidates) {
    struct stat st {};
    if (::stat(base.c_str(), &st) != 0) {
      problem = base + ": " + std::strerror(errno);
      continue;
    }
    if (!S_ISDIR(st.st_mode)) {
      problem = base + ": " + std::strerror(ENOTDIR);
      continue;
    }
    std::string pattern = path::append(base, "lumerix-demo-XXXXXX");
    if (!::mkdtemp(pattern.data())) {
      problem = base + ": " + std::strerror(errno);
      continue;
    }
    root = pattern;
    const std::string file = path::append(root, "sample.srt");
    if (!writeFileAtomically(file, sampleText)) {
      problem = file + ": " + std::strerror(errno);
      return;
    }
    sample = file;
    return;
  }
}

DemoFolder::~DemoFolder() {
  std::error_code ignored;
  if (!root.empty()) std::filesystem::remove_all(root, ignored);
}

}  // namespace lumerix
