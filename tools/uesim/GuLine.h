#pragma once

#include "uesim/SimUe.h"

#include <array>
#include <optional>
#include <vector>

// GU packets and the OM frames that carry them, from the modem's side.

constexpr unsigned char GU_CATEGORY_TRACE = 1;
constexpr unsigned char GU_CATEGORY_OTA = 2;
constexpr unsigned char GU_CATEGORY_TRANS = 4;
constexpr unsigned char GU_CATEGORY_QUERY = 10;
constexpr unsigned char GU_SECOND_MODEM = 64; // added to a category

/// One OM frame from the agent.
struct OM_FRAME
{
    unsigned int ulTotal = 0; // segments of the packet
    unsigned int ulIndex = 0; // of this one, from 1
    ByteView payload;
};
/// None for bytes that aren't one whole frame with both marks.
std::optional<OM_FRAME> ReadOmFrame(ByteView frame);

/// A request from the agent, its segments joined. The bytes are valid during the call that brings it.
struct GU_REQUEST
{
    unsigned char ucCategory = 0;
    uint16_t usId = 0;
    uint32_t ulPid = 0; // receiver; transparent and over the air only
    unsigned int ulModem = 0;
    ByteView params; // transparent and over the air: behind the head; otherwise behind the id
};
GU_REQUEST ReadGuRequest(ByteView packet);
/// The link request comes without a frame: its length in front, then a query.
bool IsGuLinkRequest(ByteView packet);
/// Ids of the packets that begin in a block of the modem's.
std::vector<uint16_t> ReadGuBlockIds(ByteView block);

/// The sending side: puts packets into OM frames, frames into blocks with the heads of the UE's frame mode, and
/// blocks on the GU port. Keeps the sequence numbers.
class CGuLine
{
public:
    static constexpr size_t HEAD = 16; // of a packet; the payload follows
    static constexpr size_t MAX_PAYLOAD = 4080;

    explicit CGuLine(CSimUe& ue);

    CSimUe& Ue() const { return m_ue; }
    bool HasRoom(SimTime now) const { return m_ue.HasRoom(SERIAL_TYPE_GU, now); }

    void SendTrans(unsigned int ulModem, uint16_t usId, ByteView payload);
    void SendOta(unsigned int ulModem, uint16_t usId, ByteView payload);
    /// A trace of the task ulPid; the name goes to its place in the payload (payload bytes 4 to 7 and 20 to 21).
    void SendTrace(uint32_t ulPid, uint16_t usName, std::vector<unsigned char> payload);
    void SendQueryAnswer(unsigned int ulModem, uint16_t usId, uint32_t ulValue, ByteView rest = {});
    /// Several transparent messages in one frame.
    struct MESSAGE
    {
        uint16_t usId;
        std::vector<unsigned char> payload;
    };
    void SendChain(const std::vector<MESSAGE>& messages);

    /// Sends a block that isn't full yet.
    void Flush();

private:
    std::vector<unsigned char> Packet(unsigned char ucCategory, unsigned char ucSsid, uint16_t usId, ByteView payload);
    void SendPacket(ByteView packet, unsigned char ucSsid);
    void AppendHead(unsigned char ucSsid);
    uint32_t Stamp() const;

    CSimUe& m_ue;
    const bool m_bInverseStamps;       // a UE whose version nobody knows counts with all bits inverted
    std::array<uint32_t, 2> m_aulSn{}; // by modem
    std::vector<unsigned char> m_block;
    unsigned int m_ulFrames = 0; // in the block
};

/// Whether the version text is of a kind that the agent knows; such a UE has frame mode 2 and plain time stamps.
bool IsKnownGuVersion(const std::string& strVersion);
