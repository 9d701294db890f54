// The receiving loop of zolclient: opens the source, feeds the session, stops on time,
// on the wanted number of pages or on request, and tells the exit status.
#pragma once

#include <ostream>

#include "client/ClientOptions.h"

namespace zolclient {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitBadArgument = 2;

// Runs until a stop condition; returns the exit status. Lines about pages go to `out`,
// messages to `err`.
int RunClient(const ClientOptions& options, std::ostream& out, std::ostream& err);

// Asks a running RunClient to stop at its next turn; safe to call from a signal handler.
void RequestClientStop();

}  // namespace zolclient
