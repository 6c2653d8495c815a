#pragma once

#include "common/Record.h"
#include "common/Types.h"
#include "page/PageModel.h"
#include "support/TestBytes.h"
#include "tap/TapEvents.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

// Records of a tap, built by hand, and a model that they are fed to.

constexpr uint64_t PAGE_MS = 1'000'000;                    // ns
constexpr uint64_t PAGE_SECOND = 1000 * PAGE_MS;           // ns
constexpr uint64_t PAGE_DAY = 1'700'000'000 * PAGE_SECOND; // 2023-11-14T22:13:20Z
constexpr double PAGE_DAY_MS = 1'700'000'000'000;

/// An indication of the CQI statistic: id 62752, number 1, stamp 0x10000, type 84 (transparent message, GU), 36 bytes:
/// two carriers with mean 25 and 30.
inline Bytes CqiIndication(uint8_t ucNumber = 1, uint8_t ucStamp = 0)
{
    return Join(Hex("20F55401"), Bytes{ucNumber, 0, 0, 0}, Bytes{ucStamp, 0, 1, 0, 0, 0, 0, 0},
                Hex("5401 2400"
                    "02000000"
                    "19000000 19000000 18000000 1A000000"
                    "1E000000 1E000000 1D000000 1F000000"));
}

/// Feeds a model at a time of its own.
class CPageFeed
{
public:
    explicit CPageFeed(CPageModel& model) : m_model(model) {}

    uint64_t ullNow = PAGE_DAY;

    void BeginRun(uint64_t ullRun = 1)
    {
        TAP_HELLO stHello;
        stHello.ullAgentStart = PAGE_DAY - PAGE_SECOND;
        stHello.ullRunLow = ullRun;
        stHello.strHost = "lab7";
        m_model.BeginRun(stHello);
    }
    void Second()
    {
        ullNow += PAGE_SECOND;
        m_model.OnSecond(ullNow);
    }
    TAP_RECORD Record(TAP_KIND enKind, uint8_t ucUe, uint8_t ucChannel, uint32_t ulClient = 0, uint32_t ulPort = 103)
    {
        return {enKind, ucUe, ucChannel, 0, ulPort, ulClient, m_ullNumber++, ullNow};
    }
    void Take(const TAP_RECORD& stRecord, const Bytes& bytes, uint64_t ullLost = 0)
    {
        m_model.Take(stRecord, bytes, ullLost);
    }
    void Channel(uint8_t ucUe, uint8_t ucChannel, bool bAttached, bool bConfirmed, uint32_t ulClient = 0,
                 const std::string& strName = "ttyUSB0", uint32_t ulPort = 103)
    {
        TAP_CHANNEL_EVENT stEvent;
        stEvent.ucAttached = bAttached ? 1 : 0;
        stEvent.ucConfirmed = bConfirmed ? 1 : 0;
        stEvent.strName = strName;
        stEvent.strGroup = "1-2";
        Take(Record(TAP_KIND::PORT_EVENT, ucUe, ucChannel, ulClient, ulPort), Bytes(EncodeRecord(stEvent)));
    }
    void Ue(uint8_t ucUe, const std::string& strImei)
    {
        TAP_UE_EVENT stEvent;
        stEvent.strImei = strImei;
        stEvent.strVersion = "V100R001";
        Take(Record(TAP_KIND::PORT_EVENT, ucUe, CHANNEL_LTE_DIAG), Bytes(EncodeRecord(stEvent)));
    }
    void Client(uint32_t ulClient, uint8_t ucChannel, bool bConnected, const std::string& strAddress = "127.0.0.1")
    {
        TAP_CLIENT_EVENT stEvent;
        stEvent.ucConnected = bConnected ? 1 : 0;
        stEvent.strAddress = strAddress;
        Take(Record(TAP_KIND::PORT_EVENT, TAP_NO_UE, ucChannel, ulClient, 0), Bytes(EncodeRecord(stEvent)));
    }
    /// Of a picture; the times are seconds before now.
    void Since(uint8_t ucUe, uint8_t ucChannel, uint64_t ullState, uint32_t ulClient = 0, uint64_t ullBound = 0,
               uint64_t ullConnected = 0)
    {
        TAP_SINCE_EVENT stEvent;
        stEvent.ullState = ullNow - ullState * PAGE_SECOND;
        stEvent.ullBound = ullNow - ullBound * PAGE_SECOND;
        stEvent.ullConnected = ullNow - ullConnected * PAGE_SECOND;
        Take(Record(TAP_KIND::PORT_EVENT, ucUe, ucChannel, ulClient), Bytes(EncodeRecord(stEvent)));
    }
    void ToClient(uint8_t ucUe, uint8_t ucChannel, uint32_t ulClient, const Bytes& packet)
    {
        Take(Record(TAP_KIND::AGENT_TO_CLIENT, ucUe, ucChannel, ulClient), packet);
    }

    PAGE_ANSWER Ask(const std::string& strPath, std::map<std::string, std::string> mapArgs = {})
    {
        const auto answer = m_model.Get({strPath, std::move(mapArgs)});
        EXPECT_TRUE(answer.has_value()) << strPath;
        return answer.value_or(PAGE_ANSWER{});
    }
    nlohmann::ordered_json View(const std::string& strPath, std::map<std::string, std::string> mapArgs = {})
    {
        const PAGE_ANSWER stAnswer = Ask(strPath, std::move(mapArgs));
        EXPECT_EQ(stAnswer.nStatus, 200) << stAnswer.strBody;
        return nlohmann::ordered_json::parse(stAnswer.strBody);
    }

private:
    CPageModel& m_model;
    uint64_t m_ullNumber = 0;
};
