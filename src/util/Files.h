#pragma once

#include <string>
#include <string_view>

namespace lumerix {

// Replaces the file at path with contents so that readers, and a crash at
// any moment, see either the old file or the new one, never a mix: the
// text goes to a temporary file in the same folder, is flushed to disk, and
// is renamed over the old one. Returns false (and leaves the old file) on
// any failure; the reason is in errno.
bool writeFileAtomically(const std::string& path, std::string_view contents);

// Reads the whole file into contents. False when it cannot be read; the
// reason is in errno.
bool readWholeFile(const std::string& path, std::string& contents);

}  // namespace lumerix
