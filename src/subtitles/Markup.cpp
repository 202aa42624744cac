#include "subtitles/Markup.h"

#include <cstring>

namespace lumerix::markup {

void removeHtmlTags(std::string& s) {
  std::size_t w = 0, i = 0;
  auto keep = [&](std::size_t from, std::size_t to) {
    if (w != from) std::memmove(s.data() + w, s.data() + from, to - from);
    w += to - from;
  };
  for (;;) {
    const std::size_t lt = s.find('<', i);
    if (lt == std::string::npos) break;
    const std::size_t gt = s.find('>', lt + 1);
    if (gt == std::string::npos) break;  // no later '<' can close either
    if (gt == lt + 1) {                  // "<>" is text, not a tag
      keep(i, gt);
      i = gt;
      continue;
    }
    keep(i, lt);
    i = gt + 1;
  }
  keep(i, s.size());
  s.resize(w);
}

void removeOverrideBlocks(std::string& s) {
  std::size_t w = 0, i = 0;
  auto keep = [&](std::size_t from, std::size_t to) {
    if (w != from) std::memmove(s.data() + w, s.data() + from, to - from);
    w += to - from;
  };
  for (;;) {
    const std::size_t open = s.find('{', i);
    if (open == std::string::npos) break;
    const std::size_t close = s.find('}', open + 1);
    if (close == std::string::npos) break;
    keep(i, open);
    i = close + 1;
  }
  keep(i, s.size());
  s.resize(w);
}

}  // namespace lumerix::markup
