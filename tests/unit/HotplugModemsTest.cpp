#include "hotplug/Modems.h"
#include "support/UsbPorts.h"

namespace
{
/// The numbers of the ports, in the order in which they came; 0 for one that is left out.
std::vector<uint32_t> NumbersOf(const CModems& modems, const CRules& rules, CNumbers& numbers)
{
    std::vector<uint32_t> all;
    for (const PORT_ROW& stRow : modems.Rows(rules, numbers))
        all.push_back(stRow.ulNumber);
    return all;
}
using Numbers = std::vector<uint32_t>;
} // namespace

TEST(HotplugModems, EachModemHasAHundredAndEachRoleItsPlaceInIt)
{
    const CRules rules = FourRoles();
    CModems modems;
    CNumbers numbers;
    for (const uint8_t ucInterface : std::initializer_list<uint8_t>{3, 1, 0, 2})
        modems.Arrive(UsbPort("first", ucInterface, ucInterface));
    modems.Arrive(UsbPort("second", 2, 7));
    EXPECT_EQ(NumbersOf(modems, rules, numbers), (Numbers{104, 102, 101, 103, 203}));
    // Back in another order, on other terminals.
    modems.Replace({});
    modems.Arrive(UsbPort("second", 2, 0));
    modems.Arrive(UsbPort("first", 0, 9));
    EXPECT_EQ(NumbersOf(modems, rules, numbers), (Numbers{203, 101}));
}

TEST(HotplugModems, TheSecondPortOfARoleIsAConflictUntilTheFirstGoes)
{
    const CRules rules = FourRoles();
    CModems modems;
    CNumbers numbers;
    modems.Arrive(UsbPort("m", 4, 4)); // diag, as is interface 0
    modems.Arrive(UsbPort("m", 0, 0));
    auto rows = modems.Rows(rules, numbers);
    EXPECT_EQ(rows[0].enFate, PORT_FATE::SERVED);
    EXPECT_EQ(rows[1].enFate, PORT_FATE::CONFLICT);
    EXPECT_EQ(Complaints(rows, false),
              std::vector<std::string>{"/dev/ttyUSB0: conflict, /dev/ttyUSB4 is the modem's diag port already; left "
                                       "out (rule of line 1)"});
    modems.Leave(UsbPort("m", 4, 4).strSysPath);
    rows = modems.Rows(rules, numbers);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].ulNumber, 101U);
    EXPECT_TRUE(Complaints(rows, true).empty());
}

TEST(HotplugModems, OfPortsThatAreThereTogetherTheLowestInterfaceHasTheRole)
{
    const CRules rules = FourRoles();
    CModems modems;
    CNumbers numbers;
    modems.Replace({UsbPort("m", 4, 0), UsbPort("m", 0, 4)});
    const auto rows = modems.Rows(rules, numbers);
    EXPECT_EQ(rows[0].stPort.strNode, "/dev/ttyUSB4");
    EXPECT_EQ(rows[0].enFate, PORT_FATE::SERVED);
    EXPECT_EQ(rows[1].enFate, PORT_FATE::CONFLICT);
}

TEST(HotplugModems, TheSixteenthModemWaitsForASlotAndIsToldInOneLine)
{
    const CRules rules = FourRoles();
    CModems modems;
    CNumbers numbers;
    for (int i = 1; i <= 16; ++i)
        for (const uint8_t ucInterface : std::initializer_list<uint8_t>{0, 1})
            modems.Arrive(UsbPort("m" + std::to_string(i), ucInterface, 2 * i + ucInterface));
    auto rows = modems.Rows(rules, numbers);
    EXPECT_EQ(rows[29].ulNumber, 1502U);
    EXPECT_EQ(rows[30].enFate, PORT_FATE::TOO_MANY);
    EXPECT_EQ(rows[31].enFate, PORT_FATE::TOO_MANY);
    EXPECT_EQ(
        Complaints(rows, false),
        std::vector<std::string>{"modem m16 is one too many, the agent serves 15; left out until another one goes"});
    for (const uint8_t ucInterface : std::initializer_list<uint8_t>{0, 1})
        modems.Leave(UsbPort("m3", ucInterface, 6 + ucInterface).strSysPath);
    rows = modems.Rows(rules, numbers);
    EXPECT_EQ(rows[28].ulNumber, 1601U); // m3 keeps the numbers from 300 on
    EXPECT_TRUE(Complaints(rows, false).empty());
}

TEST(HotplugModems, APortThatNoRuleFitsTakesNoSlotAndNoNumber)
{
    const CRules rules = FourRoles();
    CModems modems;
    CNumbers numbers;
    modems.Arrive(UsbPort("other", 9, 0));
    modems.Arrive(UsbPort("m", 0, 1));
    const auto rows = modems.Rows(rules, numbers);
    EXPECT_EQ(rows[0].enFate, PORT_FATE::NO_RULE);
    EXPECT_EQ(rows[1].ulNumber, 101U);
    EXPECT_TRUE(Complaints(rows, false).empty());
    EXPECT_EQ(Complaints(rows, true),
              std::vector<std::string>{"/dev/ttyUSB0 (1234:5678 if=09 driver=option): no rule fits, left out"});
}

TEST(HotplugModems, AVisitIsANewOneOnlyWhenThePortCameAnew)
{
    const CRules rules = FourRoles();
    CModems modems;
    CNumbers numbers;
    const auto Visit = [&] { return modems.Rows(rules, numbers)[0].ullVisit; };
    USB_PORT stPort = UsbPort("m", 0, 0);
    stPort.strPlug = "1";
    modems.Arrive(stPort);
    const uint64_t ullFirst = Visit();
    modems.Arrive(stPort); // an event of what List has shown
    modems.Replace({stPort});
    EXPECT_EQ(Visit(), ullFirst);
    modems.Leave(stPort.strSysPath);
    modems.Arrive(stPort);
    const uint64_t ullSecond = Visit();
    EXPECT_NE(ullSecond, ullFirst);
    stPort.strPlug = "2"; // it went and came while events were lost
    modems.Replace({stPort});
    EXPECT_NE(Visit(), ullSecond);
}
