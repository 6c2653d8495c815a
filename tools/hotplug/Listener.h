#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <string_view>

// Whether the agent is there, and whether it is still the same one, without a word to it: the kernel lists the sockets
// that listen, each with a number (inode) of its own that no later socket has.

/// Number of the socket that listens at the address, or on all addresses, by the text of /proc/net/tcp; 0 for none.
uint64_t FindListener(std::string_view table, const sockaddr_in& stAddress);

/// The same by the table of this moment.
uint64_t FindListener(const sockaddr_in& stAddress);
