#include "app/Hints.h"

#include "app/Controller.h"
#include "listen/ListenSession.h"
#include "subtitles/TimeFormat.h"
#include "ui/Preferences.h"
#include "util/Numbers.h"

namespace lumerix::hints {

std::string failedToLoad(std::string_view why) {
  return "Failed to load: " + std::string(why);
}

std::string loaded(std::string_view name, std::size_t cues, std::string_view encoding, double offset, double scale) {
  std::string text = "Loaded " + std::string(name) + " · " + std::to_string(cues) + " cues";
  if (!encoding.empty()) text += " · " + std::string(encoding);
  if (offset != 0 || scale != 1.0) text += cFormat(" (restored offset %+.2fs, rate %.4f)", offset, scale);
  return text;
}

std::string readAs(std::string_view name, std::string_view encoding) {
  return std::string(name) + " read as " + std::string(encoding) + " — another: Reopen with Encoding";
}

std::string noSubtitlesFound(std::string_view name, std::string_view encoding) {
  std::string text = "No subtitles found in " + std::string(name);
  if (!encoding.empty()) text += " · " + std::string(encoding);
  return text;
}

std::string loadedSecond(std::string_view name, std::size_t cues, double offset, double scale) {
  std::string text = "Loaded " + std::string(name) + " as the second · " + std::to_string(cues) + " cues";
  if (offset != 0 || scale != 1.0) text += cFormat(" (restored offset %+.2fs, rate %.4f)", offset, scale);
  return text;
}

std::string secondTimed(double rate, double offset) {
  return cFormat("✓ Second timed to the first: rate %.4f, offset %+.2fs — saved", rate, offset);
}

std::string noSecondFor(std::string_view firstName) {
  return "No second subtitle for " + std::string(firstName) + " — second removed";
}

std::string noSubtitleFor(std::string_view track) {
  return "No subtitle found for “" + std::string(track) + "” — press O to choose one";
}

std::string folderSet(std::string_view folderName) {
  return "Subtitle folder set: " + std::string(folderName);
}

std::string timingOffset(double offset) {
  return cFormat("Timing offset %+.1fs", offset);
}

std::string rate(double scale) {
  return cFormat("Rate %.4f", scale);
}

std::string frameRateRatio(std::string_view label) {
  return "Frame-rate ratio " + std::string(label);
}

std::string opacity(std::string_view label) {
  return "Opacity " + std::string(label);
}

std::string fontSize(std::string_view label) {
  return "Font size " + std::string(label);
}

std::string markedFirstPoint(std::string_view time) {
  return "① Marked first point at " + std::string(time) + " — seek near the end, align, then press 2";
}

std::string rateLooksWrong(double rate) {
  return cFormat("Computed rate %.4f looks wrong — realign both points", rate);
}

std::string calibrated(double rate, double offset) {
  return cFormat("✓ Calibrated! rate %.5f, offset %+.2fs — saved", rate, offset);
}

std::vector<std::string> everyStatusText(const UiTexts& ui, const SourceTexts& sources,
                                         const std::vector<std::string_view>& notes) {
  // A name of a common length: "Show.Name.S01E02.1080p.WEB.srt".
  const std::string file = "Show.Name.S01E02.1080p.WEB.srt";
  const std::string track = "Show.Name.S01E02.1080p.WEB.mkv";
  std::vector<std::string> all{
      ui.startHint,
      ui.notConnected,
      ui.grantHint,
      std::string(texts::hoverKeyHint),
      std::string(texts::hoverHint),
      std::string(texts::autoPickOn),
      std::string(texts::bandOn),
      std::string(texts::bandOff),
      std::string(texts::needFirstPoint),
      std::string(texts::pointsTooClose),
      failedToLoad("File is too large (over 256 MiB)"),
      loaded(file, 1234, "Windows-1251", 0, 1.0),
      loaded(file, 1234, "", -12.25, 1.0427),
      readAs(file, "Windows-1251"),
      noSubtitlesFound(file, "Shift_JIS"),
      noSubtitleFor(track),
      folderSet("Show Name (2024) Season 1"),
      timingOffset(-123.4),
      rate(1.0999),
      opacity(prefs::alphaValueLabel(1.0)),
      fontSize(prefs::fontValueLabel(80)),
      markedFirstPoint(fmtTime(3 * 3600 + 23 * 60 + 45.678)),
      rateLooksWrong(0.8123),
      calibrated(1.04271, -12.25),
      std::string(noSecond),
      std::string(adjustingSecond),
      std::string(adjustingFirst),
      std::string(secondIsFirst),
      std::string(secondRemoved),
      std::string(secondUnmatched),
      loadedSecond("Show.Name.S01E02.1080p.WEB.zh.srt", 1234, 0, 1.0),
      secondTimed(1.04271, -12.25),
      noSecondFor(file),
      timingOffset(-123.4) + " (second)",
      std::string(listen::texts::started),
      std::string(listen::texts::stopped),
      std::string(listen::texts::unsure),
      std::string(listen::texts::quiet),
      std::string(listen::texts::lost),
      std::string(listen::texts::ended),
      std::string(listen::texts::noSubtitle),
      std::string(listen::texts::fewCues),
      std::string(listen::texts::noServer),
      std::string(listen::texts::noTap),
      std::string(listen::texts::needsNewerMac),
      std::string(listen::texts::nothingToUndo),
      listen::texts::progress(88, 123, true),
      listen::texts::synced({1.0427, -12.25}),
      listen::texts::kept({1.0427, -12.25}, -123.45),
      listen::texts::undone({1.0427, -12.25}),
      // While playing: the track, the player's clock, the subtitle and its
      // timing (names as short as they come: long ones are the user's).
      "⇄ Show.S01E02.mkv  " + fmtTime(3 * 3600 + 23 * 60 + 45.678) + " · Show.S01E02.srt" + cFormat("  offset %+.1fs  rate %.4f", -12.3, 1.0427),
  };
  for (const auto& preset : Controller::scalePresets) all.push_back(frameRateRatio(preset.label));
  for (const PollerTexts& p : {sources.poller}) {
    for (const std::string* s : {&p.connecting, &p.permission, &p.idle, &p.unreadable}) all.push_back("◌ " + *s);
  }
  const StreamTexts& st = sources.stream;
  for (const std::string* s : {&st.connecting, &st.missing, &st.restarting, &st.nothingPlaying, &st.noPosition}) {
    all.push_back("◌ " + *s);
  }
  all.push_back("◌ " + st.launchFailedPrefix + "Permission denied");
  all.push_back("◌ " + st.otherPlayerPrefix + "VLC media player" + st.otherPlayerSuffix);
  for (std::string_view note : notes) all.emplace_back(note);
  return all;
}

}  // namespace lumerix::hints
