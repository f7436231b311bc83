// A system that runs out of memory while the wizard prepares.
#include "tests/support/allocations.h"
#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

class Memory : public WizardTest {
 protected:
  void ExpectDamagedKit() {
    RunWizard();
    EXPECT_EQ(toolkit.messages(),
              (std::vector<ShownMessage>{Error(TextOf("en", "IDS_ERROR_DAMAGEDSOURCE"))}));
    EXPECT_FALSE(toolkit.has_window());
    EXPECT_FALSE(ImageLeft());
  }
};

TEST_F(Memory, ThatDoesNotSufficeForTheTablesIsADamagedKit) {
  KitBuilder kit;
  kit.Product(u"fr", std::u16string(0x200000, u'a'), u"", u"");
  WriteKit(kit);
  const AllocationLimit limit(0x200000);
  ExpectDamagedKit();
}

// The tables are read, the text of the first page is too much: the reader's image must go too.
TEST_F(Memory, ThatDoesNotSufficeForTheProductsTextsIsADamagedKit) {
  KitBuilder kit;
  kit.Product(u"en", std::u16string(0x200000, u'a'), u"", u"");
  WriteKit(kit);
  // The product's record fits, its text with the welcome before it does not.
  const AllocationLimit limit(0x400000 + 0x1000);
  ExpectDamagedKit();
}

}  // namespace
}  // namespace quarn::testing
