// Reader throughput on generated SubRip files: a ~50 MB one (far beyond any
// real file) and a typical ~100 KB episode, in UTF-8, plus GB 18030 and
// Windows-1251 files for the path through the encoding detector.
// Run: cmake -DLUMERIX_BENCH=ON, build, then ./bench/reader_bench

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include "subtitles/SRTParser.h"

namespace {

// Dialogue-like cues: a number, a timing line, one or two lines of text,
// now and then in italics; CR LF line ends as most rips have.
enum class Words { latin, chinese, russian };

std::string makeSubRip(std::size_t targetBytes, Words script) {
  const bool chinese = script == Words::chinese;
  static const char* latin[] = {"the",  "train", "leaves", "at", "midnight", "and",    "nobody", "knows", "why",
                                "café", "señor", "déjà",   "vu", "station",  "ticket", "please", "again", "never"};
  static const char* han[] = {"列车", "午夜", "出发", "没有人", "知道", "为什么", "车站", "车票", "请", "再一次"};
  static const char* cyrillic[] = {"поезд", "уходит", "в", "полночь", "и", "никто", "не", "знает", "почему",
                                   "станция", "билет", "пожалуйста", "снова", "никогда", "ещё", "раз"};
  std::mt19937 rng(42);
  std::string s;
  s.reserve(targetBytes + 256);
  auto clock = [](double x) {
    const long ms = static_cast<long>(x * 1000);
    char b[40];
    std::snprintf(b, sizeof b, "%02ld:%02ld:%02ld,%03ld", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    return std::string(b);
  };
  double t = 1.0;
  for (int n = 1; s.size() < targetBytes; ++n) {
    const double d = 1.0 + (rng() % 3000) / 1000.0;
    s += std::to_string(n) + "\r\n" + clock(t) + " --> " + clock(t + d) + "\r\n";
    for (int l = 0, lines = 1 + static_cast<int>(rng() % 2); l < lines; ++l) {
      const bool italic = rng() % 10 == 0;
      if (italic) s += "<i>";
      for (int w = 0, nw = 4 + static_cast<int>(rng() % 6); w < nw; ++w) {
        if (w && !chinese) s += ' ';
        s += chinese                       ? han[rng() % std::size(han)]
             : script == Words::russian ? cyrillic[rng() % std::size(cyrillic)]
                                        : latin[rng() % std::size(latin)];
      }
      if (italic) s += "</i>";
      s += "\r\n";
    }
    s += "\r\n";
    t += d + 0.2;
  }
  return s;
}

std::string fromUtf8(const std::string& utf8, const char* encoding) {
  iconv_t cd = iconv_open(encoding, "UTF-8");
  std::string out(utf8.size() * 2, '\0');
  char* in = const_cast<char*>(utf8.data());
  char* dst = out.data();
  std::size_t inLeft = utf8.size(), outLeft = out.size();
  iconv(cd, &in, &inLeft, &dst, &outLeft);
  iconv_close(cd);
  out.resize(out.size() - outLeft);
  return out;
}

// The generated file lives for the whole run; the page cache keeps it warm,
// so the figures are the reader's, not the disk's.
struct SubRipFile {
  std::string path;
  std::size_t bytes = 0;
  std::size_t cues = 0;

  SubRipFile(const char* name, std::size_t target, Words script, const char* encoding = nullptr)
      : SubRipFile(name, makeText(target, script, encoding)) {}

  SubRipFile(const char* name, std::string text) {
    bytes = text.size();
    path = "/tmp/lumerix-bench-" + std::to_string(::getpid()) + "-" + name + ".srt";
    std::ofstream(path, std::ios::binary) << text;
    cues = lumerix::SRTParser::parse(path).value().size();
  }
  ~SubRipFile() { std::remove(path.c_str()); }

  static std::string makeText(std::size_t target, Words script, const char* encoding) {
    std::string text = makeSubRip(target, script);
    return encoding ? fromUtf8(text, encoding) : text;
  }
};

void parseFile(benchmark::State& state, const SubRipFile& file) {
  for (auto _ : state) {
    auto cues = lumerix::SRTParser::parse(file.path);
    benchmark::DoNotOptimize(cues);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.bytes));
  state.counters["file_MB"] = static_cast<double>(file.bytes) / 1e6;
  state.counters["cues"] = static_cast<double>(file.cues);
}

void BM_ParseUtf8_50MB(benchmark::State& state) {
  static SubRipFile file("utf8-50MB", 50'000'000, Words::latin);
  parseFile(state, file);
}
void BM_ParseUtf8_100KB(benchmark::State& state) {
  static SubRipFile file("utf8-100KB", 100'000, Words::latin);
  parseFile(state, file);
}
void BM_ParseGb18030_50MB(benchmark::State& state) {
  static SubRipFile file("gb18030-50MB", 50'000'000, Words::chinese, "GB18030");
  parseFile(state, file);
}
// Russian as Windows tools save it: the detector's guess, then iconv.
// Against the UTF-8 figure above (the same size, mostly ASCII too).
void BM_ParseWindows1251_50MB(benchmark::State& state) {
  // Cyrillic takes two bytes in UTF-8 and one here: 50 MB once converted.
  static SubRipFile file("windows-1251-50MB", 73'400'000, Words::russian, "WINDOWS-1251");
  parseFile(state, file);
}

// A hostile line: ten million digits before an arrow. Every position of
// the run could start a timing; a matcher that recounts the run from each
// one takes hours here instead of milliseconds.
void BM_ParseDigitRun_10MB(benchmark::State& state) {
  static SubRipFile file("digits-10MB", std::string(10'000'000, '0') + " --> 00:00:01,000\nx\n");
  parseFile(state, file);
}

BENCHMARK(BM_ParseUtf8_50MB)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_ParseDigitRun_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseUtf8_100KB)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ParseGb18030_50MB)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_ParseWindows1251_50MB)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
