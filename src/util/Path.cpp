#include "util/Path.h"

#include <algorithm>

namespace lumerix::path {

namespace {

std::string_view withoutTrailingSlashes(std::string_view p) {
  while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
  return p;
}

}  // namespace

std::string lastComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  const auto slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string parent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return "";
  if (slash == 0) return "/";
  return std::string(withoutTrailingSlashes(path.substr(0, slash)));
}

std::string append(std::string_view folder, std::string_view name) {
  std::string out(withoutTrailingSlashes(folder));
  if (out.empty() || out.back() != '/') out += '/';
  out.append(name);
  return out;
}

std::string extensionLowercased(std::string_view path) {
  const std::string name = lastComponent(path);
  const auto dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  std::string ext = name.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

}  // namespace lumerix::path
