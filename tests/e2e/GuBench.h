#pragma once

#include "e2e/AgentBench.h"
#include "support/WaitFor.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <poll.h>
#include <sstream>

using Words = std::vector<uint16_t>;
using ByteLists = std::vector<Bytes>;
using Stamps = std::vector<uint64_t>; // milliseconds of the UE's clock

/// A request as the modem got it.
struct UeRequest
{
    uint16_t usId;
    uint32_t ulPid;
    Bytes params;
};

/// The real agent with one simulated modem, the GU link up, and a client on each GU channel.
class CGuBench
{
public:
    static constexpr unsigned int PORT = 1;

    explicit CGuBench(const std::string& strConfig = "TIME_SPACE = 5") : m_bench(strConfig) {}

    /// Starts all of it; false when the modem's GU side isn't set up in time.
    bool Start(std::vector<std::string> args)
    {
        m_bench.StartAgent();
        args.insert(args.end(), {"--verbose"}); // the requests are read from its log
        m_pModem = &m_bench.StartModem(args);
        return WaitUp() && BindClients();
    }
    bool WaitUp() { return m_bench.WaitConfirmed(PORT) && WaitLogged("single and double card model=", ++m_ulLinkUps); }
    /// The GU port may attach a little later than the modem is confirmed.
    bool BindClients() { return BindTo(CHANNEL_GU_CMD, m_pCmd) && BindTo(CHANNEL_GU_DATA, m_pData); }

    /// The modem's ports vanish; true when the agent has let its clients go.
    bool Unplug()
    {
        m_pModem->Signal(SIGUSR1);
        const bool bClosed = SawClose(m_pCmd->Fd(), PROCESS_LIMIT) && SawClose(m_pData->Fd(), PROCESS_LIMIT);
        m_pCmd->Close();
        m_pData->Close();
        m_reports.clear();
        m_ulLastSn = 0;
        return bClosed;
    }
    void Plug() { m_pModem->Signal(SIGUSR1); }

    bool WaitLogged(const std::string& strText, size_t szTimes)
    {
        return WaitFor([&] { return Count(m_bench.Log(), strText) >= szTimes; }, std::chrono::seconds(20));
    }
    bool ModemSaw(const std::string& strText, size_t szTimes = 1)
    {
        return WaitFor([&] { return Count(m_pModem->Errors(), strText) >= szTimes; }, std::chrono::seconds(20));
    }

    CAgentBench& Bench() { return m_bench; }
    CTcpClient& Cmd() { return *m_pCmd; }

    /// The answer to a request, which must come on the GU command channel under this id; result and payload, which
    /// must say the same, in one number.
    uint32_t Ask(uint16_t usId, unsigned char ucType, const Bytes& params, uint32_t ulAnswer)
    {
        if (!m_pCmd->Send(usId, ucType, params))
            return ID_INVALID;
        return Result(m_pCmd->Await(ulAnswer));
    }
    uint32_t Report(uint16_t usId, unsigned char ucSwitch, unsigned int ulPeriod, uint16_t usConfirm)
    {
        return Ask(usId, PKT_TYPE_GU_TRANS, Join(Bytes{ucSwitch, 0}, Le(static_cast<uint16_t>(ulPeriod))),
                   TransId(usConfirm));
    }
    static uint32_t Result(const std::optional<TcpPacket>& stAnswer)
    {
        if (!stAnswer || stAnswer->payload.size() != 4)
            return ID_INVALID;
        return std::max(stAnswer->stHead.ulRc, LoadLe<uint32_t>(stAnswer->payload, 0));
    }
    static constexpr uint32_t TransId(uint16_t usId) { return 0x01540000U | usId; }

    /// Waits until the modem has all requests so far: one more goes there and its confirm comes back.
    bool Sync() { return Ask(0xC101, PKT_TYPE_GU_OTA, Le(0U), 0x0152C102) == 0; }

    /// The requests with these ids that the modem got so far, in order.
    std::vector<UeRequest> Told(const Words& ids) const
    {
        std::vector<UeRequest> requests;
        std::istringstream log(m_pModem->Errors());
        for (std::string strLine; std::getline(log, strLine);) {
            const size_t szText = strLine.find(" gu ");
            const size_t szBytes = strLine.find(" bytes: ");
            if (szText == std::string::npos || szBytes == std::string::npos)
                continue;
            constexpr size_t OM_FRONT = 9;
            const Bytes frame = Hex(strLine.substr(szBytes + 8));
            const ByteView packet = Slice(ByteView(frame), OM_FRONT);
            const size_t szLen = size_t{LoadLe<uint16_t>(packet, 2)} + 4;
            const UeRequest stReq{LoadLe<uint16_t>(packet, 24), LoadLe<uint32_t>(packet, 16),
                                  Bytes(Slice(packet, 28, szLen - std::min<size_t>(szLen, 28)))};
            const auto ucCategory = LoadLe<uint8_t>(packet, 0);
            if ((ucCategory == 2 || ucCategory == 4) && std::ranges::find(ids, stReq.usId) != ids.end())
                requests.push_back(stReq);
        }
        return requests;
    }
    /// The same as the parameters alone, of one receiver.
    ByteLists ToldParams(uint16_t usId, uint32_t ulPid) const
    {
        ByteLists params;
        for (const UeRequest& stReq : Told({usId}))
            if (stReq.ulPid == ulPid)
                params.push_back(stReq.params);
        return params;
    }

    /// Reads reports until the condition holds; false when it doesn't within the limit.
    template <class Condition>
    bool Collect(Condition isEnough, std::chrono::milliseconds limit = std::chrono::seconds(20))
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!isEnough()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            pollfd stPoll{m_pData->Fd().Get(), POLLIN, 0};
            if (left.count() <= 0 || poll(&stPoll, 1, static_cast<int>(left.count())) <= 0)
                return false;
            const auto stPacket = m_pData->Receive(); // begun, so it is read to its end
            if (!stPacket)
                return false;
            if (stPacket->stHead.ulCmdId >> 16 == 0x0154)
                Note(*stPacket);
        }
        return true;
    }
    void CollectFor(std::chrono::milliseconds time)
    {
        (void)Collect([] { return false; }, time);
    }
    /// Until each of these reports has come so many times more.
    bool CollectEach(const Words& ids, size_t szTimes)
    {
        std::map<uint16_t, size_t> goal;
        for (const uint16_t usId : ids)
            goal[usId] = m_reports[usId].size() + szTimes;
        return Collect([&] {
            return std::ranges::all_of(ids, [&](uint16_t usId) { return m_reports[usId].size() >= goal[usId]; });
        });
    }
    /// What is on its way from before is read away, and then nothing with these ids comes.
    bool IsSilent(const Words& ids, std::chrono::milliseconds time)
    {
        CollectFor(std::chrono::milliseconds(50));
        m_reports.clear();
        CollectFor(time);
        return std::ranges::all_of(ids, [&](uint16_t usId) { return m_reports[usId].empty(); });
    }

    /// Reports by id, as they came since the last Forget.
    const std::vector<TcpPacket>& Reports(uint16_t usId) { return m_reports[usId]; }
    Stamps StampsOf(uint16_t usId)
    {
        Stamps stamps;
        for (const TcpPacket& stPacket : m_reports[usId])
            stamps.push_back(stPacket.stHead.ullTimeStamp * 1000 >> 15);
        return stamps;
    }
    void Forget() { m_reports.clear(); }

private:
    bool BindTo(enChannelType enChannel, std::unique_ptr<CTcpClient>& pClient)
    {
        return WaitFor([&] { return (pClient = m_bench.BoundClient(enChannel, PORT))->IsOpen(); });
    }
    /// Indications are numbered one by one, whatever their ids.
    void Note(const TcpPacket& stPacket)
    {
        const uint32_t ulSn = stPacket.stHead.ulRc;
        if (m_ulLastSn != 0) {
            EXPECT_EQ(ulSn, m_ulLastSn + 1) << "a report was lost";
        }
        m_ulLastSn = ulSn;
        m_reports[static_cast<uint16_t>(stPacket.stHead.ulCmdId)].push_back(stPacket);
    }
    static size_t Count(const std::string& strAll, const std::string& strText)
    {
        size_t szCount = 0;
        for (size_t szAt = 0; (szAt = strAll.find(strText, szAt)) != std::string::npos; szAt += strText.size())
            ++szCount;
        return szCount;
    }

    CAgentBench m_bench;
    CVexProcess* m_pModem = nullptr;
    std::unique_ptr<CTcpClient> m_pCmd;
    std::unique_ptr<CTcpClient> m_pData;
    std::map<uint16_t, std::vector<TcpPacket>> m_reports;
    uint32_t m_ulLastSn = 0;
    size_t m_ulLinkUps = 0;
};

/// Differences of neighbours.
inline std::vector<uint64_t> Gaps(const Stamps& stamps)
{
    std::vector<uint64_t> gaps;
    for (size_t i = 1; i < stamps.size(); ++i)
        gaps.push_back(stamps[i] - stamps[i - 1]);
    return gaps;
}
inline uint64_t Median(std::vector<uint64_t> values)
{
    if (values.empty())
        return 0;
    std::ranges::sort(values);
    return values[(values.size() - 1) / 2]; // the lower one of two
}
