#include "util/Files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "util/Path.h"

namespace lumerix {

namespace {

// Where a write to path really goes: through symbolic links to the file
// they name, so a linked settings file is updated, not replaced by a copy.
std::string followLinks(const std::string& path) {
  std::string current = path;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st {};
    if (::lstat(current.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return current;
    std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 4096) + 1, '\0');
    const ssize_t n = ::readlink(current.c_str(), target.data(), target.size());
    if (n <= 0) return current;
    target.resize(static_cast<std::size_t>(n));
    current = target.starts_with('/') ? target : path::append(path::parent(current), target);
  }
  return current;  // a loop of links: the rename will say what is wrong
}

}  // namespace

bool writeFileAtomically(const std::string& linkOrPath, std::string_view contents) {
  const std::string path = followLinks(linkOrPath);
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

std::optional<ReadProblem> readRegularFile(const std::string& path, std::string& contents, std::size_t maxBytes) {
  contents.clear();
  auto problem = [](int code, std::string description = {}) {
    return ReadProblem{code, description.empty() ? std::strerror(code) : std::move(description)};
  };
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return problem(errno);
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  struct stat st {};
  if (::fstat(fd, &st) != 0) return problem(errno);
  if (S_ISDIR(st.st_mode)) return problem(EISDIR);
  if (!S_ISREG(st.st_mode)) return problem(EINVAL, "Not a regular file");
  const auto tooLarge = [&] {
    char text[96];
    std::snprintf(text, sizeof text, "File is too large (over %zu MiB)", maxBytes >> 20);
    return problem(EFBIG, text);
  };
  if (static_cast<unsigned long long>(st.st_size) > maxBytes) return tooLarge();
  try {
    // One byte more than the size, so that the read seeing end of file
    // needs no growth; a file that grows meanwhile still stops at the cap.
    contents.reserve(static_cast<std::size_t>(st.st_size) + 1);
    adviseLargePages(contents.data(), contents.capacity());
    contents.resize(static_cast<std::size_t>(st.st_size) + 1);
    std::size_t used = 0;
    for (;;) {
      if (used == contents.size()) {
        if (used > maxBytes) {
          contents.clear();
          return tooLarge();
        }
        contents.resize(std::min(contents.size() * 2, maxBytes + 1));
      }
      const ssize_t n = ::read(fd, contents.data() + used, contents.size() - used);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        const int code = errno;
        contents.clear();
        return problem(code);
      }
      if (n == 0) break;
      used += static_cast<std::size_t>(n);
    }
    if (used > maxBytes) {
      contents.clear();
      return tooLarge();
    }
    contents.resize(used);
  } catch (const std::bad_alloc&) {
    contents.clear();
    contents.shrink_to_fit();
    return problem(ENOMEM);
  } catch (const std::length_error&) {
    contents.clear();
    return problem(ENOMEM);
  }
  return std::nullopt;
}

void adviseLargePages(void* memory, std::size_t bytes) {
#if defined(MADV_HUGEPAGE)
  constexpr std::uintptr_t large = std::uintptr_t{2} << 20;
  if (bytes < 2 * large) return;  // nothing a large page would cover whole
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t from = (begin + large - 1) & ~(large - 1);
  const std::uintptr_t to = (begin + bytes) & ~(large - 1);
  if (to > from) ::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#else
  (void)memory;
  (void)bytes;
#endif
}

bool readWholeFile(const std::string& path, std::string& contents) {
  auto problem = readRegularFile(path, contents, 16 << 20);
  if (problem) errno = problem->code;
  return !problem;
}

}  // namespace lumerix
