#include "page/PacketStore.h"

#include "common/Record.h"

#include <cstring>

namespace
{
constexpr size_t CHUNK_ROOM = 256 * 1024;
constexpr size_t ALIGNED = 8;

constexpr size_t Padded(size_t szBytes)
{
    return (szBytes + ALIGNED - 1) / ALIGNED * ALIGNED;
}

/// A record's effect on what the records behind it find.
void Pass(const KEPT_PACKET& stPacket, CCapturePicture& picture, CAPTURE_RUN& stRun)
{
    if (stPacket.stRecord.enKind == CPacketStore::RUN_KIND) {
        picture.Clear();
        stRun = RunOf(stPacket.bytes);
    } else {
        picture.Take(stPacket.stRecord, stPacket.bytes);
    }
}
} // namespace

CAPTURE_RUN RunOf(ByteView hello)
{
    TAP_HELLO stHello;
    (void)DecodeRecord(hello, stHello); // made by BeginRun
    return {stHello.strHost, stHello.ullRunHigh, stHello.ullRunLow, stHello.ullAgentStart};
}

CPacketChunk::CPacketChunk(size_t szRoom)
    : m_szRoom(szRoom), m_pBytes(std::make_unique_for_overwrite<unsigned char[]>(szRoom))
{
}

size_t CPacketChunk::RoomFor(size_t szBytes)
{
    return sizeof(HEAD) + Padded(szBytes);
}

bool CPacketChunk::Append(const KEPT_PACKET& stPacket)
{
    if (RoomFor(stPacket.bytes.size()) > m_szRoom - m_szUsed)
        return false;
    if (m_szUsed == 0)
        m_ullFirst = stPacket.ullNumber;
    const HEAD stHead{stPacket.ullNumber, stPacket.ullLost, stPacket.stRecord, stPacket.bytes.size()};
    std::memcpy(&m_pBytes[m_szUsed], &stHead, sizeof(stHead));
    std::copy(stPacket.bytes.begin(), stPacket.bytes.end(), &m_pBytes[m_szUsed + sizeof(stHead)]);
    m_szUsed += RoomFor(stPacket.bytes.size());
    return true;
}

std::optional<KEPT_PACKET> CPacketChunk::Next(size_t& szOffset, size_t szUsed) const
{
    if (szOffset >= szUsed)
        return std::nullopt;
    HEAD stHead;
    std::memcpy(&stHead, &m_pBytes[szOffset], sizeof(stHead));
    const ByteView bytes(&m_pBytes[szOffset] + sizeof(stHead), stHead.ullLen);
    szOffset += RoomFor(bytes.size());
    return KEPT_PACKET{stHead.ullNumber, stHead.ullLost, stHead.stRecord, bytes};
}

bool CPacketSnapshot::Walk(const PART& stPart, const CALL& call)
{
    for (size_t szOffset = 0; const auto packet = stPart.pChunk->Next(szOffset, stPart.szUsed);)
        if (!call(*packet))
            return false;
    return true;
}

void CPacketSnapshot::ForEach(const CALL& call) const
{
    for (const PART& stPart : m_vecParts)
        if (!Walk(stPart, call))
            return;
}

void CPacketSnapshot::ForEachBefore(uint64_t ullNumber, const CALL& call) const
{
    for (auto part = m_vecParts.rbegin(); part != m_vecParts.rend(); ++part) {
        if (part->pChunk->FirstNumber() >= ullNumber)
            continue;
        std::vector<KEPT_PACKET> packets;
        (void)Walk(*part, [&](const KEPT_PACKET& stPacket) {
            packets.push_back(stPacket);
            return stPacket.ullNumber + 1 < ullNumber;
        });
        for (auto packet = packets.rbegin(); packet != packets.rend(); ++packet)
            if (packet->ullNumber < ullNumber && !call(*packet))
                return;
    }
}

CPacketStore::CPacketStore(size_t szBytesMost) : m_szBytesMost(szBytesMost) {}

void CPacketStore::BeginRun(const TAP_HELLO& stHello, uint64_t ullNow)
{
    TAP_RECORD stRecord;
    stRecord.enKind = RUN_KIND;
    stRecord.ullTime = ullNow;
    (void)Put(stRecord, EncodeRecord(stHello), 0);
}

uint64_t CPacketStore::Put(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost)
{
    const KEPT_PACKET stPacket{++m_ullNumber, ullLost, stRecord, bytes};
    if (m_chunks.empty() || !m_chunks.back()->Append(stPacket)) {
        MakeRoom(std::max(CHUNK_ROOM, CPacketChunk::RoomFor(bytes.size())));
        (void)m_chunks.back()->Append(stPacket); // made for it
    }
    return m_ullNumber;
}

CPacketSnapshot CPacketStore::Snapshot() const
{
    CPacketSnapshot snapshot;
    for (const auto& pChunk : m_chunks)
        snapshot.m_vecParts.push_back({pChunk, pChunk->Used()});
    snapshot.m_picture = m_picture;
    snapshot.m_stRun = m_stRun;
    return snapshot;
}

void CPacketStore::MakeRoom(size_t szRoom)
{
    while (!m_chunks.empty() && m_szBytes + szRoom > m_szBytesMost)
        ForgetOldest();
    m_chunks.push_back(std::make_shared<CPacketChunk>(szRoom));
    m_szBytes += szRoom;
}

void CPacketStore::ForgetOldest()
{
    const auto pChunk = m_chunks.front();
    for (size_t szOffset = 0; const auto packet = pChunk->Next(szOffset, pChunk->Used());)
        Pass(*packet, m_picture, m_stRun);
    m_szBytes -= pChunk->Room();
    m_chunks.pop_front();
}
