// A system that runs out of memory while a launcher's file is read: what was not read is in the
// copy that the next rewrite makes.
#include <new>

#include "config/template_dirs.h"
#include "tests/config/config_support.h"
#include "tests/support/allocations.h"

namespace quarn::testing {
namespace {

class ConfigMemory : public ScratchTest {
 protected:
  std::filesystem::path Own() const { return home() / ".Orbex/qlaunch/qlaunch.cfg"; }
};

TEST_F(ConfigMemory, ThatDoesNotSufficeForAFileLeavesACopyOfIt) {
  const std::string before = "First=1\nLong=" + std::string(0x100000, 'x') + "\nLast=2\n";
  WriteFile(Own(), before);
  LauncherConfig store;
  {
    const AllocationLimit limit(0x80000);
    LoadLauncherConfig(store);
  }
  EXPECT_NE(FindConfigValues(store.own, u"First"), nullptr) << "read before the memory ran out";
  EXPECT_EQ(FindConfigValues(store.own, u"Last"), nullptr);
  SaveLauncherConfig(store);
  EXPECT_EQ(ReadFile(Own()), "First=1\n");
  EXPECT_EQ(ReadFile(Own().string() + ".orig"), before);
}

TEST_F(ConfigMemory, ThatSufficesAgainLetsTheNextRewriteThrough) {
  WriteFile(Own(), "Long=" + std::string(0x100000, 'x') + "\n");
  {
    const AllocationLimit limit(0x80000);
    EXPECT_THROW(SaveTemplateLocations({u"/templates"}, false), std::bad_alloc);
  }
  SaveTemplateLocations({u"/templates"}, false);
  EXPECT_EQ(ReadFile(Own()),
            "Long=" + std::string(0x100000, 'x') + "\nConfigurationTemplatesLocation=/templates\n");
}

}  // namespace
}  // namespace quarn::testing
