#pragma once

#include "common/Bytes.h"

/// Sends the bytes on a client's socket and cuts what it sent off data. Waits at most 20 ms at a time for the
/// socket to take more; what a client doesn't take by then is left in data, and the connection stays. bStalled
/// says that the last send failed: then nothing is waited for unless the socket takes bytes again, so that a
/// client that has stopped reading costs nobody else's time. True when all was sent and there was something.
bool SendData2Client(int nSocket, ByteView& data, const char* pszChannel, bool bStalled = false);
