#include "client/ReplayCompare.h"

#include "agent/StatusRecords.h"
#include "client/Names.h"
#include "data/DiagPacket.h"

#include <algorithm>
#include <array>

namespace
{
// In the head of a packet.
constexpr size_t HEAD_RC = 4;
constexpr size_t HEAD_STAMP = 8;

constexpr size_t TABLE_NAME_SIZE = 32; // at the start of each row of the channel table

constexpr size_t LOOK_AHEAD = 64;  // packets in which the thread is looked for behind a difference
constexpr size_t BYTES_SHOWN = 48; // on each side of a difference

using DIFFERENCES = std::vector<REPLAY_DIFFERENCE>;
using KIND = REPLAY_DIFFERENCE::KIND;

uint32_t IdOf(ByteView packet)
{
    return LoadLe<uint32_t>(packet, 0);
}

void Blank(ByteSpan field)
{
    std::ranges::fill(field, static_cast<unsigned char>(0));
}

/// The packet without what is another each time.
REPLAY_PACKET Lasting(enChannelType enChannel, REPLAY_PACKET packet)
{
    const ByteSpan bytes(packet);
    Blank(Slice(bytes, HEAD_STAMP, sizeof(uint64_t)));
    if (enChannel == CHANNEL_GU_DATA)
        Blank(Slice(bytes, HEAD_RC, sizeof(uint32_t)));
    if (IdOf(packet) == AGENT_CMD_CHANNEL_QUERY)
        for (size_t szRow = DIAG_PACKET_ACK_STRU::SIZE; szRow < packet.size(); szRow += SERAIL_CHANNEL_STATUS::SIZE)
            Blank(Slice(bytes, szRow, TABLE_NAME_SIZE));
    return packet;
}

std::vector<REPLAY_PACKET> Lasting(enChannelType enChannel, const std::vector<REPLAY_PACKET>& packets)
{
    std::vector<REPLAY_PACKET> lasting;
    lasting.reserve(packets.size());
    for (const REPLAY_PACKET& packet : packets)
        lasting.push_back(Lasting(enChannel, packet));
    return lasting;
}

/// Walks two sequences side by side. Where they part, the nearest packet that both have is where they go on.
class CComparison
{
public:
    CComparison(const std::vector<REPLAY_PACKET>& expected, const std::vector<REPLAY_PACKET>& got)
        : m_expected(expected), m_got(got)
    {
    }

    DIFFERENCES Run()
    {
        while (m_szExpected < m_expected.size() && m_szGot < m_got.size()) {
            if (m_expected[m_szExpected] != m_got[m_szGot])
                Part();
            else
                Advance(1, 1);
        }
        while (m_szExpected < m_expected.size())
            Note(KIND::MISSING);
        return std::move(m_differences);
    }

private:
    void Part()
    {
        for (size_t szAhead = 1; szAhead <= LOOK_AHEAD; ++szAhead) {
            if (Has(m_expected, m_szExpected + szAhead, m_got[m_szGot])) {
                for (; szAhead > 0; --szAhead)
                    Note(KIND::MISSING);
                return;
            }
            if (Has(m_got, m_szGot + szAhead, m_expected[m_szExpected])) {
                for (; szAhead > 0; --szAhead)
                    Note(KIND::EXTRA);
                return;
            }
        }
        Note(KIND::CHANGED);
    }

    static bool Has(const std::vector<REPLAY_PACKET>& packets, size_t szPlace, const REPLAY_PACKET& packet)
    {
        return szPlace < packets.size() && packets[szPlace] == packet;
    }

    void Note(KIND enKind)
    {
        REPLAY_DIFFERENCE stDifference{enKind, m_szExpected, m_szGot};
        if (enKind == KIND::CHANGED) {
            const REPLAY_PACKET& expected = m_expected[m_szExpected];
            const auto at = std::ranges::mismatch(expected, m_got[m_szGot]).in1;
            stDifference.szByte = static_cast<size_t>(at - expected.begin());
        }
        m_differences.push_back(stDifference);
        Advance(enKind != KIND::EXTRA ? 1 : 0, enKind != KIND::MISSING ? 1 : 0);
    }

    void Advance(size_t szExpected, size_t szGot)
    {
        m_szExpected += szExpected;
        m_szGot += szGot;
    }

    const std::vector<REPLAY_PACKET>& m_expected;
    const std::vector<REPLAY_PACKET>& m_got;
    size_t m_szExpected = 0;
    size_t m_szGot = 0;
    DIFFERENCES m_differences;
};

/// The bytes around a place.
std::string HexAround(ByteView bytes, size_t szPlace)
{
    const size_t szFirst = szPlace > BYTES_SHOWN / 2 ? szPlace - BYTES_SHOWN / 2 : 0;
    std::string strText = szFirst > 0 ? "..." : "";
    for (const unsigned char ucByte : Slice(bytes, szFirst, BYTES_SHOWN)) {
        std::array<char, 4> acByte{};
        (void)std::snprintf(acByte.data(), acByte.size(), " %02X", ucByte);
        strText += acByte.data();
    }
    return strText + (bytes.size() > szFirst + BYTES_SHOWN ? " ..." : "");
}

std::string PacketText(const REPLAY_PACKET& packet)
{
    const std::string strName = IdName(IdOf(packet));
    return HexId(IdOf(packet)) + (strName.empty() ? "" : " " + strName) + ", " + std::to_string(packet.size()) +
           " bytes";
}
} // namespace

std::vector<REPLAY_DIFFERENCE> ComparePackets(enChannelType enChannel, const std::vector<REPLAY_PACKET>& expected,
                                              const std::vector<REPLAY_PACKET>& got)
{
    const auto lastingExpected = Lasting(enChannel, expected);
    const auto lastingGot = Lasting(enChannel, got);
    return CComparison(lastingExpected, lastingGot).Run();
}

std::string DifferenceText(const REPLAY_DIFFERENCE& stDifference, const std::vector<REPLAY_PACKET>& expected,
                           const std::vector<REPLAY_PACKET>& got)
{
    const std::string strPlace = "packet " + std::to_string(stDifference.szExpected + 1) + ": ";
    if (stDifference.enKind == KIND::EXTRA) {
        const REPLAY_PACKET& packet = got[stDifference.szGot];
        return "before " + strPlace + "not expected: " + PacketText(packet) + "\n  got     " + HexAround(packet, 0) +
               '\n';
    }
    const REPLAY_PACKET& wanted = expected[stDifference.szExpected];
    if (stDifference.enKind == KIND::MISSING)
        return strPlace + "missing: " + PacketText(wanted) + "\n  expected" + HexAround(wanted, 0) + '\n';
    const REPLAY_PACKET& packet = got[stDifference.szGot];
    return strPlace + PacketText(wanted) + ", differs from byte " + std::to_string(stDifference.szByte) +
           " on\n  expected" + HexAround(wanted, stDifference.szByte) + "\n  got     " +
           HexAround(packet, stDifference.szByte) + '\n';
}
