#include "ui/Preferences.h"

#include <cstdio>

#include "util/Numbers.h"

namespace lumerix::prefs {

std::string fontValueLabel(double value) {
  return truncatedInteger(value);
}

std::string strokeValueLabel(double value) {
  return cFormat("%.1f", value);
}

std::string alphaValueLabel(double value) {
  return truncatedInteger(value * 100) + "%";
}

std::string folderLabel(const std::optional<std::string>& folder) {
  return folder ? *folder : "not set — open a subtitle once";
}

}  // namespace lumerix::prefs
