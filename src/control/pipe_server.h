// The control pipe: where the graphical client and administrative tools talk to the service.
#pragma once

namespace kestrelon {

inline constexpr const wchar_t* kControlPipeName = L"\\\\.\\pipe\\Kestrelon";

// Starts to accept clients, a thread for each. Failures are logged and survived: the core protects
// without a client.
void StartControlPipe();

// Ends the accepting and all connections; waits up to three seconds for clients that hang and then
// leaves them to the end of the process.
void StopControlPipe();

}  // namespace kestrelon
