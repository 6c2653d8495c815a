#pragma once

#include "agent/StatusRecords.h"
#include "common/Types.h"
#include "common/xtl.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

class CClient;
class IClientPort;

/// One row of the channel table: a logical channel of a UE. The defaults are those of a free row.
struct SERIALCHANNELINFO
{
    int nPort = -1; // COM port number; 0 for the network UE
    std::string strSerialName;
    std::string strGroupId;                     // for the network UE its IP address
    enChannelType enChannel = CHANNEL_LTE_DIAG; // the column
    bool bAttached = false;                     // the port is there
    bool bConfirmed = false;                    // the UE answered the host connect request
    CClient* pClient = nullptr;                 // the bound client; not owned
    uint64_t ullStateSince = 0;                 // when bAttached or bConfirmed changed last; ns since 1970
    uint64_t ullClientSince = 0;                // when pClient changed last; ns since 1970

    bool IsBindable() const { return bAttached && bConfirmed && !pClient; }
};

/// The table of channels: which UE has which logical channel, and which client owns it. A client owns one row at
/// most, in the column of its own channel type. Its lock is taken for a moment only, inside each operation; whoever
/// looks at several rows works on copies. Safe from any thread; changes come one at a time (CBindings::Mutex).
class CChannelTable
{
public:
    /// Where a row stands; the UE is UE_NONE for nowhere.
    struct ROW_PLACE
    {
        UE_INDEX ulUeIdx = UE_NONE;
        enChannelType enChannel = CHANNEL_LTE_DIAG;
    };

    CChannelTable();

    static bool IsRow(UE_INDEX ulUeIdx, enChannelType enChannel);
    /// A copy of the row; a free one for a place outside the table.
    SERIALCHANNELINFO Row(UE_INDEX ulUeIdx, enChannelType enChannel) const;
    /// The first row that holds the client.
    ROW_PLACE FindClient(const IClientPort* pClient) const;
    /// The UE of the last row that holds the client, or UE_NONE.
    UE_INDEX GetBindedUE(const IClientPort* pClient) const;
    /// Null without one. Use the pointer with CBindings::Mutex held only.
    CClient* GetBindedClient(UE_INDEX ulUeIdx, enChannelType enChannel) const;
    /// The same for a thread without that lock: the client can't go away while the pointer is held.
    std::shared_ptr<CClient> GetGUDataClient(UE_INDEX ulUeIdx, enChannelType enChannel) const;
    bool IsChannelOK(UE_INDEX ulUeIdx, enChannelType enChannel) const;
    /// Number of the channel's port; 0 for the network UE, a free row and a place outside the table.
    uint32_t PortNumber(UE_INDEX ulUeIdx, enChannelType enChannel) const;
    std::vector<unsigned char> GetChannelsInfo() const;

    /// The port of a channel is there. Keeps confirmation and client.
    void Attach(UE_INDEX ulUeIdx, enChannelType enChannel, int nPort, const std::string& strSerialName,
                const std::string& strGroupId);
    void Free(UE_INDEX ulUeIdx, enChannelType enChannel);
    /// Marks all five rows of a UE as confirmed or not.
    void SetConfirmed(UE_INDEX ulUeIdx, bool bConfirmed);
    void SetClient(UE_INDEX ulUeIdx, enChannelType enChannel, CClient* pClient);
    /// No row holds a client any more.
    void ClearClients();

private:
    static SERAIL_CHANNEL_STATUS PutChannelInfo2Ack(const SERIALCHANNELINFO& stInfo);
    void ShowAtTap(UE_INDEX ulUeIdx, enChannelType enChannel) const;

    mutable xtl::Mutex m_RowMutex;                                                   // never held across a call
    std::array<std::array<std::atomic<uint32_t>, CHANNELNUM>, MAXUENUM> m_aulPort{}; // as PortNumber gives them
    std::array<std::array<SERIALCHANNELINFO, CHANNELNUM>, MAXUENUM> m_astChannelInfo GUARDED_BY(m_RowMutex);
};
