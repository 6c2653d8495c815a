#pragma once

/// From now on SIGINT and SIGTERM ask the running command to end in good order. A second one ends the program.
void CatchStopSignals();
bool StopRequested();
/// Lets a command finish its last exchange after a stop request.
void ForgetStop();
