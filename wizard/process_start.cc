#include "wizard/process_start.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace quarn {
namespace {

void OpenStandardStreams() noexcept {
  // Each takes the lowest number that is free.
  int stream;
  do {
    stream = open("/dev/null", O_RDWR);
  } while (stream != -1 && stream <= STDERR_FILENO);
  if (stream != -1) close(stream);
}

}  // namespace

void PrepareProcess() noexcept {
  OpenStandardStreams();
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &action, nullptr);
  // Caught and not ignored: programs that are started would inherit that.
  action.sa_handler = [](int) {};
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);
}

}  // namespace quarn
