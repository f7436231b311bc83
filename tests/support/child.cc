#include "tests/support/child.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quarn::testing {

int ResultOfChild(const std::function<int()>& run) {
  const pid_t child = fork();
  if (child == 0) [&]() noexcept { _exit(run()); }();
  int status = -1;
  EXPECT_GT(child, 0);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace quarn::testing
