#include "util/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "util/Path.h"

namespace lumerix {

bool writeFileAtomically(const std::string& path, std::string_view contents) {
  std::string folder = path::parent(path);
  if (folder.empty()) folder = ".";
  // A hidden sibling, so that the rename stays within one file system.
  std::string tmp = path::append(folder, "." + path::lastComponent(path) + ".XXXXXX");
  const int fd = ::mkstemp(tmp.data());
  if (fd < 0) return false;
  auto fail = [&] {
    const int code = errno;
    ::close(fd);
    ::unlink(tmp.c_str());
    errno = code;
    return false;
  };
  // Keep the permissions of the file we replace; a new file gets the usual 0644.
  struct stat old {};
  ::fchmod(fd, ::stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0644);
  for (std::size_t done = 0; done < contents.size();) {
    const ssize_t n = ::write(fd, contents.data() + done, contents.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail();
    done += static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0) return fail();
  if (::close(fd) != 0) {
    const int code = errno;
    ::unlink(tmp.c_str());
    errno = code;
    return false;
  }
  if (::rename(tmp.c_str(), path.c_str()) != 0) {
    const int code = errno;
    ::unlink(tmp.c_str());
    errno = code;
    return false;
  }
  return true;
}

bool readWholeFile(const std::string& path, std::string& contents) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st {};
  // One byte more than the size, so that the read seeing end of file needs no growth.
  const bool sized = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0;
  contents.resize(sized ? static_cast<std::size_t>(st.st_size) + 1 : 65536);
  std::size_t used = 0;
  for (;;) {
    if (used == contents.size()) contents.resize(contents.size() * 2);
    const ssize_t n = ::read(fd, contents.data() + used, contents.size() - used);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int code = errno;
      ::close(fd);
      contents.clear();
      errno = code;
      return false;
    }
    if (n == 0) break;
    used += static_cast<std::size_t>(n);
  }
  ::close(fd);
  contents.resize(used);
  return true;
}

}  // namespace lumerix
