#include "wizard/mac/translocation.h"

#include <unistd.h>

#include <string_view>

#include "kit/kit_location.h"

namespace quarn {
namespace {

// A place of the system's own; nobody else has a folder of this name.
constexpr const char* kPlaceOfCopies = "/AppTranslocation/";
constexpr const char* kProgramInBundle = "/Contents/MacOS/";
char use_current_directory[] = "usecwd";

/// Whether that is where the kit lies, which is then the current directory.
bool GoToKit(const stdx::string& directory) {
  return !directory.empty() && access((directory + "/quarn.tpk").c_str(), F_OK) == 0 &&
         chdir(directory.c_str()) == 0;
}

}  // namespace

const char* const kTranslocatedAdvice =
    "macOS has opened a copy of Setup in a place of its own, because Setup comes from the "
    "Internet. The kit, quarn.tpk, is not there.\n\nIn the Finder, drag Setup alone to another "
    "folder, then drag quarn.tpk to the same folder, and open Setup there.";

TranslocatedStart FindOriginalPlace(
    int argc, char** argv, const stdx::string& executable,
    const std::function<stdx::string(const stdx::string& bundle)>& original) {
  TranslocatedStart start{.arguments = {argv, argv + argc}};
  const bool is_told = argc > 1 && std::string_view(argv[1]) == use_current_directory;
  const std::size_t program = executable.rfind(kProgramInBundle);
  if (is_told || argc < 1 || program == stdx::string::npos ||
      executable.find(kPlaceOfCopies) == stdx::string::npos) {
    return start;
  }
  const stdx::string bundle = original(executable.substr(0, program));
  if (GoToKit(GetKitDirectory(bundle + executable.substr(program, stdx::string::npos)))) {
    start.arguments.insert(start.arguments.begin() + 1, use_current_directory);
  } else {
    start.is_lost = true;
  }
  return start;
}

}  // namespace quarn
