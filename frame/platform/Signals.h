// Ending a program cleanly on SIGINT and SIGTERM.
#pragma once

namespace platform {

// Blocks SIGINT and SIGTERM in the calling thread and in threads it starts later, so that
// only WaitForTerminationSignal sees them. Call it first thing in main.
void BlockTerminationSignals();

// Waits for SIGINT or SIGTERM and returns its number.
int WaitForTerminationSignal();

// Sends SIGTERM to this process (used to end a wait from inside the program).
void RaiseTermination();

}  // namespace platform
