#include "uesim/DeviceRecords.h"

#include "common/UniqueFd.h"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace
{
constexpr auto RETRY_TIME = std::chrono::milliseconds(200);
constexpr timeval SEND_LIMIT = {2, 0}; // for the connection and for the record

CUniqueFd Connect(const std::string& strHost)
{
    addrinfo stHints{};
    stHints.ai_family = AF_INET;
    stHints.ai_socktype = SOCK_STREAM;
    addrinfo* pFound = nullptr;
    const std::string strPort = std::to_string(DEVICE_MONITOR_PORT);
    if (getaddrinfo(strHost.c_str(), strPort.c_str(), &stHints, &pFound) != 0)
        return {};
    CUniqueFd link(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool bGood = link.IsOpen() &&
                       setsockopt(link.Get(), SOL_SOCKET, SO_SNDTIMEO, &SEND_LIMIT, sizeof(SEND_LIMIT)) == 0 &&
                       connect(link.Get(), pFound->ai_addr, pFound->ai_addrlen) == 0;
    freeaddrinfo(pFound);
    return bGood ? std::move(link) : CUniqueFd();
}
} // namespace

std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> DEVICE_RECORD::Encode() const
{
    const uint8_t ucArrive = bArrives ? DEVICE_MONITOR_INFO_STRU::ARRIVED : DEVICE_MONITOR_INFO_STRU::LEFT;
    return EncodeDeviceRecord({ulPortNum, static_cast<uint8_t>(enType), ucArrive, strName, strGroup});
}

SimTime CDeviceRecords::OnTick(SimTime now)
{
    while (!m_records.empty() && now >= m_retry) {
        const DEVICE_RECORD& stRecord = m_records.front();
        if (!SendFirst()) {
            if (!m_bRefused)
                m_log.Event("monitor", "%s doesn't take records (%s), trying again", m_strHost.c_str(),
                            std::strerror(errno));
            m_bRefused = true;
            m_retry = now + RETRY_TIME;
            break;
        }
        m_bRefused = false;
        m_log.Event("monitor", "port %u %s %s group %s", stRecord.ulPortNum, stRecord.bArrives ? "arrives" : "leaves",
                    stRecord.strName.c_str(), stRecord.strGroup.c_str());
        m_records.pop_front();
    }
    return m_records.empty() ? NEVER : m_retry;
}

bool CDeviceRecords::SendFirst() const
{
    const auto aucRecord = m_records.front().Encode();
    const CUniqueFd link = Connect(m_strHost);
    return link.IsOpen() &&
           send(link.Get(), aucRecord.data(), aucRecord.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(aucRecord.size());
}
