#pragma once

/// Starts a thread, detached when bDetached is not 0. Gives its handle, a number from 0 up that is never used
/// again, or -1. While the system is short of threads (EAGAIN) it tries again each second, without a limit.
int start_thread(int bDetached, void* (*pfn)(void*), void* pArg);

/// Waits until the function of a thread has returned, at most lTimeoutMs. True when it has, and for a handle that
/// names no thread (-1 among them). The agent's loops aren't waited for on the way out, but for the log writer,
/// whose lines must reach the file.
bool wait_thread(int hThread, int lTimeoutMs);
