#include "core/shell.h"
#include "tests/support/scratch.h"
namespace quarn::testing {
class Smoke : public PrivateMountTest {};
TEST_F(Smoke, Works) {
  stdx::u16string d;
  GetTempDirectory(&d);
  EXPECT_EQ(d, U16(tmp()) + u"/");
}
}  // namespace quarn::testing
