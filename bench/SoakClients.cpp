#include "SoakClients.h"

#include "e2e/FrameStream.h"

#include <array>
#include <poll.h>
#include <sys/socket.h>

namespace
{
using std::chrono::milliseconds;

constexpr int LOOK_MS = 50;
constexpr size_t SLOW_READ = 6400; // bytes each SLOW_PAUSE: 64 kB/s
constexpr auto SLOW_PAUSE = milliseconds(100);
constexpr int SLOW_READS = 40;
constexpr auto STALL_TIME = milliseconds(3000);
constexpr int GU_INDICATION = 0x0154;
} // namespace

bool IsNumberedLte(const DIAG_PACKET_ACK_STRU& stHead)
{
    return stHead.ulRc != 0;
}

bool IsNumberedGu(const DIAG_PACKET_ACK_STRU& stHead)
{
    return stHead.ulCmdId >> 16 == GU_INDICATION;
}

CSoakReader::CSoakReader(std::string strName, std::unique_ptr<CTcpClient> pClient, IsNumbered isNumbered)
    : m_strName(std::move(strName)), m_pClient(std::move(pClient)), m_isNumbered(isNumbered)
{
    m_thread = std::thread([this] { Run(); });
}

CSoakReader::~CSoakReader()
{
    m_bRun = false;
    m_thread.join();
}

SOAK_COUNT CSoakReader::Count() const
{
    const xtl::MutexGuard guard(m_Lock);
    return m_stCount;
}

void CSoakReader::Run()
{
    CFrameStream stream;
    std::string strFault;
    while (m_bRun && strFault.empty())
        strFault = ReadFrames(m_pClient->Fd(), LOOK_MS, stream,
                              [&](const DIAG_PACKET_ACK_STRU& stHead, ByteView) { Note(stHead); });
    if (!strFault.empty())
        SetFault(strFault);
}

void CSoakReader::Note(const DIAG_PACKET_ACK_STRU& stHead)
{
    const xtl::MutexGuard guard(m_Lock);
    ++m_stCount.ullFrames;
    if (!m_isNumbered(stHead))
        return;
    if (m_stCount.ullReceived > 0 && stHead.ulRc <= m_stCount.ulLast)
        m_stCount.strFault = std::to_string(stHead.ulRc) + " came behind " + std::to_string(m_stCount.ulLast);
    else if (m_stCount.ullReceived > 0)
        m_stCount.ullLost += stHead.ulRc - m_stCount.ulLast - 1;
    m_stCount.ulLast = stHead.ulRc;
    ++m_stCount.ullReceived;
}

void CSoakReader::SetFault(const std::string& strFault)
{
    const xtl::MutexGuard guard(m_Lock);
    if (m_stCount.strFault.empty())
        m_stCount.strFault = strFault;
}

void ComeAndGo()
{
    for (const enChannelType enChannel : ALL_CHANNELS) {
        CTcpClient client(enChannel);
        (void)client.Ask(AGENT_CMD_UNBIND, PKT_TYPE_AGENT); // whatever row it got belongs to others
        if (enChannel == CHANNEL_LTE_DIAG)
            (void)client.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT);
        (void)client.SendRaw(Hex("9F 9F 50 00")); // half a request
    }
    std::this_thread::sleep_for(milliseconds(500));
}

std::string ReadSlowlyAndStall(CAgentBench& bench, unsigned int ulPort, std::atomic<uint64_t>& ullFrames)
{
    const auto pClient = bench.BoundClient(CHANNEL_LTE_DATA, ulPort);
    if (!pClient->IsOpen()) {
        std::this_thread::sleep_for(SLOW_PAUSE);
        return ""; // the last one isn't gone yet
    }
    const int nRoom = 16 * 1024;
    (void)setsockopt(pClient->Fd().Get(), SOL_SOCKET, SO_RCVBUF, &nRoom, sizeof(nRoom));
    CFrameStream stream;
    const auto isTorn = [&](size_t szBytes) {
        return !stream.Feed(ReceiveBytes(pClient->Fd(), szBytes, SLOW_PAUSE),
                            [&](const auto&, ByteView) { ++ullFrames; });
    };
    for (int i = 0; i < SLOW_READS; ++i) {
        std::this_thread::sleep_for(SLOW_PAUSE);
        if (isTorn(SLOW_READ))
            return "a slow client got a torn frame";
    }
    std::this_thread::sleep_for(STALL_TIME);
    for (int i = 0; i < SLOW_READS; ++i)
        if (isTorn(1 << 20))
            return "a client that had stalled got a torn frame";
    return "";
}
