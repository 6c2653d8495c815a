#pragma once

/// Starts a thread, detached when bDetached is not 0. Gives its handle, a number from 0 up, or -1. While the
/// system is short of threads (EAGAIN) it tries again each second, without a limit.
int start_thread(int bDetached, void* (*pfn)(void*), void* pArg);

/// Waits until the thread of a handle has ended, at most lTimeoutMs. True when it has; its handle is void then.
/// True as well for a handle that names no thread (-1 among them), false for a detached one that still runs.
/// The agent's loops aren't joined on the way out but for the log writer, whose lines must reach the file.
bool wait_thread(int hThread, int lTimeoutMs);
