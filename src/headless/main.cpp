#include "headless/HeadlessApp.h"

int main(int argc, char** argv) {
  return lumerix::runProgram(argc, argv, nullptr);  // no window in this build
}
