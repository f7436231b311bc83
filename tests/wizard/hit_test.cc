// The test of each event of an installation: whether it lies on the Cancel button.
#include <string>
#include <vector>

#include "tests/wizard/held_install.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

struct Hit {
  const char* name;
  Point window;
  Point event;
  bool hits;
};

class HitTest : public Install, public ::testing::WithParamInterface<Hit> {};

// Deliberate: the event's location is converted to the window although it is the window's already,
// and no type of event is asked for. So the test is off by the window's position.
TEST_P(HitTest, EndsTheLoopWith1223) {
  const Hit& row = GetParam();
  toolkit.window_position = row.window;
  WhileHeldAt40([&] { toolkit.Move(row.event); });
  InstallAndFinish(row.hits ? kStateError : kStateSuccess, [&] {
    if (row.hits) {
      EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
      // The last message that the worker had published is the path of the file in work.
      EXPECT_EQ(
          toolkit.messages(),
          (std::vector<ShownMessage>{Error((target() / "ledger" / "2.0" / "ledger.cf").string())}));
    } else {
      EXPECT_TRUE(toolkit.messages().empty());
    }
  });
  EXPECT_EQ(fs::exists(own_cfg()), !row.hits)
      << "the directory of a broken-off run is not recorded";
}

INSTANTIATE_TEST_SUITE_P(
    Table, HitTest,
    ::testing::Values(
        Hit{"InTheCornerOfTheScreen", {0, 0}, {450, 335}, true},
        Hit{"FirstPoint", {0, 0}, {410, 320}, true}, Hit{"LastPoint", {0, 0}, {489, 349}, true},
        Hit{"LeftOfIt", {0, 0}, {409, 320}, false}, Hit{"RightOfIt", {0, 0}, {490, 335}, false},
        Hit{"AboveIt", {0, 0}, {450, 319}, false}, Hit{"BelowIt", {0, 0}, {450, 350}, false},
        Hit{"JustInside", {0, 0}, {489.9, 349.9}, true},
        Hit{"JustOutside", {0, 0}, {409.9, 320}, false},
        Hit{"OffByTheWindow", {100, 50}, {450, 335}, false},
        Hit{"OffByTheWindowTheOtherWay", {100, 50}, {550, 385}, true}),
    [](const auto& info) { return info.param.name; });

TEST_F(Install, OneOfTheEventsOfATurnIsEnough) {
  WhileHeldAt40([&] { toolkit.Move({{0, 0}, {450, 335}, {1, 1}}); });
  InstallAndFinish(kStateError);
}

TEST_F(Install, AWindowThatWasTakenApartHasNoButtonToHit) {
  WhileHeldAt40([&] {
    toolkit.Answer("Yes");
    toolkit.PressEscape();
    toolkit.Move({450, 335});
  });
  RunInstallation(kStateSuccess);
}

// The event is dispatched all the same, so a click in the corner of the screen also stops the
// worker.
TEST_F(Install, AClickThatHitsIsAlsoDispatched) {
  HoldAt40([&] { toolkit.Click("Cancel"); });
  toolkit.WhileAsked([&] { Open(); });
  InstallAndFinish(kStateError, [&] {
    EXPECT_TRUE(Eventually([&] { return Status().percent == 100; })) << "the pass completes";
    EXPECT_TRUE(BeginsNoOtherPass());
  });
}

TEST_F(Install, AHitInTheTurnThatReads100StillIsACancel) {
  bool hit = false;
  toolkit.OnTurn([&] {
    if (toolkit.progress_seen().back() != 100) return;
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kFinished}))
        << "the finish text is shown for this turn";
    toolkit.Move({450, 335});
    hit = true;
  });
  InstallAndFinish(kStateError, [&] {
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error(kFinished)}));
  });
  EXPECT_TRUE(hit);
  EXPECT_TRUE(fs::exists(target() / "about" / "en.html")) << "what is installed stays";
  EXPECT_FALSE(fs::exists(own_cfg()));
}

TEST_F(Install, TurnsWithoutAnEventHitNothing) {
  WhileHeldAt40([] {});
  InstallAndFinish(kStateSuccess);
  EXPECT_GT(toolkit.turns(), 1);
}

// Deliberate: a turn without an event is tested too, at the origin. Only a window that stands
// almost wholly off the screen has its Cancel button there.
TEST_F(Install, AMissingEventIsTestedAtTheOrigin) {
  toolkit.window_position = {-450, -335};
  InstallAndFinish(kStateError, [&] { EXPECT_EQ(toolkit.turns(), 1); });
  EXPECT_FALSE(fs::exists(own_cfg()));
}

}  // namespace
}  // namespace quarn::testing
