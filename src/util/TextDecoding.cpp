#include "util/TextDecoding.h"

#include <iconv.h>

#include <cerrno>

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

}  // namespace

std::optional<std::string> convertToUtf8(std::string_view bytes, const char* encoding) {
  IconvHandle cd(encoding);
  if (!cd.valid()) return std::nullopt;

  std::string out;
  // Each of our legacy encodings takes at most 3 UTF-8 bytes per input byte;
  // start at twice the input and grow when iconv asks for more.
  out.resize(bytes.size() * 2 + 16);
  char* in = const_cast<char*>(bytes.data());
  std::size_t inLeft = bytes.size();
  std::size_t used = 0;
  for (;;) {
    char* dst = out.data() + used;
    std::size_t outLeft = out.size() - used;
    const std::size_t rc = iconv(cd.get(), &in, &inLeft, &dst, &outLeft);
    used = out.size() - outLeft;
    if (rc != static_cast<std::size_t>(-1)) {
      // Flush any shift state; none of our encodings keeps one, but it is cheap.
      dst = out.data() + used;
      outLeft = out.size() - used;
      if (iconv(cd.get(), nullptr, nullptr, &dst, &outLeft) == static_cast<std::size_t>(-1)) {
        return std::nullopt;
      }
      used = out.size() - outLeft;
      break;
    }
    if (errno != E2BIG) return std::nullopt;  // EILSEQ or EINVAL: not this encoding
    out.resize(out.size() * 2);
  }
  out.resize(used);
  return out;
}

}  // namespace lumerix
