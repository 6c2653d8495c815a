#include "common/Scan.h"

#include <gtest/gtest.h>
#include <string>

namespace
{

constexpr uint32_t UNTOUCHED = 4711;

const struct
{
    const char* pszText;
    const char* pszFormat;
    int lRead;
    uint32_t ulValue; // of the only field
} c_astOneNumber[] = {
    {"15", "%d", 1, 15},
    {"+15", "%d", 1, 15},
    {"-15", "%d", 1, 0xFFFFFFF1},
    {"-15", "%u", 1, 0xFFFFFFF1},
    {"015", "%d", 1, 15},
    {"15abc", "%d", 1, 15},
    {"", "%d", 0, UNTOUCHED},
    {"x", "%d", 0, UNTOUCHED},
    {"-", "%d", 0, UNTOUCHED},
    {"+-1", "%d", 0, UNTOUCHED},
    {"0x10", "%d", 1, 0}, // the x isn't a decimal digit
    {"\v\f7", "%d", 1, 7},
    {"4294967295", "%d", 1, 0xFFFFFFFF},
    {"4294967301", "%d", 1, 5}, // 2^32 + 5 keeps its low 32 bits
    {"99999999999999999999999999999999", "%d", 1, 0xFFFFFFFF},
    {"0x1F", "0x%x", 1, 0x1F},
    {"0xaBcD", "0x%x", 1, 0xABCD},
    {"0xFFFFFFFF", "0x%x", 1, 0xFFFFFFFF},
    {"0x123456789", "0x%x", 1, 0x23456789},
    {"0X1F", "0x%x", 0, UNTOUCHED}, // the x in front is small
    {"1F", "0x%x", 0, UNTOUCHED},
    {"0x", "0x%x", 0, UNTOUCHED},
    {"0xg", "0x%x", 0, UNTOUCHED},
    {"0x0x1F", "0x%x", 1, 0x1F}, // scanf reads a hexadecimal number with or without its prefix
    {"0x-1", "0x%x", 1, 0xFFFFFFFF},
    {"{5}", "{%d}", 1, 5},
    {"[5}", "{%d}", 0, UNTOUCHED},
    {"5", "%", 1, 5}, // a format that ends early reads a decimal number
};

} // namespace

TEST(Scan, OneNumber)
{
    for (const auto& stCase : c_astOneNumber) {
        uint32_t ulValue = UNTOUCHED;
        EXPECT_EQ(ScanNumbers(stCase.pszText, stCase.pszFormat, {&ulValue}), stCase.lRead)
            << stCase.pszText << " by " << stCase.pszFormat;
        EXPECT_EQ(ulValue, stCase.ulValue) << stCase.pszText << " by " << stCase.pszFormat;
    }
}

TEST(Scan, StopsAtTheFirstDifferenceAndKeepsTheRest)
{
    const struct
    {
        const char* pszText;
        int lRead;
        uint32_t aulFields[3];
    } astCases[] = {
        {"{0x1,0x2}:9", 3, {1, 2, 9}},
        {"{0x1,0x2}9", 2, {1, 2, UNTOUCHED}},
        {"{0x1,2}:9", 1, {1, UNTOUCHED, UNTOUCHED}},
        {"{0x1;0x2}:9", 1, {1, UNTOUCHED, UNTOUCHED}},
        {"0x1,0x2}:9", 0, {UNTOUCHED, UNTOUCHED, UNTOUCHED}},
    };
    for (const auto& stCase : astCases) {
        uint32_t aulFields[3] = {UNTOUCHED, UNTOUCHED, UNTOUCHED};
        EXPECT_EQ(ScanNumbers(stCase.pszText, "{0x%x,0x%x}:%d", {&aulFields[0], &aulFields[1], &aulFields[2]}),
                  stCase.lRead)
            << stCase.pszText;
        for (size_t i = 0; i < 3; ++i)
            EXPECT_EQ(aulFields[i], stCase.aulFields[i]) << stCase.pszText << " field " << i;
    }
}

TEST(Scan, NeverWritesMoreFieldsThanItHas)
{
    uint32_t ulFirst = 0;
    EXPECT_EQ(ScanNumbers("1.2.3", "%d.%d.%d", {&ulFirst}), 1);
    EXPECT_EQ(ulFirst, 1u);
}
