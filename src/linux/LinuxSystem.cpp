#include "linux/LinuxSystem.h"

#include <unistd.h>

#include <climits>

#include "util/Path.h"

namespace lumerix {

std::string LinuxSystem::helperPath() const {
  char self[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return "";
  return path::append(path::parent(std::string(self, static_cast<std::size_t>(n))), "lumerix-mpris");
}

}  // namespace lumerix
