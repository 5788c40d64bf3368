#include "tools/cli/stop_request.h"

#include <atomic>
#include <csignal>

namespace planex::tools {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

std::atomic<bool> isAskedToStop{false};
struct sigaction before[2];  // one for each signal

static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

void restore() {
  for (int i = 0; i < 2; ++i) sigaction(kSignals[i], &before[i], nullptr);
}

/// Two that come together run this twice.
extern "C" void askToStop(int signal) {
  restore();
  if (isAskedToStop.exchange(true)) raise(signal);
}

}  // namespace

StopRequest::StopRequest() {
  isAskedToStop = false;
  struct sigaction action = {};
  action.sa_handler = askToStop;
  action.sa_flags = SA_RESTART;  // files are written on
  for (int i = 0; i < 2; ++i) {
    sigaction(kSignals[i], nullptr, &before[i]);
    if (before[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

StopRequest::~StopRequest() { restore(); }

bool StopRequest::isMade() { return isAskedToStop; }

}  // namespace planex::tools
