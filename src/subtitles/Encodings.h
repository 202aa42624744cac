#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace lumerix::encoding {

// An encoding a user can choose: its name as the side file and settings
// keep it, and as menus show it ("Cyrillic (Windows-1251)").
struct Choice {
  std::string_view name;   // "windows-1251"
  std::string_view title;  // "Cyrillic (Windows-1251)"
};

// The common encodings, grouped by language, in the order menus list them.
std::span<const Choice> choices();

// The short name a message shows ("Windows-1251", "Shift-JIS", "UTF-16 LE");
// a name we do not know is shown as written.
std::string displayName(std::string_view name);

// Which encoding to read a file in, when the user has said.
struct Preference {
  std::string chosen;    // this file's own choice; empty: guess
  std::string fallback;  // used when the guess is unsure; empty: none
};

struct Decoded {
  std::string text;  // UTF-8, without a byte-order mark
  std::string name;  // the encoding it was read in, as in choices() ("UTF-8", "windows-1251", ...)
};

// Reads bytes as text, deciding the encoding in this order: the file's own
// chosen encoding when it reads without error; a byte-order mark (UTF-8,
// UTF-16 and UTF-32 in either order); UTF-16 without a mark, told by its
// zero bytes; valid UTF-8 (nothing else is looked at then); the detector's
// guess, unless it is unsure, when the fallback comes first; then GB 18030,
// Big5 and Windows-1252, and ISO 8859-1, which reads any bytes. Every
// conversion reads the whole text or is not used.
std::optional<Decoded> decode(std::string bytes, const Preference& preference = {});

}  // namespace lumerix::encoding
