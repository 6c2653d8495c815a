#include "uesim/DeviceRecords.h"

#include "common/Bytes.h"
#include "common/UniqueFd.h"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace
{
constexpr auto RETRY_TIME = std::chrono::milliseconds(200);
constexpr timeval SEND_LIMIT = {2, 0}; // for the connection and for the record

constexpr size_t REC_TYPE = 4;
constexpr size_t REC_ARRIVES = 5;
constexpr size_t REC_NAME = 6;
constexpr size_t REC_NAME_SIZE = 256;
constexpr size_t REC_GROUP = 262;
constexpr size_t REC_GROUP_SIZE = 258;
static_assert(REC_GROUP + REC_GROUP_SIZE == DEVICE_RECORD::SIZE);

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

std::array<unsigned char, DEVICE_RECORD::SIZE> DEVICE_RECORD::Encode() const
{
    std::array<unsigned char, SIZE> aucRecord{};
    const ByteSpan record(aucRecord);
    for (size_t i = 0; i < sizeof(ulPortNum); ++i) // network byte order
        aucRecord[i] = static_cast<unsigned char>(ulPortNum >> (24 - 8 * i));
    aucRecord[REC_TYPE] = static_cast<unsigned char>(enType);
    aucRecord[REC_ARRIVES] = bArrives ? 1 : 0;
    StoreText(Slice(record, REC_NAME, REC_NAME_SIZE), strName);
    StoreText(Slice(record, REC_GROUP, REC_GROUP_SIZE), strGroup);
    return aucRecord;
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
