// A system that runs out of memory while the wizard prepares.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

#include "tests/wizard/wizard_test.h"

namespace {
/// Requests of more bytes than this fail.
std::atomic<std::size_t> largest_request = std::numeric_limits<std::size_t>::max();
}  // namespace

void* operator new(std::size_t size) {
  void* const block = size > largest_request ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace quarn::testing {
namespace {

class Memory : public WizardTest {
 protected:
  ~Memory() override { largest_request = std::numeric_limits<std::size_t>::max(); }
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
  largest_request = 0x200000;
  ExpectDamagedKit();
}

// The tables are read, the text of the first page is too much: the reader's image must go too.
TEST_F(Memory, ThatDoesNotSufficeForTheProductsTextsIsADamagedKit) {
  KitBuilder kit;
  kit.Product(u"en", std::u16string(0x200000, u'a'), u"", u"");
  WriteKit(kit);
  largest_request = 0x400000 + 0x1000;  // the product's record fits, its text with the welcome not
  toolkit.Story([&] { toolkit.CloseWithBox(); });
  ExpectDamagedKit();
}

}  // namespace
}  // namespace quarn::testing
