#pragma once

#include "common/Bytes.h"
#include "common/Config.h"

#include <optional>
#include <vector>

/// A request from the agent, as the modem reads it.
struct LTE_REQUEST
{
    uint32_t ulCmdId = 0;
    uint32_t ulCmdType = 0;  // 5: DPI message or NV traffic
    bool bLengthFits = true; // the header's length field tells the payload's size
    ByteView data;           // inside the packet
};

/// Head of an ack or an indication.
struct LTE_HEAD
{
    uint32_t ulCmdId = 0;
    uint32_t ulCmdType = 0;
    uint32_t ulAckField = 0;
    uint64_t ullTimeStamp = 0;
};

/// The modem's LTE packets, laid out by the agent's configuration: the other end of the agent's own encoder and
/// decoders.
class CLteLayout
{
public:
    explicit CLteLayout(const FILTER_CFG_STRU& stCfg) : m_stCfg(stCfg) {}

    /// None for a packet shorter than the header.
    std::optional<LTE_REQUEST> ReadRequest(ByteView packet) const;

    /// A whole ack. Zero bytes follow the payload when the packet would be too short for the agent to look at.
    std::vector<unsigned char> BuildAck(const LTE_HEAD& stHead, ByteView payload) const;

    /// Id of an ack; none for an indication.
    std::optional<uint32_t> ReadAckId(ByteView packet) const;

    /// Bytes in front of an indication's payload.
    size_t IndHeadLen() const { return m_stCfg.usDataPayloadOffset; }
    /// Writes an indication's head over the front of a packet.
    void WriteIndHead(const LTE_HEAD& stHead, ByteSpan packet) const;
    /// Smallest packet that the agent takes from the data port.
    size_t MinIndLen() const;

private:
    size_t MinTaggedLen() const;
    void WriteTag(unsigned char ucTag, ByteSpan packet) const;

    const FILTER_CFG_STRU& m_stCfg;
};
