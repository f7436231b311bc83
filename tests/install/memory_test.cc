// A large kit must not grow the process.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

constexpr std::uint32_t kPieces = 6400;
constexpr std::uint32_t kPieceSize = 65536;
constexpr long kLimitInKiB = 32 * 1024;

template <class Policy>
class MemoryTest : public InstallTest {};
using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(MemoryTest, Policies);

TYPED_TEST(MemoryTest, AKitOf400MBIsInstalledInLessThan32MBOfMemory) {
  if (kSanitized) GTEST_SKIP() << "sanitizers take memory of their own";
  KitBuilder()
      .RepeatedFile(u"a\\large", std::string(kPieceSize, 'x'), kPieces)
      .WriteTo(this->kit(), {.level = 1});
  // In a process of its own, so that only its memory counts.
  const pid_t child = fork();
  if (child == 0) {
    Installation<TypeParam> installation(this->kit(), this->target());
    _exit(installation.RunPass() == 0 ? 0 : 1);
  }
  ASSERT_GT(child, 0);
  int status = -1;
  rusage usage{};
  ASSERT_EQ(wait4(child, &status, 0, &usage), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fs::file_size(this->target() / "a/large"), std::uintmax_t{kPieces} * kPieceSize);
  EXPECT_LT(usage.ru_maxrss, kLimitInKiB);
  this->RecordProperty("peak_kib", static_cast<int>(usage.ru_maxrss));
  std::cout << "peak resident size: " << usage.ru_maxrss << " KiB\n";
}

}  // namespace
}  // namespace quarn::testing
