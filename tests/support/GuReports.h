#pragma once

#include "support/GuFixture.h"

#include <bit>
#include <gtest/gtest.h>

/// A float field as bytes.
inline Bytes F(float fValue)
{
    return Le(std::bit_cast<uint32_t>(fValue));
}
/// A 16-bit field as bytes.
inline Bytes W(unsigned int ulValue)
{
    return Le(static_cast<unsigned short>(ulValue));
}
/// Several 16-bit fields.
inline Bytes WordsOf(std::initializer_list<unsigned int> values)
{
    Bytes bytes;
    for (const unsigned int ulValue : values)
        bytes = Join(bytes, W(ulValue));
    return bytes;
}

/// Reports of a UE with two cards, of class 0: its stamps reach the client as they are. The UE's clock moves on by
/// two seconds with each indication unless a test sets it.
class GuReports : public testing::Test
{
public:
    static Bytes TraceMsg(unsigned short usName, Bytes payload, unsigned int ulModem, unsigned int ulStamp)
    {
        payload.resize(std::max<size_t>(payload.size(), 26));
        StoreLe<uint32_t>(payload, 4, ulModem == 0 ? 130 : 24);
        StoreLe<uint16_t>(payload, 20, usName);
        return GuMsg(0x8003, payload, ulStamp, GU_CATEGORY_TRACE);
    }

protected:
    static constexpr unsigned int STEP_MS = 2000;

    GuReports() { gu.BeDualCard(); }

    /// What a start causes has been read away.
    void Start(unsigned short usReq, unsigned short usPeriodMs, unsigned char ucType = 84)
    {
        gu.Request(usReq, ucType, Join(Hex("01 00"), Le(usPeriodMs)));
        gu.Forget();
    }
    void Stop(unsigned short usReq, unsigned char ucType = 84)
    {
        gu.Request(usReq, ucType, Fill(4));
        gu.Forget();
    }

    /// A transparent indication, or a confirm.
    void Ind(unsigned short usId, const Bytes& payload, unsigned int ulModem = 0)
    {
        gu.FromUe(GuMsg(usId, payload, NextStamp(), ulModem == 0 ? 4 : 68));
    }
    /// A traced message; the payload's fields for the sender and the name are filled in.
    void Trace(unsigned short usName, const Bytes& payload, unsigned int ulModem = 0)
    {
        gu.FromUe(TraceMsg(usName, payload, ulModem, NextStamp()));
    }
    /// Payload of the one report that has come, with that packet id and the stamp of the last indication.
    Bytes Report(unsigned short usId, unsigned char ucType = 84)
    {
        const auto packets = gu.Indications();
        EXPECT_EQ(packets.size(), 1U);
        if (packets.size() != 1)
            return {};
        ExpectHead(packets[0], usId, ucType);
        return packets[0].payload;
    }
    /// The same for several reports at once, in order.
    std::vector<Bytes> Reports(Words ids, unsigned char ucType = 84)
    {
        const auto packets = gu.Indications();
        std::vector<Bytes> payloads;
        EXPECT_EQ(packets.size(), ids.size());
        for (size_t i = 0; i < packets.size() && i < ids.size(); ++i) {
            ExpectHead(packets[i], ids.begin()[i], ucType);
            payloads.push_back(packets[i].payload);
        }
        return payloads;
    }
    bool NoReport() { return gu.Indications().empty(); }

    unsigned int NextStamp() { return m_ulStamp = Ticks(ulNowMs += STEP_MS); }

    CGuFixture gu{"CEDAR-03"};
    unsigned int ulNowMs = 10000;

private:
    void ExpectHead(const ClientPacket& packet, unsigned short usId, unsigned char ucType) const
    {
        EXPECT_EQ(packet.stHead.ulCmdId, 0x01000000U | unsigned{ucType} << 16 | usId);
        EXPECT_EQ(packet.stHead.usPktType, 0x0100 | ucType);
        EXPECT_EQ(packet.stHead.ullTimeStamp, m_ulStamp);
    }

    unsigned int m_ulStamp = 0;
};
