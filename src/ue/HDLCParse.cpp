#include "ue/HDLCParse.h"

#include "ue/FcsFold.h"

#include <array>
#include <cstring>
#include <utility>

// All of the line's traffic comes through here, so each step works on runs of bytes: memchr and memcpy between
// stuffed bytes, sixteen bytes at a time through the FCS. The results are those of a walk byte by byte.

namespace
{
constexpr unsigned short FCS_INIT = 0xFFFF;
constexpr unsigned short FCS_RESIDUE = 0xF0B8;    // of payload and FCS together
constexpr unsigned short FCS_POLYNOMIAL = 0x8408; // x^16 + x^12 + x^5 + 1, reflected

using FcsTable = std::array<unsigned short, 256>;

constexpr FcsTable BuildFcsTable()
{
    FcsTable table{};
    for (unsigned int i = 0; i < table.size(); ++i) {
        unsigned int uiFcs = i;
        for (int iBit = 0; iBit < 8; ++iBit)
            uiFcs = (uiFcs >> 1) ^ ((uiFcs & 1) != 0 ? FCS_POLYNOMIAL : 0u);
        table[i] = static_cast<unsigned short>(uiFcs);
    }
    return table;
}

constexpr FcsTable usFcsTab = BuildFcsTable();

constexpr unsigned short NextFcs(unsigned short usFcs, unsigned char ucByte)
{
    return static_cast<unsigned short>((usFcs >> 8) ^ usFcsTab[(usFcs ^ ucByte) & 0xFF]);
}

constexpr size_t SLICE = FCS_BLOCK;    // bytes in one step of the FCS
constexpr size_t FOLD_MIN = 3 * SLICE; // fewer bytes are sooner done by table

/// Table k holds what a byte adds to the FCS once k further bytes have passed. The FCS is linear, so the tables'
/// values for the bytes of a slice are simply XORed.
constexpr std::array<FcsTable, SLICE> BuildSliceTables()
{
    std::array<FcsTable, SLICE> tables{};
    tables[0] = usFcsTab;
    for (size_t k = 1; k < SLICE; ++k)
        for (size_t i = 0; i < 256; ++i)
            tables[k][i] = NextFcs(tables[k - 1][i], 0);
    return tables;
}

constexpr std::array<FcsTable, SLICE> usFcsSlice = BuildSliceTables();

unsigned short NextFcsSlice(unsigned short usFcs, std::span<const unsigned char, SLICE> slice)
{
    // Written out by the compiler, without a loop: the table addresses are constants then.
    const auto sum = [&]<size_t... I>(std::index_sequence<I...>)
    {
        return (usFcsSlice[SLICE - 3 - I][slice[I + 2]] ^ ...);
    };
    return static_cast<unsigned short>(usFcsSlice[SLICE - 1][(slice[0] ^ usFcs) & 0xFF] ^
                                       usFcsSlice[SLICE - 2][slice[1] ^ (usFcs >> 8)] ^
                                       sum(std::make_index_sequence<SLICE - 2>()));
}

constexpr bool IsStuffed(unsigned char ucByte)
{
    return ucByte == HDLC_FLAG || ucByte == HDLC_ESCAPE;
}

/// Bytes before the first one that must be stuffed.
size_t PlainRun(ByteView bytes)
{
    constexpr size_t BLOCK = 16; // a fixed count, so that the compiler tests the whole block at once
    size_t szRun = 0;
    for (; bytes.size() - szRun >= BLOCK; szRun += BLOCK) {
        const auto block = bytes.subspan(szRun).first<BLOCK>();
        unsigned char ucHit = 0;
        for (size_t i = 0; i < BLOCK; ++i)
            ucHit |= static_cast<unsigned char>(IsStuffed(block[i]));
        if (ucHit != 0)
            break;
    }
    while (szRun < bytes.size() && !IsStuffed(bytes[szRun]))
        ++szRun;
    return szRun;
}

/// Writes the bytes to pOut, stuffed, and gives the end of what it wrote. The bytes may lie behind pOut in the
/// same buffer, as far ahead as they are many.
unsigned char* PutStuffed(unsigned char* pOut, ByteView bytes)
{
    while (!bytes.empty()) {
        const size_t szRun = PlainRun(bytes);
        std::memmove(pOut, bytes.data(), szRun);
        pOut += szRun;
        bytes = bytes.subspan(szRun);
        if (bytes.empty())
            break;
        const unsigned char ucByte = bytes.front();
        *pOut++ = HDLC_ESCAPE;
        *pOut++ = ucByte ^ HDLC_ESCAPE_XOR;
        bytes = bytes.subspan(1);
    }
    return pOut;
}

/// Undoes the stuffing of a frame's body. The body's last byte counts as data even if it is 0x7D. False for an
/// escape that is none. szLen is the count written; pOut has room for the whole body.
bool Unstuff(ByteView body, unsigned char* pOut, size_t& szLen)
{
    unsigned char* const pStart = pOut;
    const unsigned char* pIn = body.data();
    const unsigned char* const pLast = pIn + body.size() - 1;
    while (pIn < pLast) {
        const void* pEscape = std::memchr(pIn, HDLC_ESCAPE, static_cast<size_t>(pLast - pIn));
        const auto* pRunEnd = pEscape != nullptr ? static_cast<const unsigned char*>(pEscape) : pLast;
        const auto szRun = static_cast<size_t>(pRunEnd - pIn);
        std::memcpy(pOut, pIn, szRun);
        pOut += szRun;
        pIn = pRunEnd;
        if (pEscape == nullptr)
            break;
        const unsigned char ucByte = pIn[1] ^ HDLC_ESCAPE_XOR;
        if (!IsStuffed(ucByte))
            return false;
        *pOut++ = ucByte;
        pIn += 2;
    }
    if (pIn == pLast)
        *pOut++ = *pLast;
    szLen = static_cast<size_t>(pOut - pStart);
    return true;
}
} // namespace

unsigned short CHDLCParse::CalFcs(unsigned short fcs, ByteView bytes) const
{
    if (bytes.data() == nullptr)
        return HDLC_ERR_FCS;
    if (bytes.size() >= FOLD_MIN && CanFoldFcs())
        return NextFcsSlice(0, FoldFcs(fcs, bytes));
    for (; bytes.size() >= SLICE; bytes = bytes.subspan(SLICE))
        fcs = NextFcsSlice(fcs, bytes.first<SLICE>());
    for (const unsigned char ucByte : bytes)
        fcs = NextFcs(fcs, ucByte);
    return fcs;
}

void CHDLCParse::EncodeAddFcs(ByteSpan packet) const
{
    if (packet.size() < HDLC_FCS_LEN)
        return;
    const size_t szLen = packet.size() - HDLC_FCS_LEN;
    StoreLe<uint16_t>(packet, szLen, static_cast<uint16_t>(~CalFcs(FCS_INIT, packet.first(szLen))));
}

unsigned int CHDLCParse::DecodeCheckFcs(ByteView packet) const
{
    return CalFcs(FCS_INIT, packet) == FCS_RESIDUE ? 0 : HDLC_ERR_FCS;
}

HDLC_RESULT CHDLCParse::HdlcEncode(ByteView src) const
{
    if (src.data() == nullptr || src.empty())
        return {HDLC_ERR_PARAM, {}};
    // The frame is stuffed from the far half of its own buffer: each byte becomes two at most, so the writing end
    // never overtakes the reading end.
    const size_t szBody = src.size() + HDLC_FCS_LEN;
    CPacket frame = CPacket::Allocate(2 * szBody + HDLC_FLAG_PAIR);
    if (!frame)
        return {HDLC_ERR_MEMORY, {}};
    const ByteSpan out = frame.Bytes();
    const ByteSpan body = out.subspan(1 + szBody, szBody);
    std::memcpy(body.data(), src.data(), src.size());
    EncodeAddFcs(body);

    out[0] = HDLC_FLAG;
    unsigned char* pEnd = PutStuffed(out.data() + 1, body);
    *pEnd++ = HDLC_FLAG;
    frame.Shrink(static_cast<size_t>(pEnd - out.data()));
    return {0, std::move(frame)};
}

HDLC_RESULT CHDLCParse::HdlcDecode(ByteView src) const
{
    if (src.data() == nullptr || src.size() < HDLC_MIN_RAW_LEN)
        return {HDLC_ERR_PARAM, {}};
    const ByteView body = src.subspan(1, src.size() - HDLC_FLAG_PAIR);
    CPacket packet = CPacket::Allocate(body.size());
    if (!packet)
        return {HDLC_ERR_MEMORY, {}};
    const ByteSpan out = packet.Bytes();

    size_t szLen = 0;
    if (!Unstuff(body, out.data(), szLen))
        return {HDLC_ERR_ESCAPE, {}};
    if (szLen < HDLC_MIN_PAYLOAD + HDLC_FCS_LEN)
        return {HDLC_ERR_SHORT, {}};
    if (const unsigned int uiResult = m_bCheckFcs ? DecodeCheckFcs(out.first(szLen)) : 0; uiResult != 0)
        return {uiResult, {}};
    const size_t szPayload = szLen - HDLC_FCS_LEN;
    out[szPayload] = 0;
    packet.Shrink(szPayload);
    return {0, std::move(packet)};
}
