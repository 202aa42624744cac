#include "SampleSubtitle.h"
#include "program/Program.h"

int main(int argc, char** argv) {
  return lumerix::runProgram(argc, argv, kSampleSubtitle, nullptr);  // no window in this build
}
