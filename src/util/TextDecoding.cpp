#include "util/TextDecoding.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>

namespace lumerix {

namespace {

// Closes the descriptor on every path out.
class IconvHandle {
 public:
  explicit IconvHandle(const char* from) : cd_(iconv_open("UTF-8", from)) {}
  ~IconvHandle() {
    if (valid()) iconv_close(cd_);
  }
  IconvHandle(const IconvHandle&) = delete;
  IconvHandle& operator=(const IconvHandle&) = delete;
  bool valid() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return cd_; }

 private:
  iconv_t cd_;
};

// A code page that maps each byte to one character on its own (the Windows
// code pages, KOI8, ISO 8859) as a table: read that way, a big file costs a
// lookup a byte instead of iconv's two conversions through UCS-4.
struct ByteTable {
  std::array<std::array<char, 4>, 256> utf8{};
  std::array<unsigned char, 256> length{};  // 0: the byte is not defined
};

// The table of an encoding, asked of iconv one byte at a time; absent when
// some byte is only the start of a sequence (a multi-byte or stateful
// encoding) or iconv has no converter.
std::optional<ByteTable> byteTableOf(const char* encoding) {
  IconvHandle cd(encoding);
  if (!cd.valid()) return std::nullopt;
  ByteTable table;
  for (int b = 0; b < 256; ++b) {
    iconv(cd.get(), nullptr, nullptr, nullptr, nullptr);  // back to the initial state
    char in = static_cast<char>(b);
    char* src = &in;
    std::size_t inLeft = 1;
    char out[16];
    char* dst = out;
    std::size_t outLeft = sizeof out;
    if (iconv(cd.get(), &src, &inLeft, &dst, &outLeft) == static_cast<std::size_t>(-1)) {
      if (errno == EILSEQ) continue;  // undefined in this code page
      return std::nullopt;            // EINVAL: the byte starts a longer sequence
    }
    const std::size_t n = sizeof out - outLeft;
    if (n == 0 || n > 4) return std::nullopt;  // no character of its own
    std::copy(out, out + n, table.utf8[b].begin());
    table.length[b] = static_cast<unsigned char>(n);
  }
  return table;
}

const std::optional<ByteTable>& cachedByteTable(const char* encoding) {
  static std::mutex mutex;
  static std::map<std::string, std::optional<ByteTable>> tables;
  const std::lock_guard lock(mutex);
  auto it = tables.find(encoding);
  if (it == tables.end()) it = tables.emplace(encoding, byteTableOf(encoding)).first;
  return it->second;  // entries are never removed: the reference stays good
}

bool asciiRun(const char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return (v & 0x8080808080808080ull) == 0;
}

// Two passes: the length (which also finds an undefined byte), then the
// text, each taking eight ASCII bytes at a time where the code page leaves
// ASCII as it is, and writing four bytes for every other byte (the extra
// ones are overwritten by the next).
std::optional<std::string> convertByTable(std::string_view bytes, const ByteTable& table) {
  bool asciiSame = true;
  for (int b = 0; b < 0x80; ++b) asciiSame = asciiSame && table.length[b] == 1 && table.utf8[b][0] == b;
  const char* p = bytes.data();
  const std::size_t n = bytes.size();
  std::size_t total = 0;
  std::size_t i = 0;
  while (i < n) {
    if (asciiSame && i + 8 <= n && asciiRun(p + i)) {
      total += 8;
      i += 8;
      continue;
    }
    const unsigned char len = table.length[static_cast<unsigned char>(p[i])];
    if (len == 0) return std::nullopt;
    total += len;
    ++i;
  }
  std::string out(total + 3, '\0');
  char* w = out.data();
  i = 0;
  while (i < n) {
    if (asciiSame && i + 8 <= n && asciiRun(p + i)) {
      std::memcpy(w, p + i, 8);
      w += 8;
      i += 8;
      continue;
    }
    const auto b = static_cast<unsigned char>(p[i++]);
    std::memcpy(w, table.utf8[b].data(), 4);
    w += table.length[b];
  }
  out.resize(total);
  return out;
}

}  // namespace

std::optional<std::string> convertToUtf8(std::string_view bytes, const char* encoding) {
  if (const auto& table = cachedByteTable(encoding)) return convertByTable(bytes, *table);
  IconvHandle cd(encoding);
  if (!cd.valid()) return std::nullopt;

  // Converted a buffer at a time and appended: the result is written once,
  // with no guess at its size to fill and throw away.
  std::string out;
  out.reserve(bytes.size() + bytes.size() / 2 + 16);
  char buffer[64 << 10];
  char* in = const_cast<char*>(bytes.data());
  std::size_t inLeft = bytes.size();
  for (;;) {
    char* dst = buffer;
    std::size_t outLeft = sizeof buffer;
    const std::size_t rc = iconv(cd.get(), &in, &inLeft, &dst, &outLeft);
    const int error = rc == static_cast<std::size_t>(-1) ? errno : 0;
    out.append(buffer, sizeof buffer - outLeft);
    if (error == E2BIG) continue;
    if (error != 0) return std::nullopt;  // EILSEQ or EINVAL: not this encoding
    // Flush any shift state; none of our encodings keeps one, but it is cheap.
    dst = buffer;
    outLeft = sizeof buffer;
    if (iconv(cd.get(), nullptr, nullptr, &dst, &outLeft) == static_cast<std::size_t>(-1)) return std::nullopt;
    out.append(buffer, sizeof buffer - outLeft);
    return out;
  }
}

}  // namespace lumerix
