#pragma once

#include "common/UniqueFd.h"
#include "support/TestBytes.h"

#include <chrono>

// Loopback sockets for tests. Descriptors are -1 when a step failed.

constexpr std::chrono::milliseconds SOCKET_LIMIT = std::chrono::seconds(5);

CUniqueFd ListenTcp(unsigned short usPort, int nBacklog = 16);
/// Takes the next connection.
CUniqueFd AcceptTcp(const CUniqueFd& listener, std::chrono::milliseconds limit = SOCKET_LIMIT);
/// Connects to the loopback address, again and again until somebody listens there.
CUniqueFd ConnectTcp(unsigned short usPort, std::chrono::milliseconds limit = SOCKET_LIMIT);
/// Sends one datagram to the loopback address.
void SendUdp(unsigned short usPort, ByteView data);

bool SendAll(const CUniqueFd& fd, ByteView data);
/// szCount bytes, or fewer when no more come in time or the peer closes.
Bytes ReceiveBytes(const CUniqueFd& fd, size_t szCount, std::chrono::milliseconds limit = SOCKET_LIMIT);
/// True when the peer closes or resets in time; what it sends before is dropped.
bool SawClose(const CUniqueFd& fd, std::chrono::milliseconds limit = SOCKET_LIMIT);
