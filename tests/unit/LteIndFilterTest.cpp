#include "data/LteIndFilter.h"

#include "support/Configure.h"
#include "support/LogCapture.h"
#include "support/TestBytes.h"

#include <gtest/gtest.h>

namespace
{

/// What a packet became.
struct Filtered
{
    unsigned int ulRc;
    unsigned int ulCount;
    ADE_DATA_PACKET_STRU stPacket; // the one that would go out
    Bytes payload;
};

/// A filter of one data client on port 51, configured afresh.
class CFilter
{
public:
    explicit CFilter(const std::string& strConfig = "") : m_clock({0, 0}, [] { return timeval{10, 0}; })
    {
        ConfigureFresh(strConfig);
        m_store.ulTimeoutMs = 200;
    }

    Filtered operator()(unsigned int ulId, const Bytes& payload)
    {
        m_payload = payload;
        ADE_DATA_PACKET_STRU stPacket;
        stPacket.ulCmdId = ulId;
        stPacket.ullTimeStamp = 0x0102;
        stPacket.ulAckField = 0x33;
        stPacket.usLen = static_cast<uint16_t>(payload.size());
        stPacket.pData = m_payload;
        Filtered st{};
        st.ulRc = VEX_ClientIndFilter(stPacket, st.ulCount, {m_output, m_store, m_clock, 51});
        st.stPacket = st.ulCount > 0 ? m_output.astPacket[0] : stPacket;
        st.payload = Bytes(st.stPacket.pData);
        EXPECT_EQ(st.payload.size(), st.stPacket.usLen);
        EXPECT_EQ(st.stPacket.ullTimeStamp, 0x0102u) << "no rule touches it";
        EXPECT_EQ(st.stPacket.ulAckField, 0x33u);
        return st;
    }

private:
    IND_OUTPUT m_output;
    IDLE_MEAS_STORE m_store;
    CMeasClock m_clock;
    Bytes m_payload;
};

void ExpectOut(const Filtered& st, unsigned int ulId, int iIndType, int iSysMode, const Bytes& payload,
               const char* pszName = "")
{
    EXPECT_EQ(st.ulRc, DIAG_RC_OK) << pszName;
    EXPECT_EQ(st.stPacket.ulCmdId, ulId) << pszName;
    EXPECT_EQ(st.stPacket.ucIndType, iIndType) << pszName;
    EXPECT_EQ(st.stPacket.ucSysMode, iSysMode) << pszName;
    EXPECT_EQ(st.payload, payload) << pszName;
}

/// Head of an air, IMS or layer message: module, flags, -, id.
Bytes AirHead(unsigned int ulModule, unsigned int ulFlags, unsigned int ulId)
{
    return Join(Le(ulModule), Le(ulFlags), Fill(4, 0xEE), Le(ulId));
}

constexpr const char* RICH =
    "DPI_L1_FILTER_IND_RANGE_CFG=+[0x30000010,0x3000001F];-{0x30000012};+{0x70000001}\n"
    "DPI_L23_FILTER_IND_RANGE_CFG=-[0x500,0x5FF];+{0x510};-{0x100,0x900}\n"
    "TDS_MSG_MODULE_ID_RANGE={0x77}\n"
    "TDS_COMB_IND_MSG_FILTER=0xA0;0xA1;0xA2;0xA3;0xA4;0xA5;0xA6;0xA7;0xA8;0xA9;0xAA;0xAB\n"
    "DPH_FILTER_ENABLE=1\n"
    "DPH_FILTER_RANGE={0x20030000,0x20030000};{0x10050000,0x1005FFFF};{0x80000000,0x8FFFFFFF}\n"
    "DPH_FILTER_IND_LAYER_MSG_CFG=*:{8,0};{0x600,0x601}:{4,7}\n"
    "SPC_DPI_CELL_MEAS=0x800;0x801\n";

} // namespace

// ---- DSP ----

TEST(IndFilter, WithoutConfigurationNoDspMessageAndEveryLayerMessagePasses)
{
    CFilter filter;
    EXPECT_EQ(filter(0x30000010, Hex("AA")).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x70000001, Hex("AA")).ulRc, DIAG_RC_FILTERED);
    const Filtered st = filter(0x20020000, Join(AirHead(1, 2, 0x500), Hex("AA")));
    EXPECT_EQ(st.ulRc, DIAG_RC_NO_LAYER_CFG) << "a result that passes";
    EXPECT_EQ(st.stPacket.ulCmdId, 0x500u);
    EXPECT_EQ(st.payload, Hex("AA"));
}

TEST(IndFilter, ADspMessageMustBeListedToPass)
{
    CFilter filter(RICH);
    ExpectOut(filter(0x30000010, Hex("AA BB")), 0x30000010, IND_TYPE_OTHER, 2, Hex("AA BB"));
    ExpectOut(filter(0x70000001, Hex("AA")), 0x70000001, IND_TYPE_OTHER, 3, Hex("AA"), "TDS has its own system mode");
    EXPECT_EQ(filter(0x30000012, Hex("AA")).ulRc, DIAG_RC_FILTERED) << "listed to stop";
    EXPECT_EQ(filter(0x30000020, Hex("AA")).ulRc, DIAG_RC_FILTERED) << "not listed";
    EXPECT_EQ(filter(0x70000002, Hex("AA")).ulRc, DIAG_RC_FILTERED);
}

TEST(IndFilter, Classes4And6NeverPass)
{
    CFilter filter(RICH);
    EXPECT_EQ(filter(0x40000000, Hex("AA")).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x4FFFFFFF, {}).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x60000000, Hex("AA")).ulRc, DIAG_RC_FILTERED);
}

// ---- Events ----

TEST(IndFilter, AnEventIsAnIdWithoutPayload)
{
    CFilter filter(RICH);
    const Filtered st = filter(0x20040000, Hex("11 22 33 44  78 56 34 12  AA"));
    EXPECT_EQ(st.ulCount, 1u);
    ExpectOut(st, 0x12345678, IND_TYPE_EVENT, 2, {});
    const Filtered excluded = filter(0x20040000, Hex("11 22 33 44  00 05 00 00  AA"));
    EXPECT_EQ(excluded.ulRc, DIAG_RC_FILTERED) << "0x500 is listed";
    EXPECT_EQ(excluded.ulCount, 0u);
    ExpectOut(filter(0x20040000, Hex("00 00 00 00  10 05 00 00")), 0x510, IND_TYPE_EVENT, 2, {}, "listed to pass");
    ExpectOut(filter(0x20040000, Hex("11 22 33 44 78")), 0x78, IND_TYPE_EVENT, 2, {}, "missing bytes are zero");
    ExpectOut(filter(0x20040000, {}), 0, IND_TYPE_EVENT, 2, {}, "all of them");
}

// ---- Air and IMS ----

TEST(IndFilter, AnAirMessageKeepsFourRewrittenBytesOfItsHead)
{
    CFilter filter(RICH);
    // The head becomes: low byte of the word at 4, 0, and the length behind the head (3).
    ExpectOut(filter(0x20010000, Join(AirHead(0x11, 0xAABBCC9D, 0x00012345), Hex("D1 D2 D3"))), 0x00012345,
              IND_TYPE_AIR, 2, Hex("9D 00 03 00 D1 D2 D3"));
    ExpectOut(filter(0x20060000, Join(AirHead(0x11, 0x01, 0x00012345), Fill(300, 0x5A))), 0x00012345, IND_TYPE_IMS, 2,
              Join(Hex("01 00 2C 01"), Fill(300, 0x5A)), "IMS alike");
    ExpectOut(filter(0x20010000, AirHead(0x11, 2, 7)), 7, IND_TYPE_AIR, 2, Hex("02 00 00 00"), "exactly 16 bytes");
}

TEST(IndFilter, AnAirMessageOfATdsModuleCarriesItInTheId)
{
    CFilter filter(RICH);
    ExpectOut(filter(0x20010000, Join(AirHead(0x77, 1, 0x2345), Hex("D1"))), 0x00772345, IND_TYPE_AIR, 3,
              Hex("01 00 01 00 D1"));
    ExpectOut(filter(0x20060000, Join(AirHead(0x77, 1, 0x00082345), Hex("D1"))), 0x007F2345, IND_TYPE_IMS, 3,
              Hex("01 00 01 00 D1"), "OR, not replaced");
}

TEST(IndFilter, AShortAirOrImsMessagePassesUnchanged)
{
    CFilter filter(RICH);
    for (const unsigned int ulId : {0x20010000u, 0x20060000u}) {
        const Filtered st = filter(ulId, Fill(15, 0x5A));
        EXPECT_EQ(st.ulRc, DIAG_RC_FAIL);
        EXPECT_EQ(st.ulCount, 0u);
        EXPECT_EQ(st.stPacket.ulCmdId, ulId);
        EXPECT_EQ(st.stPacket.ucIndType, 0);
        EXPECT_EQ(st.payload, Fill(15, 0x5A));
    }
}

TEST(IndFilter, AnExcludedAirMessageStops)
{
    CFilter filter(RICH);
    EXPECT_EQ(filter(0x20010000, AirHead(1, 1, 0x500)).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x20060000, AirHead(1, 1, 0x500)).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x20010000, AirHead(1, 1, 0x510)).ulRc, DIAG_RC_OK);
    EXPECT_EQ(filter(0x20010000, AirHead(0x77, 1, 0x500)).ulRc, DIAG_RC_OK) << "the id with the module isn't listed";
}

// ---- Layer ----

TEST(IndFilter, ALayerMessageLosesItsHeadAndWhatTheTableTells)
{
    CFilter filter(RICH);
    const Bytes body = Hex("01 02 03 04 05 06 07 08 09");
    ExpectOut(filter(0x20020000, Join(AirHead(1, 2, 0x600), body)), 0x600, IND_TYPE_LAYER, 2, Hex("05 06 07 08 09"),
              "an entry of its own; the second number isn't used");
    ExpectOut(filter(0x20020000, Join(AirHead(1, 2, 0x700), body)), 0x700, IND_TYPE_LAYER, 2, Hex("09"),
              "the catch-all");
    ExpectOut(filter(0x20020000, Join(AirHead(1, 2, 0x601), Hex("01 02 03 04"))), 0x601, IND_TYPE_LAYER, 2, {},
              "exactly as long");
}

TEST(IndFilter, ALayerMessageTooShortForTheTablePassesUnstripped)
{
    CFilter filter(RICH);
    const Filtered st = filter(0x20020000, Join(AirHead(1, 2, 0x600), Hex("01 02 03")));
    EXPECT_EQ(st.ulRc, DIAG_RC_FAIL);
    EXPECT_EQ(st.stPacket.ulCmdId, 0x600u);
    EXPECT_EQ(st.stPacket.ucIndType, IND_TYPE_LAYER);
    EXPECT_EQ(st.payload, Hex("01 02 03"));
}

TEST(IndFilter, AShortLayerMessagePassesUnchanged)
{
    CFilter filter(RICH);
    const Filtered st = filter(0x20020000, Fill(15, 0x5A));
    EXPECT_EQ(st.ulRc, DIAG_RC_FAIL);
    EXPECT_EQ(st.stPacket.ulCmdId, 0x20020000u);
    EXPECT_EQ(st.payload, Fill(15, 0x5A));
}

TEST(IndFilter, ExclusionStopsALayerMessageWhateverItsTranslationSays)
{
    CFilter filter(RICH);
    EXPECT_EQ(filter(0x20020000, Join(AirHead(1, 2, 0x500), Fill(20))).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x20020000, AirHead(1, 2, 0x500)).ulRc, DIAG_RC_FILTERED) << "too short for the table as well";
    CFilter meas("SPC_DPI_CELL_MEAS=0x800;0x801\nDPI_L23_FILTER_IND_RANGE_CFG=-{0x800}\n");
    EXPECT_EQ(meas(0x20020000, AirHead(1, 2, 0x800)).ulRc, DIAG_RC_FILTERED) << "a rebuilt record stops too";
    EXPECT_EQ(meas(0x20020000, AirHead(1, 2, 0x801)).ulRc, DIAG_RC_FILTERED) << "the idle one has the first id by then";
    CFilter idle("SPC_DPI_CELL_MEAS=0x800;0x801\nDPI_L23_FILTER_IND_RANGE_CFG=-{0x801}\n");
    EXPECT_EQ(idle(0x20020000, AirHead(1, 2, 0x801)).ulRc, DIAG_RC_OK) << "so its own id doesn't stop it";
}

TEST(IndFilter, CellMeasurementsBecomeRecords)
{
    CFilter filter(RICH);
    const Bytes body = Join(Fill(26), Hex("05 00"), Hex("D1 D2"));
    Filtered st = filter(0x20020000, Join(AirHead(1, 2, 0x800), body));
    EXPECT_EQ(st.ulCount, 1u);
    ExpectOut(st, 0x800, IND_TYPE_LAYER, 2, Join(Hex("05 00 01 00 D1 D2"), Fill(1090)), "connected");
    st = filter(0x20020000, Join(AirHead(1, 2, 0x801), Fill(26), Hex("21 00"), Hex("D1 D2")));
    EXPECT_EQ(st.ulCount, 1u);
    ExpectOut(st, 0x800, IND_TYPE_LAYER, 2, Join(Hex("34 00 00 00 D1 D2"), Fill(1090)), "idle goes out as connected");
}

TEST(IndFilter, WithoutCellMeasurementIdsAnId0IsAnOrdinaryLayerMessage)
{
    CFilter filter;
    const Filtered st = filter(0x20020000, Join(AirHead(1, 2, 0), Hex("AA")));
    EXPECT_EQ(st.ulRc, DIAG_RC_NO_LAYER_CFG);
    EXPECT_EQ(st.ulCount, 0u);
    EXPECT_EQ(st.payload, Hex("AA"));
}

TEST(IndFilter, TdsMeasurementsBecomeRecords)
{
    CFilter filter(RICH);
    const Filtered st = filter(0x20020000, AirHead(1, 2, 0xA4)); // position 4, renamed to that of position 3
    EXPECT_EQ(st.ulCount, 1u);
    ExpectOut(st, 0xA3, IND_TYPE_LAYER, 2, Fill(1060));
    EXPECT_EQ(filter(0x20020000, AirHead(1, 2, 0xAB)).ulRc, DIAG_RC_FILTERED) << "position 11 has no record";
}

TEST(IndFilter, TdsExclusionAsksForTheIdThatCameIn)
{
    const std::string strList = "TDS_COMB_IND_MSG_FILTER=0xA0;0xA1;0xA2;0xA3;0xA4\n";
    CFilter renamed(strList + "DPI_L23_FILTER_IND_RANGE_CFG=-{0xA3}\n");
    EXPECT_EQ(renamed(0x20020000, AirHead(1, 2, 0xA4)).ulRc, DIAG_RC_OK);
    CFilter own(strList + "DPI_L23_FILTER_IND_RANGE_CFG=-{0xA4}\n");
    EXPECT_EQ(own(0x20020000, AirHead(1, 2, 0xA4)).ulRc, DIAG_RC_FILTERED);
}

// ---- User plane ----

TEST(IndFilter, AUserPlaneMessageLosesEightBytes)
{
    CFilter filter(RICH);
    ExpectOut(filter(0x20050000, Hex("EE EE EE EE  34 12 00 00  D1 D2")), 0x1234, IND_TYPE_USER_PLANE, 2, Hex("D1 D2"));
    ExpectOut(filter(0x20050000, Hex("EE EE EE EE  34 12 00 00")), 0x1234, IND_TYPE_USER_PLANE, 2, {},
              "exactly 8 bytes");
    EXPECT_EQ(filter(0x20050000, Hex("EE EE EE EE  00 05 00 00  D1")).ulRc, DIAG_RC_FILTERED);
    const Filtered st = filter(0x20050000, Fill(7, 0x5A));
    EXPECT_EQ(st.ulRc, DIAG_RC_FAIL);
    EXPECT_EQ(st.stPacket.ulCmdId, 0x20050000u);
    EXPECT_EQ(st.stPacket.ucIndType, 0);
    EXPECT_EQ(st.payload, Fill(7, 0x5A));
}

// ---- DPI ----

TEST(IndFilter, AMessageInTheDpiRangeComesBackUnderItsDpi)
{
    CFilter filter(RICH);
    const Bytes head = Join(Fill(20, 0xEE), Hex("00 05 00 00"), Fill(16, 0xEE));
    ExpectOut(filter(0x80000001, Join(head, Hex("D1 D2"))), 0x500, IND_TYPE_DPI, 2, Hex("D1 D2"),
              "no exclusion list is asked");
    ExpectOut(filter(0x80000001, head), 0x500, IND_TYPE_DPI, 2, {}, "exactly 40 bytes");
    ExpectOut(filter(0x80000001, Fill(39, 0x5A)), 0x80000001, IND_TYPE_DPI, 2, Fill(39, 0x5A),
              "a shorter one keeps its id and payload");
}

TEST(IndFilter, TheDpiRuleComesBeforeTheDroppedIds)
{
    CFilter filter(RICH);
    const Bytes packet = Join(Fill(20), Hex("11 00 00 00"), Fill(16), Hex("D1"));
    ExpectOut(filter(0x20030000, packet), 0x11, IND_TYPE_DPI, 2, Hex("D1"));
    ExpectOut(filter(0x10055220, packet), 0x11, IND_TYPE_DPI, 2, Hex("D1"));
    EXPECT_EQ(filter(0x20070000, packet).ulRc, DIAG_RC_FILTERED) << "not in a range";
    CFilter off("DPH_FILTER_ENABLE=0\nDPH_FILTER_RANGE={0x20030000,0x20030000}\n");
    EXPECT_EQ(off(0x20030000, packet).ulRc, DIAG_RC_FILTERED) << "switched off";
}

TEST(IndFilter, TheDpiRuleComesBehindTheKnownIds)
{
    CFilter filter("DPH_FILTER_ENABLE=1\nDPH_FILTER_RANGE={0x0,0xFFFFFFFF}\n");
    ExpectOut(filter(0x20010000, AirHead(1, 2, 7)), 7, IND_TYPE_AIR, 2, Hex("02 00 00 00"));
    EXPECT_EQ(filter(0x40000000, Fill(50)).ulRc, DIAG_RC_FILTERED);
    EXPECT_EQ(filter(0x30000000, Fill(50)).ulRc, DIAG_RC_FILTERED);
}

// ---- The rest ----

TEST(IndFilter, DroppedIds)
{
    CFilter filter;
    for (const unsigned int ulId : {0x20030000u, 0x20070000u, 0x90030000u, 0x10055220u})
        EXPECT_EQ(filter(ulId, Fill(50)).ulRc, DIAG_RC_FILTERED) << std::hex << ulId;
}

TEST(IndFilter, EverythingElseIsCutToItsLowHalf)
{
    CFilter filter(RICH);
    ExpectOut(filter(0x10061234, Hex("D1 D2")), 0x1234, IND_TYPE_OTHER, 2, Hex("D1 D2"));
    ExpectOut(filter(0x90030001, Hex("D1")), 0x0001, IND_TYPE_OTHER, 2, Hex("D1"), "class 9");
    ExpectOut(filter(0, {}), 0, IND_TYPE_OTHER, 2, {}, "an id of 0");
    EXPECT_EQ(filter(0x10060100, Hex("D1")).ulRc, DIAG_RC_FILTERED) << "the exclusion list sees the cut id";
    EXPECT_EQ(filter(0x10060510, Hex("D1")).ulRc, DIAG_RC_OK);
}

// ---- Printing ----

TEST(IndFilter, ListedIdsArePrinted)
{
    CFilter filter("LTE_PRINT_ID_FILTER_LIST=0x30000001;0x11;0x12;0x13;0x14;0x15\n"
                   "DPI_L23_FILTER_IND_RANGE_CFG=-{0x14}\n");
    const CLogCapture log;
    filter(0x30000001, Hex("AA"));
    filter(0x20040000, Hex("00 00 00 00 11 00 00 00"));
    filter(0x20010000, Join(AirHead(1, 2, 0x12), Hex("AB")));
    filter(0x20060000, Join(AirHead(1, 2, 0x12), Hex("AB")));
    filter(0x20020000, Join(AirHead(1, 2, 0x13), Hex("AC")));
    filter(0x20050000, Hex("00 00 00 00 14 00 00 00 AD"));
    filter(0x10060015, Hex("AE"));
    filter(0x10060016, Hex("AF"));
    EXPECT_EQ(log.Count("[INF] : dsp message(com 51) id 0x30000001"), 1) << "dropped ones too";
    EXPECT_EQ(log.Count("[INF] : Event message(com 51) id 0x11"), 1);
    EXPECT_EQ(log.Count("[INF] : (com 51)Air or Ims message(pkid:0x20010000) id 0x12"), 1);
    EXPECT_EQ(log.Count("[INF] : (com 51)Air or Ims message(pkid:0x20060000) id 0x12"), 1);
    EXPECT_EQ(log.Count("[DAT] : Air or Ims message data  Buffer="), 2);
    EXPECT_EQ(log.Count("[INF] : (com 51)Layer Message id 0x13"), 1);
    EXPECT_EQ(log.Count("[DAT] : Layer Message data  Buffer="), 1);
    EXPECT_EQ(log.Count("[INF] : (com 51)Userplane message id 0x14"), 1);
    EXPECT_EQ(log.Count("[DAT] : Userplane message data  Buffer="), 1);
    EXPECT_EQ(log.Count("[INF] : (com 51)Other message id 0x15, src id:0x10060015"), 1);
    EXPECT_EQ(log.Count("[DAT] : Other message data  Buffer="), 1);
    EXPECT_EQ(log.Count("0x16"), 0);
}

// ---- Bit split ----

TEST(IndFilter, ABitSetOf0IsFilteredAndNoTableStandsBehindTheOthers)
{
    CFilter filter;
    IND_OUTPUT stOut;
    unsigned int ulCount = 5;
    Bytes payload = Hex("00 00 00 00 AA");
    ADE_DATA_PACKET_STRU stPacket;
    stPacket.usLen = 5;
    stPacket.pData = payload;
    EXPECT_EQ(DoIndPacketParamSpliyViaBit(stPacket, stOut, ulCount), DIAG_RC_FILTERED);
    payload = Hex("FF FF FF FF AA");
    stPacket.pData = payload;
    EXPECT_EQ(DoIndPacketParamSpliyViaBit(stPacket, stOut, ulCount), DIAG_RC_OK);
    EXPECT_EQ(ulCount, 0u);
}

TEST(IndFilter, ADpiMessageWithoutPayloadFails)
{
    ADE_DATA_PACKET_STRU stPacket;
    stPacket.ulCmdId = 7;
    EXPECT_EQ(BuildDiagIndPacketByDpi(stPacket), DIAG_RC_FAIL);
    EXPECT_EQ(stPacket.ulCmdId, 7u);
}
