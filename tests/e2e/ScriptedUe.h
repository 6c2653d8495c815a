#pragma once

#include "common/Types.h"
#include "support/PtyPair.h"
#include "support/TestBytes.h"

#include <array>
#include <optional>
#include <string>

/// A request from the agent, read by the layout of config/vex.cfg.
struct UeRequest
{
    uint32_t ulCmdId = 0;
    unsigned char ucCmdType = 0;
    Bytes data;
};

/// A modem whose every byte the test decides: four pseudo terminals and the packet layout of config/vex.cfg,
/// written out here by hand.
class CScriptedUe
{
public:
    /// Ports have the numbers from ulFirstPort on, in the order diag, data, GU, AT.
    CScriptedUe(unsigned int ulFirstPort, std::string strGroup)
        : m_ulFirstPort(ulFirstPort), m_strGroup(std::move(strGroup))
    {
    }

    CPtyPair& Port(enSerialType enType) { return m_aPort[static_cast<size_t>(enType)]; }

    /// Sends the device monitor's record of a port.
    bool Attach(enSerialType enType);
    bool Detach(enSerialType enType);
    /// Attaches the diag port, takes host connect and time stamp requests, answers the first, and takes the 24
    /// report switches. False when the agent says something else.
    bool Confirm();
    /// The same without the attach.
    bool TakeHandshake();

    /// The next frame's packet from the diag port, flags, stuffing and FCS taken off; nothing within 5 s.
    std::optional<Bytes> ReadPacket(enSerialType enType);
    std::optional<UeRequest> ReadRequest();

    /// Answers a host connect request.
    void SendHostConnectCnf();
    void SendFrame(enSerialType enType, const Bytes& packet);
    void SendAck(uint32_t ulCmdId, unsigned char ucCmdType, const Bytes& payload);
    void SendIndication(uint32_t ulId, uint32_t ulAckField, uint64_t ullStamp, const Bytes& payload);

    /// Payload of a full confirmation: IMEI 490154203237518, version V001R002C03B004SP05.
    static Bytes HostConnectPayload();
    /// The packet in a frame, flags, stuffing and FCS taken off; nothing when its FCS is wrong. Short ones count too.
    static std::optional<Bytes> Unframe(const Bytes& frame);
    /// The frame of a packet: flags, stuffing, FCS.
    static Bytes Frame(const Bytes& packet);
    /// An ack or indication: 28 bytes of head with the tag at 4, the payload behind.
    static Bytes Packet(unsigned char ucTag, uint32_t ulId, unsigned char ucCmdType, uint32_t ulAckField,
                        uint64_t ullStamp, const Bytes& payload);

private:
    unsigned int m_ulFirstPort;
    std::string m_strGroup;
    std::array<CPtyPair, SERIALNUM> m_aPort;
    std::array<Bytes, SERIALNUM> m_aPending; // read, not yet taken
};
