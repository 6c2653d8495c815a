#pragma once

#include "agent/ChannelTable.h"
#include "agent/StatusReporter.h"
#include "data/AgentInterfaces.h"
#include "data/DiagPacket.h"

#include <array>
#include <memory>

class COperationGUData;
class CUEManager;

/// The GU state of every UE slot; made once, never replaced.
using CGuOperations = std::array<std::unique_ptr<COperationGUData>, MAXUENUM>;

/// Binds clients to UEs, and answers the processors' questions about both. Its mutex is the agent's big lock:
/// bindings change and clients are used under it. It comes before every other lock of the agent.
class CBindings : public IBindings
{
public:
    CBindings(CChannelTable& table, CStatusReporter& status, CUEManager& ueManager, const CGuOperations& operations);

    xtl::Mutex& Mutex() RETURN_CAPABILITY(m_BindMutex) { return m_BindMutex; }

    // BindUE, BindCOM and UnBindUE: with the mutex held.

    bool BindUE(CClient* pClient, UE_INDEX ulUeIdx);
    bool BindCOM(IClientPort* pClient, unsigned int ulPort) override;
    bool UnBindUE(IClientPort* pClient) override;

    UE_INDEX GetBindedUE(const IClientPort* pClient) override { return m_table.GetBindedUE(pClient); }
    std::shared_ptr<IClientPort> GetGUDataClient(UE_INDEX ulUeIdx, enChannelType enChannel) override;
    IGuRequests* GetOperationGUFromClient(const IClientPort* pClient) override;
    bool IsChannelOK(UE_INDEX ulUeIdx, enChannelType enChannel) override
    {
        return m_table.IsChannelOK(ulUeIdx, enChannel);
    }
    std::vector<unsigned char> GetChannelsInfo() override { return m_table.GetChannelsInfo(); }
    ADE_UE_CONNECTION_ACK_STRU GetUEConnectionAck(UE_INDEX ulUeIdx) override;
    std::vector<unsigned char> GetTimeStampPacket(UE_INDEX ulUeIdx) override;

    /// Keeps a UE's time stamp ack in the form in which clients ask for it.
    void StoreTimeStamp(UE_INDEX ulUeIdx, const ADE_ACK_PACKET_STRU& stAck);
    /// IMEI and version text of a UE; the group id stays empty.
    UEConnect UeInfo(UE_INDEX ulUeIdx);

private:
    static constexpr size_t TIME_STAMP_BLOCK = 5120;

    /// Tells a client that was just bound about its UE, on CHANNEL_LTE_DIAG and CHANNEL_GU_CMD.
    void SendUEStatus2Client(enChannelType enChannel, CClient* pClient, UE_INDEX ulUeIdx);
    static void SendLTEPacketToClient(CClient* pClient, UE_INDEX ulUeIdx, const UEConnect& stInfo);
    static void SendGUPacketToClient(CClient* pClient, UE_INDEX ulUeIdx, const UEConnect& stInfo);

    CChannelTable& m_table;
    CStatusReporter& m_status;
    CUEManager& m_ueManager;
    const CGuOperations& m_operations;
    xtl::Mutex m_BindMutex;
    xtl::Mutex m_TimeStampMutex; // around a copy of a block, nothing else
    std::array<std::array<unsigned char, TIME_STAMP_BLOCK>, MAXUENUM> m_aucTimeStampAck GUARDED_BY(m_TimeStampMutex){};
};
