#include "page/ControlOrder.h"

#include <gtest/gtest.h>

TEST(PageOrder, NamesAReportOrAStatistic)
{
    CONTROL_ORDER stOrder;
    std::string strError;
    ASSERT_TRUE(ParseOrder(R"({"ue":3,"kind":"report","name":"cells","modem":1,"period_ms":700,"start":true})", stOrder,
                           strError))
        << strError;
    EXPECT_EQ(stOrder.ulUe, 3U);
    EXPECT_EQ(stOrder.stReport.Req(), 0xE636); // docs/protocol.md: 0xE536, of modem 1 0x100 more
    EXPECT_FALSE(stOrder.bStat);
    EXPECT_EQ(stOrder.usPeriodMs, 700);
    EXPECT_TRUE(stOrder.bStart);
    EXPECT_TRUE(stOrder.HasEnd());

    CONTROL_ORDER stStop;
    ASSERT_TRUE(ParseOrder(R"({"ue":0,"kind":"stat","name":"decoding","start":false})", stStop, strError)) << strError;
    EXPECT_TRUE(stStop.bStat);
    EXPECT_FALSE(stStop.bStart);
    EXPECT_EQ(stStop.usPeriodMs, 500) << "the usual one";
    EXPECT_FALSE(stStop.IsSame(stOrder));

    CONTROL_ORDER stOnce;
    ASSERT_TRUE(ParseOrder(R"({"ue":0,"kind":"report","name":"pdp","period_ms":null})", stOnce, strError)) << strError;
    EXPECT_FALSE(stOnce.HasEnd());
}

TEST(PageOrder, WhatIsWrongIsSaid)
{
    const struct
    {
        const char* pszBody;
        const char* pszError;
    } c_astCase[] = {
        {"", "the body is no JSON object"},
        {"[]", "the body is no JSON object"},
        {"{", "the body is no JSON object"},
        {R"({"kind":"stat","name":"sir"})", "ue is the slot of a modem, from 0 to 15"},
        {R"({"ue":16,"kind":"stat","name":"sir"})", "ue is the slot of a modem, from 0 to 15"},
        {R"({"ue":-1,"kind":"stat","name":"sir"})", "ue is the slot of a modem, from 0 to 15"},
        {R"({"ue":"0","kind":"stat","name":"sir"})", "ue is the slot of a modem, from 0 to 15"},
        {R"({"ue":0.5,"kind":"stat","name":"sir"})", "ue is the slot of a modem, from 0 to 15"},
        {R"({"ue":0,"kind":"other","name":"sir"})", "kind is stat or report"},
        {R"({"ue":0,"name":"sir"})", "kind is stat or report"},
        {R"({"ue":0,"kind":"stat","name":"cells"})", "there is no stat of the name 'cells'"},
        {R"({"ue":0,"kind":"report"})", "there is no report of the name ''"},
        {R"({"ue":0,"kind":"report","name":"cells","modem":2})", "modem is 0 or 1"},
        {R"({"ue":0,"kind":"report","name":"nas","modem":1})", "nas has no form for modem 1"},
        {R"({"ue":0,"kind":"stat","name":"sir","period_ms":99})", "period_ms is from 100 to 2000"},
        {R"({"ue":0,"kind":"stat","name":"sir","period_ms":2001})", "period_ms is from 100 to 2000"},
        {R"({"ue":0,"kind":"stat","name":"sir","period_ms":"500"})", "period_ms is from 100 to 2000"},
        {R"({"ue":0,"kind":"report","name":"cells","period_ms":65536})", "period_ms is from 100 to 65535"},
        {R"({"ue":0,"kind":"stat","name":"sir","start":1})", "start is true or false"},
        {R"({"ue":0,"kind":"report","name":"pdp","start":false})", "pdp answers once, there is nothing to stop"},
    };
    for (const auto& stCase : c_astCase) {
        CONTROL_ORDER stOrder;
        std::string strError;
        EXPECT_FALSE(ParseOrder(stCase.pszBody, stOrder, strError)) << stCase.pszBody;
        EXPECT_EQ(strError, stCase.pszError) << stCase.pszBody;
    }
}
