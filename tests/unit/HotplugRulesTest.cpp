#include "support/UsbPorts.h"

namespace
{
/// Line of the rule that fits a port; 0 for none.
size_t LineFor(const CRules& rules, uint16_t usVendor, uint16_t usProduct, uint8_t ucInterface,
               const std::string& strDriver)
{
    USB_PORT stPort = UsbPort("m", ucInterface, 0);
    stPort.usVendor = usVendor;
    stPort.usProduct = usProduct;
    stPort.strDriver = strDriver;
    const HOTPLUG_RULE* const pRule = rules.Find(stPort);
    return pRule != nullptr ? pRule->szLine : 0;
}
} // namespace

TEST(HotplugRules, TheFirstRuleThatFitsCounts)
{
    const CRules rules = GoodRules("# a comment\n"
                                   "\n"
                                   "1234:abcd if=02 role=diag   # behind a rule\n"
                                   "1234:*\tdriver=option if=0a role=at\r\n"
                                   "  1234:* driver=option role=gu\n"
                                   "12:0 role=data if=1");
    EXPECT_EQ(rules.Count(), 4U);
    const struct
    {
        const char* pszName;
        uint16_t usVendor;
        uint16_t usProduct;
        uint8_t ucInterface;
        const char* pszDriver;
        size_t szLine;
    } c_astCase[] = {
        {"all of the first", 0x1234, 0xABCD, 2, "option", 3},
        {"any driver", 0x1234, 0xABCD, 2, "", 3},
        {"any product", 0x1234, 0x0001, 0x0A, "option", 4},
        {"any interface", 0x1234, 0xABCD, 1, "option", 5},
        {"another driver", 0x1234, 0x0001, 0x0A, "cdc_acm", 0},
        {"the start of a driver's name", 0x1234, 0x0001, 0x0A, "opt", 0},
        {"another vendor", 0x1235, 0xABCD, 2, "option", 0},
        {"short numbers", 0x0012, 0x0000, 1, "x", 6},
    };
    for (const auto& stCase : c_astCase)
        EXPECT_EQ(LineFor(rules, stCase.usVendor, stCase.usProduct, stCase.ucInterface, stCase.pszDriver),
                  stCase.szLine)
            << stCase.pszName;
    EXPECT_EQ(rules.Find(UsbPort("m", 1, 0))->enRole, SERIAL_TYPE_GU);
}

TEST(HotplugRules, AllFaultsAreToldByTheirLines)
{
    std::vector<std::string> errors;
    (void)CRules::Parse("1234 if=00 role=diag\n"
                        "1234:abcd if=00\n"
                        "1234:abcd role=at\n"
                        "1234:abcd if=00 role=lte\n"
                        "1234:abcd if=0g role=at\n"
                        "1234:abcd if=000 role=at\n"
                        "12345:abcd if=00 role=at\n"
                        "*:abcd if=00 role=at\n"
                        "1234:abcd if=00 rule=at\n"
                        "1234:abcd if=00 if=01 role=at\n"
                        "1234:abcd if=00 role=at role=gu\n"
                        "1234:abcd driver= role=at\n"
                        "1234:abcd if=00 role=at\n"
                        "1234:ABCD role=gu if=0\n"
                        "-1:abcd if=00 role=at\n",
                        "f", errors);
    const std::vector<std::string> expected = {
        "f:1: '1234' is no VENDOR:PRODUCT such as 1234:abcd or 1234:*",
        "f:2: role= is missing",
        "f:3: if= or driver= is missing",
        "f:4: role=lte is none of diag, data, gu, at",
        "f:5: if=0g is no number of two hexadecimal digits",
        "f:6: if=000 is no number of two hexadecimal digits",
        "f:7: '12345:abcd' is no VENDOR:PRODUCT such as 1234:abcd or 1234:*",
        "f:8: '*:abcd' is no VENDOR:PRODUCT such as 1234:abcd or 1234:*",
        "f:9: 'rule=at' is none of if=, driver=, role=",
        "f:10: if= stands twice",
        "f:11: role= stands twice",
        "f:12: driver= has no name",
        "f:14: fits the same ports as line 13, which comes first",
        "f:15: '-1:abcd' is no VENDOR:PRODUCT such as 1234:abcd or 1234:*",
    };
    EXPECT_EQ(errors, expected);
}
