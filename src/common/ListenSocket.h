#pragma once

#include "common/UniqueFd.h"

#include <netinet/in.h>

// The sockets on which others reach the agent: who may, and where.

/// Where to listen: the port on the configured address, or on all. False, with errno, when the configuration names
/// what is no address: then nobody gets in.
bool ListenAddress(unsigned short usPort, sockaddr_in& stAddr);

/// What couldn't be done.
enum class LISTEN_STEP
{
    CREATE,
    BIND,
    LISTEN,
};

/// A non-blocking TCP socket that listens on the port. None, with errno, when that fails; enFailed then says where. A
/// port on which old connections linger is taken all the same when the configuration asks for recovery.
CUniqueFd OpenListenSocket(unsigned short usPort, int nBacklog, LISTEN_STEP& enFailed);

/// Whether the configuration lets the peer of a new connection in; one line in the log when it doesn't.
bool IsConnectionAllowed(const sockaddr_in& stPeer);
