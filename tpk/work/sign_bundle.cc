#include "tpk/work/sign_bundle.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

extern char** environ;  // NOLINT: declared by the system's headers on some platforms only

namespace quarn::tpk {
namespace {

constexpr unsigned char kScript[] = {
#include "sign_bundle.inc"
};

void Run(std::vector<std::string> arguments) {
  const std::string path = arguments[2];
  arguments.insert(
      arguments.begin(),
      {"sh", "-c", std::string(std::begin(kScript), std::end(kScript)), "sign-bundle"});
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  pid_t process = 0;
  const int error = posix_spawnp(&process, "sh", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw SystemFailure("cannot start sh", error);
  int status = 0;
  while (waitpid(process, &status, 0) == -1 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
  ThrowIfCancelled();  // the same Ctrl-C has ended the script
  throw Failure(ExitCode::kInputOutput, "not-signed",
                fmt::format("{} could not be signed", Printable(path)),
                "docs/macos.md tells what signing needs");
}

}  // namespace

void SignApplication(const std::filesystem::path& application, const std::string& identity) {
  Run({"application", identity, application.string()});
}

void MakeSignedImage(const std::filesystem::path& folder, const std::string& identity,
                     const std::string& profile) {
  Run({"image", identity, folder.string(), profile});
}

}  // namespace quarn::tpk
