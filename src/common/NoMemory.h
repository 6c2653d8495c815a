#pragma once

#include <new>
#include <utility>

/// One error line for something that is dropped as there is no memory for it.
void LogNoMemory(const char* pszWhat);

/// Runs the call. When memory runs short inside, pszWhat, the one packet or record that the call is about, is dropped
/// with a line in the log and the thread goes on; false then. Other exceptions pass. What the call holds must be
/// owned by guards.
template <class Call> bool DropOnNoMemory(const char* pszWhat, Call&& call)
{
    try {
        std::forward<Call>(call)();
        return true;
    } catch (const std::bad_alloc&) {
        LogNoMemory(pszWhat);
        return false;
    }
}
