// The controller's side of encodings: reopening the loaded file in the
// encoding the user names, remembering that per file, and the preferred
// encoding for files the guess is unsure of.

#include <algorithm>
#include <cerrno>

#include "app/Controller.h"
#include "app/SettingsKeys.h"
#include "subtitles/Encodings.h"
#include "subtitles/SRTParser.h"
#include "ui/Preferences.h"
#include "ui/Texts.h"

namespace lumerix {

namespace {

// The encoding of menu entry or pop-up item `index`: 0 is automatic, then
// encoding::choices() in order.
std::string encodingAt(std::size_t index) {
  const auto choices = encoding::choices();
  return index == 0 || index > choices.size() ? std::string() : std::string(choices[index - 1].name);
}

std::vector<MenuItem> encodingItems() {
  std::vector<MenuItem> items{{std::string(prefs::automaticEncodingTitle), "", reopenEncodingAction(0), {}}, {}};
  const auto choices = encoding::choices();
  for (std::size_t i = 0; i < choices.size(); ++i) {
    items.push_back({std::string(choices[i].title), "", reopenEncodingAction(i + 1), {}});
  }
  return items;
}

}  // namespace

std::vector<MenuItem> Controller::menu() const {
  std::vector<MenuItem> items = statusMenu(conventions.texts, conventions.menu, {isListening(), canUndoSync()});
  // Beside the commands that choose a file.
  const auto autoPick =
      std::find_if(items.begin(), items.end(), [](const MenuItem& item) { return item.action == MenuAction::autoPick; });
  const auto at = autoPick == items.end() ? items.begin() : autoPick + 1;
  items.insert(at, MenuItem{std::string(texts::reopenWithEncodingTitle), "", MenuAction::none, encodingItems()});
  return items;
}

void Controller::reopenWithEncoding(const std::string& name) noexcept {
  if (!s.subPath) {
    showHint(texts::reopenWithoutFile);
    return;
  }
  const std::string path = *s.subPath;
  if (!name.empty()) {
    // Only a choice that reads the whole file is kept; a wrong one would
    // otherwise be remembered and silently ignored on every load.
    bool reads = false;
    try {
      const auto file = SRTParser::read(path, {name, ""});
      reads = file && file.value().encoding == name;
    } catch (const std::exception&) {
    }
    if (!reads) {
      showHint(s.subName + " cannot be read as " + encoding::displayName(name));
      return;
    }
  }
  if (name.empty()) {
    s.encodingChoice.reset();
  } else {
    s.encodingChoice = name;
  }
  saveCalibration();  // the side file keeps the choice beside the timing
  loadSubtitle(path);
}

void Controller::setFallbackEncoding(const std::string& name) noexcept {
  services.defaults.set(keys::fallbackEncoding, name);
}

std::vector<std::string> Controller::fallbackEncodingItems() {
  std::vector<std::string> items{std::string(prefs::automaticEncodingTitle)};
  for (const auto& choice : encoding::choices()) items.emplace_back(choice.title);
  return items;
}

long long Controller::fallbackEncodingIndex() const noexcept {
  const std::string name = services.defaults.stringFor(keys::fallbackEncoding).value_or("");
  const auto choices = encoding::choices();
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (choices[i].name == name) return static_cast<long long>(i + 1);
  }
  return 0;  // automatic, or a name set by hand that the list does not show
}

void Controller::setFallbackEncodingIndex(long long index) noexcept {
  if (index < 0) return;
  setFallbackEncoding(encodingAt(static_cast<std::size_t>(index)));
}

void Controller::performEncodingChoice(std::size_t index) noexcept {
  reopenWithEncoding(encodingAt(index));
}

}  // namespace lumerix
