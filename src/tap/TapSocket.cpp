#include "tap/TapSocket.h"

#include <cstring>

bool FillTapAddress(const std::string& strPath, sockaddr_un& stAddress, std::string& strError)
{
    stAddress.sun_family = AF_UNIX;
    if (strPath.size() >= sizeof(stAddress.sun_path)) {
        strError = strPath + " is too long for a socket's name";
        return false;
    }
    std::memcpy(stAddress.sun_path, strPath.c_str(), strPath.size() + 1);
    return true;
}

CTapMessage::CTapMessage(ByteSpan bytes) : m_stPart{bytes.data(), bytes.size()}
{
    m_stHead.msg_iov = &m_stPart;
    m_stHead.msg_iovlen = 1;
    m_stHead.msg_control = m_acControl.data();
    m_stHead.msg_controllen = m_acControl.size();
}

void CTapMessage::PutFd(int nFd)
{
    cmsghdr* const pControl = CMSG_FIRSTHDR(&m_stHead);
    pControl->cmsg_level = SOL_SOCKET;
    pControl->cmsg_type = SCM_RIGHTS;
    pControl->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(pControl), &nFd, sizeof(nFd));
}

int CTapMessage::TakeFd()
{
    const cmsghdr* const pControl = CMSG_FIRSTHDR(&m_stHead);
    int nFd = -1;
    if (pControl != nullptr && pControl->cmsg_level == SOL_SOCKET && pControl->cmsg_type == SCM_RIGHTS &&
        pControl->cmsg_len == CMSG_LEN(sizeof(int)))
        std::memcpy(&nFd, CMSG_DATA(pControl), sizeof(nFd));
    return nFd;
}
