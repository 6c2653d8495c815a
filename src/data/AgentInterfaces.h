#pragma once

#include "common/Packet.h"
#include "common/Types.h"
#include "common/UeConnectionAck.h"

#include <memory>
#include <vector>

// What the processors need of the agent around them. The agent implements these interfaces; nothing in this folder
// or below knows its classes.

/// One connected client as the processors see it. Always held by a shared pointer, so that a thread without the
/// agent's locks can hold it while it sends.
class IClientPort : public std::enable_shared_from_this<IClientPort>
{
public:
    virtual ~IClientPort() = default;

    /// The channel whose port the client connected to.
    virtual enChannelType GetClientType() const = 0;
    /// Sends one whole packet, lead bytes included: the head and what follows it, both copied. Packets of several
    /// threads never mix. What a client doesn't take is lost for it alone; false only when memory is short.
    [[nodiscard]] virtual bool SendData2Client(ByteView head, ByteView payload) = 0;
};

class IBindings;

/// The GU stack of one UE, as a GU command client reaches it.
class IGuRequests
{
public:
    virtual ~IGuRequests() = default;

    /// A client request (DIAG_PACKET_REQ_STRU, lead bytes stripped). 1 for one without parameters, 2 for an unknown
    /// packet type, else 0.
    virtual int TranslateProbePacket(ByteView req, IBindings* pBindings, IClientPort* pClient) = 0;
};

/// Who is bound to what, and what the agent keeps of each UE. From any thread, but where a line says otherwise.
class IBindings
{
public:
    virtual ~IBindings() = default;

    /// Binds to the UE that has the port, whichever of its channels that is. Frees the earlier binding first, also
    /// when no UE has the port. Inside a client request only.
    virtual bool BindCOM(IClientPort* pClient, unsigned int ulPort) = 0;
    /// Inside a client request only. Always true.
    virtual bool UnBindUE(IClientPort* pClient) = 0;
    /// The UE that the client is bound to, or UE_NONE.
    virtual UE_INDEX GetBindedUE(const IClientPort* pClient) = 0;
    /// The client of a channel, null without one. It can't go away while the pointer is held.
    virtual std::shared_ptr<IClientPort> GetGUDataClient(UE_INDEX ulUeIdx, enChannelType enChannel) = 0;
    /// The GU stack of the UE that the client is bound to; null without a binding. It lives as long as the agent.
    virtual IGuRequests* GetOperationGUFromClient(const IClientPort* pClient) = 0;
    /// Whether the channel is there and its UE confirmed.
    virtual bool IsChannelOK(UE_INDEX ulUeIdx, enChannelType enChannel) = 0;
    /// The 3520 bytes of DIAG_PACKET_AGENT_CHANNEL_QUERY_ACK_STRU.
    virtual std::vector<unsigned char> GetChannelsInfo() = 0;
    /// What the UE told at its host connect; all zero while it told nothing.
    virtual ADE_UE_CONNECTION_ACK_STRU GetUEConnectionAck(UE_INDEX ulUeIdx) = 0;
    /// A copy of the UE's stored time stamp ack, head and payload (DIAG_PACKET_ACK_STRU); empty while none came.
    virtual std::vector<unsigned char> GetTimeStampPacket(UE_INDEX ulUeIdx) = 0;
};
