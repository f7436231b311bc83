// Sees the commands that the system's shell calls run: programs in front of the real ones on the
// PATH write down what they are called with.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quarn::testing {

/// Records from its construction on; the fixture puts PATH back.
class ShellRecorder {
 public:
  /// `directory` is made and holds the programs and their log.
  explicit ShellRecorder(const std::filesystem::path& directory);

  /// The commands run so far, each as its words joined by blanks.
  std::vector<std::string> Commands() const;
  void Clear();

 private:
  std::filesystem::path log_;
};

}  // namespace quarn::testing
