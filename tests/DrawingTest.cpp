#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "RecordingCanvas.h"
#include "overlay/Nameplate.h"
#include "overlay/TextLayers.h"
#include "ui/StatusIcon.h"

namespace lumerix {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

const TextLayer kName = attributedLayers("Lumerix", true, 28, 7, 0).at(0);

// The plate for a 200 x 40 glyph box whose outline starts at (2, -3) from
// the line's origin, in an 800 x 97 view: the box lands at (300, 28.5).
std::vector<std::string> plate(double width, double phase) {
  test::RecordingCanvas c;
  c.lineBounds = {2, -3, 200, 40};
  drawBrand(c, {0, 0, width, 97}, kName, phase);
  EXPECT_EQ(c.depth, 0) << "every save restored";
  return c.ops;
}

std::vector<std::string> matching(const std::vector<std::string>& ops, const std::string& prefix) {
  std::vector<std::string> out;
  std::copy_if(ops.begin(), ops.end(), std::back_inserter(out),
               [&](const std::string& s) { return s.starts_with(prefix); });
  return out;
}

TEST(Nameplate, RulesFinialsOutlineBodyAndFace) {
  const auto ops = plate(800, 0.5);
  // Rules 130 long (the cap), 34 from the glyph box; the dark band fades in
  // towards the text on the left and out away from it on the right.
  EXPECT_THAT(std::vector<std::string>(ops.begin(), ops.begin() + 5),
              ElementsAre("save", "clipRect 136,46.7,130,3.6", "gradient 136,48.5->266,48.5 0:grey 0/0 1:grey 0/0.55",
                          "restore", "save"));
  EXPECT_THAT(matching(ops, "clipRect"), ElementsAre("clipRect 136,46.7,130,3.6", "clipRect 136,47.75,130,1.5",
                                                     "clipRect 534,46.7,130,3.6", "clipRect 534,47.75,130,1.5"));
  EXPECT_THAT(matching(ops, "fillPath"), ElementsAre("fillPath M283,53 L287.5,48.5 L283,44 L278.5,48.5 Z",
                                                     "fillPath M517,53 L521.5,48.5 L517,44 L512.5,48.5 Z"));
  EXPECT_THAT(matching(ops, "text"), ElementsAre("text stroke LUMERIX at 298,31.5", "text fill LUMERIX at 298,31.5",
                                                 "text clip LUMERIX at 298,31.5", "text fill LUMERIX at 298,33.5",
                                                 "text fill LUMERIX at 298,29.5"));
  // The outline's width follows the glyph height (0.13 x 40), never under 3.2.
  const auto stroke = std::find(ops.begin(), ops.end(), "text stroke LUMERIX at 298,31.5");
  EXPECT_THAT(std::vector<std::string>(stroke - 4, stroke + 1),
              ElementsAre("save", "stroke grey 0/0.9", "width 5.2", "join round", "text stroke LUMERIX at 298,31.5"));
  EXPECT_THAT(matching(ops, "shadow"), ElementsAre("shadow 0,-1 blur 3 grey 0/0.7", "shadow 0,-1 blur 3 grey 0/0.7",
                                                   "shadow 0,-2.5 blur 7 grey 0/0.65"));
  EXPECT_THAT(matching(ops, "fillRect"), ElementsAre("fillRect 300,28.5,200,40"));
}

TEST(Nameplate, HairlinesComeFromTheFixedSeedEveryFrame) {
  HairlineRandom random;
  EXPECT_DOUBLE_EQ(random.next(), 0.45884802692222754);
  EXPECT_DOUBLE_EQ(random.next(), 0.25089491909116024);
  EXPECT_DOUBLE_EQ(random.next(), 0.8839133908697003);
  EXPECT_DOUBLE_EQ(random.next(), 0.2066593889391058);

  const auto ops = plate(800, 0.5);
  const auto lines = matching(ops, "strokePath");
  EXPECT_EQ(lines.size(), 118u);  // from 80 before the box to its right edge
  // Each starts 2 x lh left of where it ends, on the box's bottom and top.
  EXPECT_EQ(lines.at(0), "strokePath M220,28.5 L300,68.5");
  EXPECT_EQ(lines.at(1), "strokePath M221.655,28.5 L301.655,68.5");
  const auto first = std::find(ops.begin(), ops.end(), lines.at(0));
  EXPECT_THAT(std::vector<std::string>(first - 2, first),
              ElementsAre("stroke grey 0/0.0801074", "width 1.29552"));  // r1 0.459: dark; r2, r3 as drawn
  EXPECT_EQ(ops, plate(800, 0.5)) << "the same plate every frame";
}

bool isGlint(const std::string& op) {
  return op.starts_with("gradient") && op.find(" 0.5:") != std::string::npos;
}

TEST(Nameplate, TheSheenSweepsDuringTheFirst45PercentOnly) {
  auto sheen = [](double phase) {
    std::vector<std::string> out;
    for (const auto& op : plate(800, phase)) {
      if (isGlint(op)) out.push_back(op);
    }
    return out;
  };
  // A 95-point glint from fully left of the word to fully right of it.
  EXPECT_THAT(sheen(0), ElementsAre("gradient 205,28.5->300,68.5 0:grey 1/0 0.5:grey 1/0.75 1:grey 1/0"));
  EXPECT_THAT(sheen(0.225), ElementsAre("gradient 400,28.5->495,68.5 0:grey 1/0 0.5:grey 1/0.75 1:grey 1/0"));
  EXPECT_THAT(sheen(0.44), ::testing::SizeIs(1));
  EXPECT_THAT(sheen(0.45), ::testing::IsEmpty());
  EXPECT_THAT(sheen(0.9), ::testing::IsEmpty());
  const auto ops = plate(800, 0.1);
  const auto glint = std::find_if(ops.begin(), ops.end(), isGlint);
  EXPECT_EQ(*(glint - 1), "blend plus");
  EXPECT_EQ(*(glint + 1), "blend normal");
}

TEST(Nameplate, APlateKeptBetweenFramesPlusTheGlintIsTheWholeNameplate) {
  test::RecordingCanvas still;
  still.lineBounds = {2, -3, 200, 40};
  drawBrandPlate(still, {0, 0, 800, 97}, kName);
  EXPECT_EQ(still.depth, 0);
  // The plate is the nameplate past its sweep, whatever the phase now.
  EXPECT_EQ(still.ops, plate(800, 0.9));
  for (double phase : {0.0, 0.225, 0.44}) {
    test::RecordingCanvas moving;
    moving.lineBounds = {2, -3, 200, 40};
    drawBrandGlint(moving, {0, 0, 800, 97}, kName, phase);
    EXPECT_EQ(moving.depth, 0);
    // Clipped to the glyphs at the plate's origin, then the same glint.
    const auto whole = plate(800, phase);
    const auto glint = std::find_if(whole.begin(), whole.end(), isGlint);
    EXPECT_THAT(moving.ops, ElementsAre("save", "text clip LUMERIX at 298,31.5", "blend plus", *glint, "blend normal",
                                        "restore"));
    EXPECT_TRUE(brandGlintShows(phase));
  }
  test::RecordingCanvas box;
  box.lineBounds = {2, -3, 200, 40};
  EXPECT_EQ(brandGlyphBox(box, {0, 0, 800, 97}, kName), (Rect{300, 28.5, 200, 40}));
  box.lineBounds.width = 0;
  EXPECT_EQ(brandGlyphBox(box, {0, 0, 800, 97}, kName), std::nullopt);
  test::RecordingCanvas past;
  drawBrandGlint(past, {0, 0, 800, 97}, kName, 0.45);
  EXPECT_THAT(past.ops, ::testing::IsEmpty());
  EXPECT_FALSE(brandGlintShows(0.45));
  EXPECT_FALSE(brandGlintShows(0.99));
}

// A frame redraws only the glint's band, where it was and where it is: every
// point the gradient lights must lie in it, or the light would be left
// behind or cut.
TEST(Nameplate, TheGlintsBandHoldsAllItsLight) {
  for (const Rect g : {Rect{300, 28.5, 200, 40}, Rect{10, 5, 90, 120}}) {
    double narrowest = g.width;
    for (double phase = 0; phase < 0.45; phase += 0.01) {
      // The gradient as drawn: from (sx, minY) to (sx + 95, maxY).
      const double p = phase / 0.45;
      const double sx = g.minX() - 95 + p * (g.width + 190);
      const auto band = brandGlintBand(g, phase);
      for (double y = g.minY(); y <= g.maxY(); y += g.height / 20) {
        for (double x = g.minX(); x <= g.maxX(); x += 0.5) {
          const double t = ((x - sx) * 95 + (y - g.minY()) * g.height) / (95 * 95 + g.height * g.height);
          if (!(t > 0 && t < 1)) continue;
          ASSERT_TRUE(band) << "phase " << phase << ": light at " << x << "," << y << " but no band";
          ASSERT_TRUE(x >= band->minX() && x <= band->maxX() && y >= band->minY() && y <= band->maxY())
              << "phase " << phase << ": light at " << x << "," << y;
        }
      }
      if (band) {
        EXPECT_GE(band->minX(), g.minX());
        EXPECT_LE(band->maxX(), g.maxX());
        narrowest = std::min(narrowest, band->width);
      }
    }
    EXPECT_LT(narrowest, g.width) << "the band is never narrower than the whole plate";
  }
  EXPECT_EQ(brandGlintBand({0, 0, 200, 40}, 0.45), std::nullopt);
}

TEST(Nameplate, NarrowPanelsLoseTheRulesAndEmptyTextDrawsNothing) {
  // (300 - 200) / 2 - 46 = 4 points of rule: not worth drawing.
  const auto narrow = plate(300, 0.5);
  EXPECT_THAT(matching(narrow, "clipRect"), ::testing::IsEmpty());
  EXPECT_THAT(matching(narrow, "fillPath"), ::testing::IsEmpty());
  EXPECT_EQ(matching(narrow, "text").size(), 5u);
  // Just wide enough: (392 - 200) / 2 - 46 = 50.
  EXPECT_EQ(matching(plate(392, 0.5), "clipRect").size(), 4u);

  test::RecordingCanvas empty;
  empty.lineBounds = {0, -3, 0, 40};
  drawBrand(empty, {0, 0, 800, 97}, kName, 0.1);
  EXPECT_THAT(empty.ops, ::testing::IsEmpty());
}

TEST(StatusIcon, WhiteCardWithTwoSubtitleLines) {
  test::RecordingCanvas c;
  drawStatusIcon(c);
  EXPECT_THAT(c.ops, ElementsAreArray({
                         "fill grey 1/1",
                         "fillPath R0.5,0.5,17,17 r4.5",
                         "stroke grey 0/0.18",
                         "width 0.5",
                         "strokePath R0.5,0.5,17,17 r4.5",
                         "fill grey 0/1",
                         "fillPath R5.5,9.6,7,2.6 r1.3",
                         "fillPath R3.5,5.2,11,2.6 r1.3",
                     }));
}

}  // namespace
}  // namespace lumerix
