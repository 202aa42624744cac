#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "SampleSubtitle.h"
#include "SyncTestSupport.h"
#include "TestSupport.h"
#include "app/CommandLine.h"
#include "app/Demo.h"
#include "linux/FileSettingsStore.h"
#include "program/Program.h"
#include "sync/Subprocess.h"
#include "ui/DesktopTexts.h"
#include "util/Files.h"
#include "util/JsonText.h"

namespace lumerix {
namespace {

using Mode = CommandLine::Mode;

TEST(CommandLineParsing, OptionsAndMistakes) {
  struct Row {
    std::vector<std::string> args;
    Mode mode;
    std::string file;
  };
  const Row rows[] = {
      {{"--help"}, Mode::help, ""},
      {{"-h"}, Mode::help, ""},
      {{"--version"}, Mode::version, ""},
      {{"--dump-cues", "a b.srt"}, Mode::dumpCues, "a b.srt"},
      {{"--dump-cues=x.vtt"}, Mode::dumpCues, "x.vtt"},
      {{"--dump-cues", "-odd-name.srt"}, Mode::dumpCues, "-odd-name.srt"},
      {{"--headless"}, Mode::run, ""},
      {{"--headless", "ep1.srt"}, Mode::run, "ep1.srt"},
      {{"ep1.srt", "--headless"}, Mode::run, "ep1.srt"},
      {{"--headless", "--", "-dash.srt"}, Mode::run, "-dash.srt"},
      {{"--demo"}, Mode::run, ""},
      {{"--headless", "--demo"}, Mode::run, ""},
      {{}, Mode::run, ""},
      {{"movie.srt"}, Mode::run, "movie.srt"},  // the launch form
      {{"--player", "mpv", "movie.srt"}, Mode::run, "movie.srt"},
      {{"--dump-cues"}, Mode::usageError, ""},
      {{"--dump-cues="}, Mode::usageError, ""},
      {{"--dump-cues", "a", "b"}, Mode::usageError, ""},
      {{"--dump-cues", "a", "--headless"}, Mode::usageError, ""},
      {{"--help", "extra"}, Mode::usageError, ""},
      {{"--headless", "a.srt", "b.srt"}, Mode::usageError, ""},
      {{"--demo", "a.srt"}, Mode::usageError, ""},
      {{"--frobnicate"}, Mode::usageError, ""},
      {{"-x"}, Mode::usageError, ""},
      {{"--headless", "--listen", "--player", "mpv", "ep.srt"}, Mode::run, "ep.srt"},
      {{"--listen", "ep.srt"}, Mode::run, "ep.srt"},
      {{"--listen"}, Mode::usageError, ""},  // nothing to listen for
      {{"--listen", "--demo"}, Mode::usageError, ""},
      {{"--listen", "--dump-cues", "a.srt"}, Mode::usageError, ""},
  };
  for (const Row& r : rows) {
    const CommandLine cl = parseCommandLine(r.args);
    EXPECT_EQ(cl.mode, r.mode) << testing::PrintToString(r.args);
    EXPECT_EQ(cl.file, r.file) << testing::PrintToString(r.args);
    if (r.mode == Mode::usageError) {
      EXPECT_TRUE(cl.error.starts_with("lumerix: ")) << cl.error;
      EXPECT_EQ(cl.error.find('\n'), std::string::npos) << cl.error;
    }
  }
  EXPECT_NE(parseCommandLine({"--frobnicate"}).error.find("'--frobnicate'"), std::string::npos);
  EXPECT_TRUE(parseCommandLine({"--headless", "a.srt"}).headless);
  EXPECT_FALSE(parseCommandLine({"a.srt"}).headless);
  EXPECT_EQ(parseCommandLine({"--player=vlc"}).player, "vlc");
  EXPECT_TRUE(parseCommandLine({"--listen", "a.srt"}).listen);
  EXPECT_FALSE(parseCommandLine({"a.srt"}).listen);
}

struct Run {
  int status;
  std::string out, err;
};

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Runs the real executable, as users and scripts do.
Run lumerix(const std::string& args, const std::string& program = LUMERIX_BINARY) {
  // ctest runs tests in parallel processes: name the files after this one.
  const std::string base = ::testing::TempDir() + "/lumerix-cli-" + std::to_string(::getpid());
  const std::string out = base + ".out", err = base + ".err";
  const std::string cmd = "'" + program + "' " + args + " >'" + out + "' 2>'" + err + "'";
  const int raw = std::system(cmd.c_str());
  Run run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
  std::remove(out.c_str());
  std::remove(err.c_str());
  return run;
}

TEST(CommandLineProgram, HelpVersionAndUsageErrors) {
  auto help = lumerix("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.out.starts_with("Usage: lumerix")) << help.out;
  EXPECT_NE(help.out.find("--dump-cues FILE"), std::string::npos);
  // macOS follows the TV app alone: nothing to name, no settings file.
  const std::string mac = helpText(false, false);
  EXPECT_EQ(mac.find("--player"), std::string::npos) << mac;
  EXPECT_EQ(mac.find("XDG"), std::string::npos) << mac;
  EXPECT_NE(helpText(true, true).find("--player NAME"), std::string::npos);

  auto version = lumerix("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "Lumerix 0.1\n");

  auto bad = lumerix("--no-such-option");
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.out, "");
  EXPECT_EQ(std::count(bad.err.begin(), bad.err.end(), '\n'), 1) << bad.err;

  const std::string helper = test::TempDir::parentOf(LUMERIX_BINARY) + "/lumerix-mpris";
  if (::access(helper.c_str(), X_OK) != 0) return;  // Linux builds only
  auto helperHelp = lumerix("--help", helper);
  EXPECT_EQ(helperHelp.status, 0);
  EXPECT_TRUE(helperHelp.out.starts_with("usage: lumerix-mpris poll|serve|stream")) << helperHelp.out;
  EXPECT_EQ(lumerix("frobnicate", helper).status, 2);
}

TEST(CommandLineProgram, DumpCuesPrintsExactlyWhatTheReaderReads) {
  for (const char* name : {"episode.srt", "lecture.vtt", "gb18030.srt", "malformed.srt", "empty.srt"}) {
    auto run = lumerix("--dump-cues '" + test::fixture(name) + "'");
    ASSERT_EQ(run.status, 0) << name << run.err;
    EXPECT_EQ(run.err, "");
    const auto json = nlohmann::json::parse(run.out);  // throws (fails) on anything but one document
    const auto cues = test::cuesOfFile(name);
    ASSERT_EQ(json.size(), cues.size()) << name;
    for (std::size_t i = 0; i < cues.size(); ++i) {
      // Bit-identical doubles: printing must round-trip.
      EXPECT_EQ(json[i]["start"].get<double>(), cues[i].start) << name << " #" << i;
      EXPECT_EQ(json[i]["end"].get<double>(), cues[i].end) << name << " #" << i;
      EXPECT_EQ(json[i]["text"].get<std::string>(), cues[i].text) << name << " #" << i;
    }
  }
  // Keys in reading order, text as raw UTF-8.
  auto gb = lumerix("--dump-cues '" + test::fixture("gb18030.srt") + "'");
  EXPECT_TRUE(gb.out.starts_with("[{\"start\":1.0,\"end\":2.0,\"text\":\"这是第一句。\"}")) << gb.out;
}

// The streamed document is byte for byte what the JSON library writes for
// the same cues: escapes, UTF-8 and shortest round-trip numbers alike.
TEST(CommandLineProgram, StreamedCuesMatchTheJsonLibrary) {
  std::mt19937_64 rng(11);
  std::vector<Cue> cues{{0.0, -0.0, "plain"},
                        {1e-7, 123456.789, "quote \" back\\slash \b\f\n\r\t \x01\x1f\x7f"},
                        {1.0 / 3, 99 * 3600 + 59 * 60 + 59.999, "这是 ünï \u2028 😀"},
                        {1e21, 5e-324, "x"}};
  std::uniform_real_distribution<double> any(0, 360000);
  for (int i = 0; i < 2000; ++i) {
    const double start = any(rng);
    cues.push_back({start, start + static_cast<double>(rng() % 10000) / 1000.0, std::string(1, char(rng() % 128))});
  }
  nlohmann::ordered_json expected = nlohmann::ordered_json::array();
  for (const Cue& c : cues) expected.push_back({{"start", c.start}, {"end", c.end}, {"text", c.text}});
  std::ostringstream out;
  writeCuesJson(cues, out);
  EXPECT_EQ(out.str(), expected.dump() + "\n");

  // Times as the reader makes them (whole seconds plus thousandths) take a
  // short cut; it must read back exactly and never be longer.
  for (int i = 0; i < 100000; ++i) {
    const double t = static_cast<double>(rng() % 360000) + static_cast<double>(rng() % 1000) / 1000.0;
    std::string ours;
    json::appendNumber(ours, t);
    const std::string theirs = nlohmann::json(t).dump();
    ASSERT_EQ(std::strtod(ours.c_str(), nullptr), t) << ours;
    ASSERT_LE(ours.size(), theirs.size()) << ours << " vs " << theirs;
  }
}

// A clock that moves only when told to.
struct HandClock : Clock {
  double now = 1000;
  double uptime() const noexcept override { return now; }
  double wallClock() const noexcept override { return 1.7e9 + now; }
};

// Runs the real program for a while, then stops it as a user would.
Run runFor(const std::vector<std::string>& args, std::chrono::milliseconds howLong, int signal = SIGTERM) {
  std::vector<std::string> argv{LUMERIX_BINARY};
  argv.insert(argv.end(), args.begin(), args.end());
  auto child = Subprocess::start(argv);
  if (!child) return {-1, "", child.error()};
  Run run{-1, "", ""};
  auto collect = [&](std::string* into) { return [into](std::string_view s) { into->append(s); }; };
  child.value()->pump(collect(&run.out), collect(&run.err), std::chrono::steady_clock::now() + howLong);
  ::kill(child.value()->pid(), signal);
  child.value()->pump(collect(&run.out), collect(&run.err), std::chrono::steady_clock::now() + std::chrono::seconds(5));
  run.status = child.value()->exitStatus();
  return run;
}

TEST(CommandLineProgram, DemoShowsTheSampleOnTimeAndStopsCleanly) {
  auto run = runFor({"--demo", "--headless"}, std::chrono::milliseconds(2500), SIGINT);
  EXPECT_EQ(run.status, 0) << run.err;
  std::vector<nlohmann::json> lines;
  std::istringstream in(run.out);
  for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
  ASSERT_GE(lines.size(), 4u) << run.out;
  EXPECT_EQ(lines[0]["status"], "Loaded sample.srt · 6 cues");
  // Nothing to click in a console: the start hint stops before the bar's instructions.
  EXPECT_EQ(lines[1]["status"], "⇄ Auto-syncing with your player");
  const auto first = std::find_if(lines.begin(), lines.end(), [](const auto& l) {
    return l.contains("text") && l["text"] == "Lumerix is listening.";
  });
  ASSERT_NE(first, lines.end()) << run.out;
  EXPECT_EQ((*first)["brand"], false);
  // The cue starts at 1.000 s of the player's clock: never shown before it
  // (each change of text says where the player was), and shown while it
  // lasts, however loaded the machine. (t counts from the start of the
  // output, a few milliseconds after the demo's player started.)
  EXPECT_GE((*first)["pos"].get<double>(), 1.0);
  EXPECT_LT((*first)["t"].get<double>(), 3.5);
  EXPECT_EQ((*first)["sub"], (*first)["pos"]);

  // Sizes from a settings file can be anything; measuring never overflows.
  HandClock still;
  std::ostringstream quiet;
  ConsoleHost host(still, quiet);
  for (double size : {28.0, 1e11, 1e300}) {
    const Size measured = host.measureText({.text = "two\nlines", .font = {{}, size}}, {756, 2000});
    EXPECT_LE(measured.width, 756) << size;
    EXPECT_LE(measured.height, 2000) << size;
  }

  // The demo's player plays its episode over and over.
  HandClock clock;
  DemoSync demo(clock, demoLoopSeconds(kSampleSubtitle));
  EXPECT_EQ(demoLoopSeconds(kSampleSubtitle), 18.5 + 3.0);
  clock.now += 21.5 + 2.25;
  EXPECT_DOUBLE_EQ(*demo.snapshot().position, 2.25);
  EXPECT_EQ(demo.snapshot().track, "Demo S01E01");
}

TEST(CommandLineProgram, TheLaunchFormFollowsAndSaysWhatItCannotDo) {
  test::TempDir dir;
  ::setenv("XDG_CONFIG_HOME", dir.path("config").c_str(), 1);
#if LUMERIX_WINDOW_SHELL
  // No screen to show the bar on: one line that points the way, and a
  // failure a script can see.
  const std::string display = std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "";
  const std::string wayland = std::getenv("WAYLAND_DISPLAY") ? std::getenv("WAYLAND_DISPLAY") : "";
  ::unsetenv("DISPLAY");
  ::unsetenv("WAYLAND_DISPLAY");
  auto run = runFor({dir.path("no-such.srt")}, std::chrono::milliseconds(3000));
  if (!display.empty()) ::setenv("DISPLAY", display.c_str(), 1);
  if (!wayland.empty()) ::setenv("WAYLAND_DISPLAY", wayland.c_str(), 1);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "lumerix: " + dir.path("no-such.srt") +
                         ": No such file or directory (starting without a subtitle)\n" +
                         std::string(texts::desktop::noDisplay) + "\n");
  EXPECT_EQ(run.out, "");
#else
  auto run = runFor({dir.path("no-such.srt")}, std::chrono::milliseconds(300));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err,
            "lumerix: this build has no window; printing what the bar would show (as --headless)\n"
            "lumerix: " +
                dir.path("no-such.srt") + ": No such file or directory (starting without a subtitle)\n");
  EXPECT_NE(run.out.find(R"("status":"⇄ Auto-syncing)"), std::string::npos) << run.out;
#endif
}

TEST(CommandLineProgram, DemoRunsWithoutAUsableTemporaryFolder) {
  ::setenv("TMPDIR", "/nonexistent", 1);
  auto run = runFor({"--demo", "--headless"}, std::chrono::milliseconds(1500));
  ::unsetenv("TMPDIR");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find(R"("status":"Loaded sample.srt · 6 cues")"), std::string::npos) << run.out;
}

TEST(CommandLineProgram, HeadlessSavesTheTimingWhenStopped) {
#if defined(__APPLE__)
  GTEST_SKIP() << "the settings live in the user defaults there, not in a file";
#endif
  // The second folder's name is Latin-1, not UTF-8: it must still be kept.
  for (const std::string folder : {"plain", "caf\xe9"}) {
    test::TempDir dir;
    dir.write(folder + "/ep.srt", "00:00:01,000 --> 00:00:02,000\nHi\n");
    ::setenv("XDG_CONFIG_HOME", dir.path("config").c_str(), 1);
    auto run = runFor({"--headless", dir.path(folder + "/ep.srt")}, std::chrono::milliseconds(300));
    EXPECT_EQ(run.status, 0) << run.err;
    std::string side;
    EXPECT_TRUE(readWholeFile(dir.path(folder + "/ep.srt.sync.json"), side));
    EXPECT_EQ(nlohmann::json::parse(side), nlohmann::json::parse(R"({"offset":0.0,"scale":1.0})"));
    std::ostringstream warnings;
    FileSettingsStore settings(dir.path("config/lumerix/settings.json"), warnings);
    EXPECT_EQ(settings.stringFor("SubtitleFolder"), dir.path(folder));
    EXPECT_EQ(warnings.str(), "");
    EXPECT_NE(run.out.find(R"("status":"Loaded ep.srt · 1 cues")"), std::string::npos) << run.out;
  }
}

TEST(CommandLineProgram, ListenStartsAtOnceAndSaysWhyItCannot) {
#if defined(__APPLE__)
  GTEST_SKIP() << "the app bundle has no command line of its own";
#endif
  test::TempDir dir;
  dir.write("ep.srt", "00:00:01,000 --> 00:00:02,000\nHi\n");
  ::setenv("XDG_CONFIG_HOME", dir.path("config").c_str(), 1);
  auto run = runFor({"--headless", "--listen", dir.path("ep.srt")}, std::chrono::milliseconds(300));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find(R"("status":"Too few spoken lines in this subtitle to sync by listening")"),
            std::string::npos)
      << run.out;
}

TEST(CommandLineProgram, DumpCuesReportsUnreadableFiles) {
  auto missing = lumerix("--dump-cues '" + test::fixture("no-such.srt") + "'");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(missing.err, "Failed to load " + test::fixture("no-such.srt") + ": No such file or directory\n");

  auto directory = lumerix("--dump-cues '" + test::fixture("") + "'");
  EXPECT_EQ(directory.status, 1);
  EXPECT_EQ(directory.err, "Failed to load " + test::fixture("") + ": Is a directory\n");

  // Devices never end and a FIFO blocks whoever opens it: neither is read.
  test::TempDir dir;
  ASSERT_EQ(::mkfifo(dir.path("f.srt").c_str(), 0600), 0);
  for (const std::string& odd : {std::string("/dev/zero"), std::string("/dev/urandom"), dir.path("f.srt")}) {
    auto refused = lumerix("--dump-cues '" + odd + "'");
    EXPECT_EQ(refused.status, 1) << odd;
    EXPECT_EQ(refused.err, "Failed to load " + odd + ": Not a regular file\n");
  }
  // A file far beyond any subtitle (sparse: it takes no room).
  ASSERT_EQ(::truncate((dir.write("huge.srt", ""), dir.path("huge.srt")).c_str(), 300 << 20), 0);
  EXPECT_EQ(lumerix("--dump-cues '" + dir.path("huge.srt") + "'").err,
            "Failed to load " + dir.path("huge.srt") + ": File is too large (over 256 MiB)\n");
}

}  // namespace
}  // namespace lumerix
