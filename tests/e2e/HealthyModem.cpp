#include "e2e/HealthyModem.h"

#include "e2e/FrameStream.h"
#include "support/WaitFor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass
constexpr uint32_t REQUEST_ID = 0x10014003;
constexpr size_t PAYLOAD_LEN = 64; // the packet's number in front
constexpr auto INTERVAL = std::chrono::milliseconds(2);
constexpr int LOOK_MS = 20; // until a thread that waits looks whether it is to end
} // namespace

CHealthyModem::~CHealthyModem()
{
    m_bSend = false;
    m_bRead = false;
    if (m_sender.joinable())
        m_sender.join();
    if (m_reader.joinable())
        m_reader.join();
}

bool CHealthyModem::Start(CAgentBench& bench)
{
    if (!m_ue.Confirm() || !m_ue.Attach(SERIAL_TYPE_DATA) || !bench.WaitConfirmed(m_ulFirstPort))
        return false;
    const auto bind = [&](enChannelType enChannel, std::unique_ptr<CTcpClient>& pClient) {
        return WaitFor([&] { return (pClient = bench.BoundClient(enChannel, m_ulFirstPort))->IsOpen(); });
    };
    if (!bind(CHANNEL_LTE_DATA, m_pClient) || !bind(CHANNEL_LTE_DIAG, m_pDiagClient) ||
        !bench.Logged("UE 0 Lte Data attached"))
        return false;
    const int nModem = m_ue.Port(SERIAL_TYPE_DATA).Modem().Get();
    (void)fcntl(nModem, F_SETFL, fcntl(nModem, F_GETFL) | O_NONBLOCK); // so that the sender can end at any time
    m_sender = std::thread([this] { Send(); });
    m_reader = std::thread([this] { Receive(); });
    return true;
}

std::optional<double> CHealthyModem::AskMs(std::chrono::milliseconds limit)
{
    const MeterTime begin = MeterClock::now();
    if (!m_pDiagClient->Send(REQUEST_ID, PKT_TYPE_CMD))
        return std::nullopt;
    for (std::optional<UeRequest> stReq; !stReq || stReq->ulCmdId != REQUEST_ID; stReq = m_ue.ReadRequest())
        if (MeterClock::now() - begin > limit)
            return std::nullopt;
    m_ue.SendAck(REQUEST_ID, 0, Fill(4));
    if (!m_pDiagClient->Await(REQUEST_ID, limit))
        return std::nullopt;
    return Millis(MeterClock::now() - begin);
}

void CHealthyModem::Send()
{
    for (auto due = MeterClock::now(); m_bSend; due = std::max(due + INTERVAL, MeterClock::now())) {
        std::this_thread::sleep_until(due);
        const uint32_t ulNumber = m_meter.Send(MeterClock::now());
        Write(CScriptedUe::Frame(
            CScriptedUe::Packet(3, DSP_ID, 0, ulNumber, ulNumber, Join(Le(ulNumber), Fill(PAYLOAD_LEN - 4, 0x55)))));
    }
}

void CHealthyModem::Write(ByteView frame)
{
    const int nModem = m_ue.Port(SERIAL_TYPE_DATA).Modem().Get();
    while (!frame.empty() && m_bRead) { // a frame that has begun goes out whole
        const ssize_t lWritten = write(nModem, frame.data(), frame.size());
        if (lWritten > 0) {
            frame = frame.subspan(static_cast<size_t>(lWritten));
        } else if (lWritten < 0 && errno != EAGAIN && errno != EINTR) {
            return;
        } else {
            pollfd stPoll{nModem, POLLOUT, 0};
            (void)poll(&stPoll, 1, LOOK_MS);
        }
    }
}

void CHealthyModem::Receive()
{
    CFrameStream stream;
    std::string strFault;
    const auto onFrame = [&](const DIAG_PACKET_ACK_STRU& stHead, ByteView payload) {
        if (payload.size() != PAYLOAD_LEN || !m_meter.Receive(LoadLe<uint32_t>(payload, 0), MeterClock::now()))
            SetFault("not a packet of the modem: id " + std::to_string(stHead.ulCmdId));
    };
    while (m_bRead && strFault.empty())
        strFault = ReadFrames(m_pClient->Fd(), LOOK_MS, stream, onFrame);
    if (!strFault.empty())
        SetFault(strFault);
}

void CHealthyModem::SetFault(const std::string& strFault)
{
    const xtl::MutexGuard guard(m_FaultLock);
    if (m_strFault.empty())
        m_strFault = strFault;
}

std::string CHealthyModem::Fault() const
{
    const xtl::MutexGuard guard(m_FaultLock);
    return m_strFault;
}
