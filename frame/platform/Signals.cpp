#include "frame/platform/Signals.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace platform {

namespace {

sigset_t TerminationSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void BlockTerminationSignals() {
  const sigset_t set = TerminationSet();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  // A write to a client that went away must fail with an error, not end the process.
  signal(SIGPIPE, SIG_IGN);
}

int WaitForTerminationSignal() {
  const sigset_t set = TerminationSet();
  int number = 0;
  while (sigwait(&set, &number) != 0) {
  }
  return number;
}

void RaiseTermination() { kill(getpid(), SIGTERM); }

}  // namespace platform
