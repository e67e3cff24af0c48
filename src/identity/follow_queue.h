// Programs that were blocked without a rule of their own and may be new versions of listed ones.
#pragma once

#include <string>

namespace kestrelon {

// Hands a blocked program to the follow worker. Any thread, never waits for the worker. A full
// queue drops the path: a program that is still blocked knocks again.
void QueueFollow(const std::wstring& path);

// For the worker: waits for the oldest path and takes it. False once StopFollowQueue was called.
[[nodiscard]] bool TakeFollow(std::wstring& path);

// The worker is to take paths; it is to end.
void OpenFollowQueue();
void StopFollowQueue();

}  // namespace kestrelon
