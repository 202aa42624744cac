#include <iostream>

#include "app/CommandLine.h"
#include "headless/HeadlessApp.h"

int main(int argc, char** argv) {
  using lumerix::CommandLine;
  std::ios::sync_with_stdio(false);
  const CommandLine cl = lumerix::parseCommandLine({argv + 1, argv + argc});
  switch (cl.mode) {
    case CommandLine::Mode::help:
      std::cout << lumerix::helpText(false);
      return 0;
    case CommandLine::Mode::version:
      std::cout << lumerix::versionText();
      return 0;
    case CommandLine::Mode::dumpCues:
      return lumerix::runDumpCues(cl.file, std::cout, std::cerr);
    case CommandLine::Mode::run:
      if (!cl.headless && !cl.demo) {
        std::cerr << "lumerix: this build has no window; printing what the bar would show (as --headless)\n";
      }
      if (auto note = lumerix::missingStartupFileNote(cl.file)) std::cerr << *note << '\n';
      return lumerix::runHeadless(
          {cl.file.empty() ? std::nullopt : std::optional<std::string>(cl.file), cl.demo, cl.player}, std::cout,
          std::cerr);
    case CommandLine::Mode::usageError:
      std::cerr << cl.error << '\n';
      return 2;
  }
  return 2;
}
