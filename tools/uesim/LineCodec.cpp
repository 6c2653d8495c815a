#include "uesim/LineCodec.h"

#include <array>

namespace
{
constexpr unsigned char FLAG = 0x7E;
constexpr unsigned char ESCAPE = 0x7D;
constexpr unsigned char ESCAPE_XOR = 0x20;
constexpr uint16_t FCS_POLYNOMIAL = 0x8408; // x^16 + x^12 + x^5 + 1, reflected
constexpr uint16_t FCS_START = 0xFFFF;
constexpr uint16_t FCS_RESIDUE = 0xF0B8; // over a packet and its FCS
constexpr size_t FCS_LEN = 2;

constexpr size_t SLICES = 8; // bytes that one step of the FCS takes

/// Row 0 is the plain table of RFC 1662; row k is the effect of a byte that k more bytes follow.
constexpr std::array<std::array<uint16_t, 256>, SLICES> MakeFcsTables()
{
    std::array<std::array<uint16_t, 256>, SLICES> tables{};
    for (unsigned int i = 0; i < 256; ++i) {
        uint16_t usFcs = static_cast<uint16_t>(i);
        for (int nBit = 0; nBit < 8; ++nBit)
            usFcs = static_cast<uint16_t>((usFcs >> 1) ^ ((usFcs & 1) != 0 ? FCS_POLYNOMIAL : 0));
        tables[0][i] = usFcs;
    }
    for (size_t k = 1; k < SLICES; ++k)
        for (unsigned int i = 0; i < 256; ++i) {
            const uint16_t usShorter = tables[k - 1][i];
            tables[k][i] = static_cast<uint16_t>((usShorter >> 8) ^ tables[0][usShorter & 0xFF]);
        }
    return tables;
}
constexpr auto FCS_TABLES = MakeFcsTables();

uint16_t RunFcs(uint16_t usFcs, ByteView bytes)
{
    const unsigned char* p = bytes.data();
    size_t szLeft = bytes.size();
    for (; szLeft >= SLICES; szLeft -= SLICES, p += SLICES) {
        usFcs =
            static_cast<uint16_t>(FCS_TABLES[7][(p[0] ^ usFcs) & 0xFF] ^ FCS_TABLES[6][(p[1] ^ (usFcs >> 8)) & 0xFF] ^
                                  FCS_TABLES[5][p[2]] ^ FCS_TABLES[4][p[3]] ^ FCS_TABLES[3][p[4]] ^
                                  FCS_TABLES[2][p[5]] ^ FCS_TABLES[1][p[6]] ^ FCS_TABLES[0][p[7]]);
    }
    for (; szLeft > 0; --szLeft, ++p)
        usFcs = static_cast<uint16_t>((usFcs >> 8) ^ FCS_TABLES[0][(usFcs ^ *p) & 0xFF]);
    return usFcs;
}

constexpr bool IsSpecial(unsigned char ucByte)
{
    return ucByte == FLAG || ucByte == ESCAPE;
}

/// True when one of eight bytes is a flag or an escape: the classic test for a zero byte in a word.
bool HasSpecial(const unsigned char* p)
{
    constexpr uint64_t ONES = 0x0101010101010101;
    uint64_t ullWord = 0;
    std::memcpy(&ullWord, p, sizeof(ullWord));
    const uint64_t ullFlag = ullWord ^ (ONES * FLAG);
    const uint64_t ullEscape = ullWord ^ (ONES * ESCAPE);
    return ((((ullFlag - ONES) & ~ullFlag) | ((ullEscape - ONES) & ~ullEscape)) & (ONES * 0x80)) != 0;
}

unsigned char* StuffByte(unsigned char* pOut, unsigned char ucByte)
{
    if (!IsSpecial(ucByte)) {
        *pOut++ = ucByte;
        return pOut;
    }
    *pOut++ = ESCAPE;
    *pOut++ = static_cast<unsigned char>(ucByte ^ ESCAPE_XOR);
    return pOut;
}

/// Room for twice the bytes must be there.
unsigned char* Stuff(unsigned char* pOut, ByteView bytes)
{
    const unsigned char* p = bytes.data();
    const unsigned char* const pEnd = p + bytes.size();
    while (p != pEnd) {
        if (pEnd - p >= 8 && !HasSpecial(p)) {
            std::memcpy(pOut, p, 8);
            pOut += 8;
            p += 8;
            continue;
        }
        pOut = StuffByte(pOut, *p++);
    }
    return pOut;
}
} // namespace

uint16_t FcsOf(ByteView bytes)
{
    return static_cast<uint16_t>(~RunFcs(FCS_START, bytes));
}

void AppendFrame(ByteView packet, CByteQueue& line)
{
    std::array<unsigned char, FCS_LEN> aucFcs{};
    StoreLe<uint16_t>(aucFcs, 0, FcsOf(packet));
    unsigned char* const pStart = line.Reserve(2 * (packet.size() + FCS_LEN) + 2).data();
    unsigned char* pOut = pStart;
    *pOut++ = FLAG;
    pOut = Stuff(pOut, packet);
    pOut = Stuff(pOut, aucFcs);
    *pOut++ = FLAG;
    line.Commit(static_cast<size_t>(pOut - pStart));
}

void CFrameCollector::Feed(ByteView bytes, const PacketSink& sink)
{
    for (const unsigned char ucByte : bytes) {
        if (ucByte == FLAG)
            EndFrame(sink);
        else if (m_bInFrame)
            Byte(ucByte);
    }
}

void CFrameCollector::Reset()
{
    m_frame.clear();
    m_bEscape = m_bBroken = m_bInFrame = false;
}

void CFrameCollector::Byte(unsigned char ucByte)
{
    if (ucByte == ESCAPE && !m_bEscape) {
        m_bEscape = true;
        return;
    }
    if (m_bEscape)
        ucByte ^= ESCAPE_XOR;
    m_bBroken = m_bBroken || (m_bEscape && !IsSpecial(ucByte)) || m_frame.size() >= MAX_FRAME;
    m_bEscape = false;
    if (!m_bBroken)
        m_frame.push_back(ucByte);
}

void CFrameCollector::EndFrame(const PacketSink& sink)
{
    const bool bEmpty = m_frame.empty() && !m_bBroken && !m_bEscape;
    const bool bGood =
        !m_bBroken && !m_bEscape && m_frame.size() > FCS_LEN && RunFcs(FCS_START, m_frame) == FCS_RESIDUE;
    if (bGood)
        sink(Slice(ByteView(m_frame), 0, m_frame.size() - FCS_LEN));
    else if (!bEmpty)
        ++m_ullBad;
    Reset();
    m_bInFrame = true;
}
