#include "SampleSubtitle.h"
#include "program/Program.h"
#include "util/StopSignals.h"

int main(int argc, char** argv) {
  lumerix::stopsignals::hold();  // before anything else: no stop may lose the timing
  return lumerix::runProgram(argc, argv, kSampleSubtitle, nullptr);  // no window in this build
}
