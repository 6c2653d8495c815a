#pragma once

#include "data/DiagPacket.h"

// What report makers and register statistics need of the GU operation of their UE.

constexpr unsigned int STAMP_NONE = 0xFFFFFFFF; // time stamp of a confirm that the agent makes

constexpr unsigned int UE_VERSION_UNKNOWN = 0xFFFFFFFF; // class of every version text that isn't in the table

/// The version classes 0, 2, 3 and 4: they count their time stamps upwards and have PIDs of their own.
constexpr bool IsKnownUeVersion(unsigned int ulVersion)
{
    return ulVersion == 0 || (ulVersion >= 2 && ulVersion <= 4);
}

/// The GU operation of one UE as those see it who make reports. Any thread.
class IGuOperation
{
public:
    virtual ~IGuOperation() = default;

    /// To the client on the GU command channel. The stamp is the UE's own; it goes through GetRealTimeStamp.
    virtual void BuildMsgCnfPacket(unsigned short usType, unsigned int ulRc, unsigned int ulTimeStamp,
                                   unsigned short usId, ByteView data) = 0;
    /// To the client on the GU data channel, with the next message SN. Gives the head that it has.
    virtual DIAG_PACKET_ACK_STRU BuildMsgIndPacket(unsigned short usType, unsigned int ulTimeStamp, unsigned short usId,
                                                   ByteView data) = 0;
    /// The agent's answer in the place of the UE's confirm. usId is the confirm's id, or a request's for the four
    /// requests whose confirm follows from it.
    virtual void BuildErrCnfPacketToClient(unsigned short usId, unsigned int ulType, unsigned int ulRc) = 0;
    /// A transparent message to the UE.
    virtual void BuildTransReqMsg(unsigned short usId, ByteView params, unsigned int ulPid) = 0;

    /// The stamp as it stands for the known version classes; its complement for all others.
    virtual unsigned int GetRealTimeStamp(unsigned int ulStamp) const = 0;
    virtual unsigned int GetUeVersion() const = 0;
};
