#include "hotplug/Ledger.h"
#include "support/UsbPorts.h"

namespace
{
/// The ledger of a program with modems that come and go. A record is shown as "+101" or "-101".
class HotplugLedger : public testing::Test
{
protected:
    void Want() { m_ledger.Want(m_modems.Rows(m_rules, m_numbers)); }
    void Plug(const std::string& strModem, uint8_t ucInterface, int nTty = 0)
    {
        m_modems.Arrive(UsbPort(strModem, ucInterface, nTty));
        Want();
    }
    void Unplug(const std::string& strModem, uint8_t ucInterface, int nTty = 0)
    {
        m_modems.Leave(UsbPort(strModem, ucInterface, nTty).strSysPath);
        Want();
    }
    std::string Peek()
    {
        const auto record = m_ledger.Next();
        if (!record)
            return "";
        return (record->barrive == DEVICE_MONITOR_INFO_STRU::ARRIVED ? "+" : "-") + std::to_string(record->ulPortNum);
    }
    /// Tells all there is to tell.
    std::string TellAll()
    {
        std::string strTold;
        for (std::string strNext = Peek(); !strNext.empty(); strNext = Peek()) {
            strTold += (strTold.empty() ? "" : " ") + strNext;
            m_ledger.Told();
        }
        return strTold;
    }

    const CRules m_rules = FourRoles();
    CNumbers m_numbers;
    CModems m_modems;
    CLedger m_ledger{std::span<const uint32_t>()};
};
} // namespace

TEST_F(HotplugLedger, ARecordHasAllThatTheAgentNeeds)
{
    Plug("path", 2, 5);
    const DEVICE_MONITOR_INFO_STRU stExpected{103, 2, 1, "/dev/serial/by-path/path:2", "path"};
    EXPECT_EQ(m_ledger.Next(), stExpected);
    EXPECT_EQ(m_ledger.Next(), stExpected) << "until it is told";
}

TEST_F(HotplugLedger, EachPortIsToldOnce)
{
    Plug("m", 0);
    Plug("m", 3);
    EXPECT_EQ(TellAll(), "+101 +104");
    Want();
    EXPECT_EQ(TellAll(), "");
    Unplug("m", 0);
    EXPECT_EQ(TellAll(), "-101");
}

TEST_F(HotplugLedger, APortThatCameBackLeavesFirst)
{
    Plug("m", 0);
    Plug("m", 1);
    EXPECT_EQ(TellAll(), "+101 +102");
    Unplug("m", 0);
    Plug("m", 0); // at the same terminal
    EXPECT_EQ(TellAll(), "-101 +101");
    Unplug("m", 1);
    Plug("m", 1, 8); // at another one
    EXPECT_EQ(TellAll(), "-102 +102");
}

TEST_F(HotplugLedger, WhatCameAndWentUntoldIsNotTold)
{
    Plug("m", 0);
    Unplug("m", 0);
    EXPECT_EQ(TellAll(), "");
}

TEST_F(HotplugLedger, WhatChangesWhileItIsUnderWayIsToldBehindIt)
{
    Plug("m", 0);
    EXPECT_EQ(Peek(), "+101");
    Unplug("m", 0);
    m_ledger.Told();
    EXPECT_EQ(TellAll(), "-101");
    Plug("m", 0);
    EXPECT_EQ(TellAll(), "+101");
    Unplug("m", 0);
    EXPECT_EQ(Peek(), "-101");
    Plug("m", 0);
    m_ledger.Told();
    EXPECT_EQ(TellAll(), "+101");
}

TEST_F(HotplugLedger, ANewAgentIsToldAllThatIsThereAndNothingElse)
{
    Plug("m", 0);
    Plug("m", 1);
    Plug("n", 0, 1);
    EXPECT_EQ(TellAll(), "+101 +102 +201");
    Unplug("m", 1);
    m_ledger.ForgetTold();
    EXPECT_EQ(TellAll(), "+101 +201");
}

TEST_F(HotplugLedger, PortsOfAnEarlierRunLeaveUnlessTheyAreThere)
{
    const std::vector<uint32_t> earlier = {101, 102, 201};
    m_ledger = CLedger(earlier);
    Plug("m", 0);
    EXPECT_EQ(TellAll(), "-102 -201 +101");
    EXPECT_EQ(TellAll(), "");
}
