// How the progress loop spends its time: it never gives the processor up.
#include <sys/resource.h>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

/// How often this thread has given its processor up of its own accord: to sleep, to poll, to wait.
long TimesWaited() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

class Pace : public WizardTest {};

TEST_F(Pace, TheLoopTurnsWithoutAPause) {
  constexpr std::int64_t kTurns = 10000;
  WriteKit(ExampleKit());
  // The worker waits meanwhile, so that no turn has to wait for the record.
  Gate gate(target() / "ledger" / "2.0" / "ledger.cf");
  std::int64_t first_turn = 0;
  long waited = 0;
  toolkit.OnTurn([&] {
    if (toolkit.progress_seen().back() != 40) return;
    first_turn = toolkit.turns();
    waited = TimesWaited();
    toolkit.OnTurn([&] {
      if (toolkit.turns() != first_turn + kTurns) return;
      waited = TimesWaited() - waited;
      toolkit.OnTurn(nullptr);
      gate.LetThrough();
    });
  });
  InstallAndFinish(kStateSuccess);
  EXPECT_GE(toolkit.turns(), first_turn + kTurns);
  // The machine may make it wait now and then, for memory for example.
  EXPECT_LT(waited, kTurns / 10);
}

}  // namespace
}  // namespace quarn::testing
