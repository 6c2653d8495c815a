#pragma once

#include "data/gu/OperationGUData.h"
#include "support/AgentFixture.h"

/// Ids or periods to loop over.
using Words = std::initializer_list<unsigned short>;

/// A GU packet from the UE, its usPacketLen set to its size.
Bytes GuMsg(unsigned short usMsgId, const Bytes& payload, unsigned int ulTimeStamp = 0,
            unsigned char ucCategory = GU_CATEGORY_TRANS);
/// A query answer from the UE, 12 bytes.
Bytes GuAnswer(unsigned short usMsgId, unsigned int ulValue, unsigned char ucCategory = GU_CATEGORY_QUERY);
/// A version answer with the text at its place.
Bytes GuVersion(const std::string& strVersion, unsigned int ulType = 1, size_t szSize = 200);
/// A traced message: the sender's PID, the message name, and the bytes from packet offset 38 on.
Bytes GuTrace(unsigned short usName, unsigned int ulSenderPid, const Bytes& tail, unsigned int ulTimeStamp = 0);

/// An OM frame from its start mark on, as the UE sends it.
Bytes OmFrame(const Bytes& packet, unsigned char ucTotal = 1, unsigned char ucIndex = 1);
/// The head ahead of a frame in a frame mode, 16 or 8 bytes, with the SSID at its place.
Bytes OmHead(unsigned int ulMode, unsigned char ucSsid);
/// A block from the UE: a byte, then for each packet a head and a frame.
Bytes OmBlock(unsigned int ulMode, const std::vector<Bytes>& packets, unsigned char ucSsid = 0);

/// A request towards the UE as its frames hold it, in full: GU_PACKET_HEAD of a transparent message and parameters.
Bytes TransReq(unsigned short usId, unsigned int ulPid, const Bytes& params);
/// The trace switch.
Bytes TraceSwitch(const std::vector<unsigned int>& pids);

/// UE 0 of an agent, with one client on its GU command channel and one on its GU data channel, and no pause
/// between requests. The test is main thread and agent message thread in one.
class CGuFixture
{
public:
    /// Without a version text the UE has none yet; with one, what its coming causes has been read away.
    explicit CGuFixture(const std::string& strVersion = "");

    COperationGUData& Operation() { return *m_pOperation; }
    CAgentFixture& Agent() { return m_Agent; }
    CTestClient& Cmd() { return m_Cmd; }
    CTestClient& Data() { return m_Data; }

    /// One GU packet from the UE, in a block of the frame mode that the UE has.
    void FromUe(const Bytes& packet);
    /// The UE has two cards.
    void BeDualCard();
    /// A request of the GU command client.
    void Request(unsigned short usId, unsigned char ucType, const Bytes& params)
    {
        m_Cmd.Request(usId, ucType, params);
    }
    /// The GU packets that were sent to the UE, out of their frames.
    std::vector<Bytes> ToUe();
    /// Packets that have arrived at a client.
    static std::vector<ClientPacket> Take(CTestClient& client);
    std::vector<ClientPacket> Confirms() { return Take(m_Cmd); }
    std::vector<ClientPacket> Indications() { return Take(m_Data); }
    /// Reads away what is under way.
    void Forget();

private:
    CAgentFixture m_Agent;
    CTestClient m_Cmd;
    CTestClient m_Data;
    COperationGUData* m_pOperation;
    unsigned int m_ulMode = FRAME_MODE_TIME_SSID;
};

/// Ticks of the UE's 32768 Hz counter that make so many milliseconds, rounded up.
constexpr unsigned int Ticks(unsigned int ulMs)
{
    return static_cast<unsigned int>((ulMs * 32768ULL + 999) / 1000);
}

/// A confirm or an indication as a client sees it.
struct GuPacketMatch
{
    unsigned int ulCmdId;
    unsigned int ulRc;
    unsigned long long ullTimeStamp;
    unsigned short usPktType;
    Bytes payload;
};
void ExpectPacket(const ClientPacket& packet, const GuPacketMatch& expected);
