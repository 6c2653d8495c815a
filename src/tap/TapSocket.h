#pragma once

#include "common/Bytes.h"

#include <array>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

// What both ends of the tap's socket share.

/// False, with what is wrong, for a path that no socket can have.
bool FillTapAddress(const std::string& strPath, sockaddr_un& stAddress, std::string& strError);

/// A message of these bytes, borrowed, with room for one descriptor beside them.
class CTapMessage
{
public:
    explicit CTapMessage(ByteSpan bytes);
    CTapMessage(const CTapMessage&) = delete;
    CTapMessage& operator=(const CTapMessage&) = delete;

    msghdr& Head() { return m_stHead; }
    /// The descriptor goes with the message that is sent; it stays the caller's.
    void PutFd(int nFd);
    /// The descriptor that came with the message, the caller's from here on; -1 when none did.
    int TakeFd();

private:
    iovec m_stPart;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> m_acControl{};
    msghdr m_stHead{};
};
