#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumerix {

// Replaces the file at path with contents so that readers, and a crash at
// any moment, see either the old file or the new one, never a mix: the
// text goes to a temporary file in the same folder, is flushed to disk, and
// is renamed over the old one. A symbolic link is followed: the file it
// names is replaced, and the link stays. Returns false (and leaves the old
// file) on any failure; the reason is in errno.
bool writeFileAtomically(const std::string& path, std::string_view contents);

// Why a file could not be read: the system's error number and a sentence
// for users ("No such file or directory", "Not a regular file").
struct ReadProblem {
  int code = 0;
  std::string description;
};

// Reads a regular file whole into contents. What is not a regular file is
// refused without waiting on it (a FIFO would block the open, a device
// would never end), and so is a file of more than maxBytes; running out of
// memory is a problem like any other. Never throws.
std::optional<ReadProblem> readRegularFile(const std::string& path, std::string& contents, std::size_t maxBytes);

// Asks the system to back this memory with large pages where it can: a
// list of half a million cues or a file of 50 MB then costs a few hundred
// page faults instead of tens of thousands. A hint only; nothing else changes.
void adviseLargePages(void* memory, std::size_t bytes);

// The same for the small files the program keeps (settings, side files):
// at most 16 MiB. False when it cannot be read; the reason is in errno.
bool readWholeFile(const std::string& path, std::string& contents);

}  // namespace lumerix
