#pragma once

#include "common/MsgBuf.h"
#include "tap/TapServer.h"

#include <atomic>
#include <memory>

class CBindings;
class CChannelTable;
class CClient;
struct SERIALCHANNELINFO;

/// What the agent shows at its tap, beside the packets that go to UEs, which it sees itself.
class CAgentTap : public IToUeObserver
{
public:
    CAgentTap(CBindings& bindings, const CChannelTable& table) : m_bindings(bindings), m_table(table) {}
    ~CAgentTap() override;
    CAgentTap(const CAgentTap&) = delete;
    CAgentTap& operator=(const CAgentTap&) = delete;

    /// Opens the configured tap and starts its thread; does nothing without TapSocket. What is wrong is in the log.
    void Start();
    /// Takes the socket away; observers learn of the end with that of the process.
    void Stop();
    /// Body of the thread.
    void TapFun();

    void OnPacketToUe(UE_INDEX ulUeIdx, enChannelType enChannel, ByteView packet) override;

private:
    CTapWriter::PLACE WritePicture(CTapWriter& writer);

    CBindings& m_bindings;
    const CChannelTable& m_table;
    std::unique_ptr<CTapServer> m_pServer;
    std::atomic<bool> m_bRun = false;
    int m_hThread = -1;
};

// Each writes a record if somebody observes.

/// Packets of one channel, at least one, as they came from the UE. Channels that share a port get a copy each; it is
/// shown once.
void TapFromUe(const CChannelTable& table, std::span<const MSG_AGENT> run);
/// A request, lead bytes stripped, or bare text of the AT channel.
void TapFromClient(const CClient& client, ByteView request, bool bText);
/// A packet for the client, lead bytes included.
void TapToClient(const CClient& client, ByteView head, ByteView payload);
void TapStatus(ByteView datagram);
/// A row of the channel table that has changed.
void TapChannel(UE_INDEX ulUeIdx, const SERIALCHANNELINFO& stRow);
/// A UE that has confirmed the host connect.
void TapUe(CBindings& bindings, UE_INDEX ulUeIdx);
void TapClient(const CClient& client, bool bConnected);
