#pragma once

#include "capture/CompressFile.h"
#include "capture/PcapngWriter.h"
#include "forward/Forwarder.h"
#include "support/TestBytes.h"
#include "support/VexProcess.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

/// A stream in memory that keeps the rules of the real one, and goes wrong as it is told.
class CFakeHub : public IForwardHub
{
public:
    struct STORED
    {
        std::string strSubject;
        std::string strId;
        std::vector<unsigned char> vecBytes;
    };
    std::vector<STORED> stream; // the sequence of a message is its place from 1
    std::vector<std::string> states;
    bool bDown = false;
    bool bLoseRequests = false; // they never arrive
    bool bLoseAnswers = false;  // they arrive, and nobody hears of it
    bool bIsBehind = false;     // what is asked for comes from a server that has nothing
    size_t szAsked = 0;

    void Connect()
    {
        bDown = false;
        m_events.push_back({.enKind = HUB_EVENT::KIND::CONNECTED, .vecBytes = {}, .strText = {}});
    }
    void Disconnect()
    {
        bDown = true;
        m_events = {{.enKind = HUB_EVENT::KIND::LOST, .vecBytes = {}, .strText = "cut"}};
    }
    uint64_t LastOf(const std::string& strSubject) const
    {
        for (size_t sz = stream.size(); sz > 0; --sz)
            if (stream[sz - 1].strSubject == strSubject)
                return sz;
        return 0;
    }

    /// As a server's death can: the last message of the subject has never been. The others move up.
    void LoseLast(const std::string& strSubject)
    {
        stream.erase(stream.begin() + static_cast<ptrdiff_t>(LastOf(strSubject)) - 1);
    }

    bool AskLast(const std::string& strSubject, uint64_t ullToken) override
    {
        ++szAsked;
        if (bDown || bLoseRequests)
            return !bDown;
        HUB_EVENT event{.enKind = HUB_EVENT::KIND::LAST, .ullToken = ullToken, .vecBytes = {}, .strText = {}};
        event.ullSequence = bIsBehind ? 0 : LastOf(strSubject);
        if (event.ullSequence > 0)
            event.vecBytes = stream[event.ullSequence - 1].vecBytes;
        Answer(std::move(event));
        return true;
    }
    bool Publish(const MESSAGE& stMessage, uint64_t ullToken) override
    {
        if (bDown || bLoseRequests)
            return !bDown;
        HUB_EVENT event{.enKind = HUB_EVENT::KIND::STORED, .ullToken = ullToken, .vecBytes = {}, .strText = {}};
        const auto same = std::ranges::find(stream, stMessage.strId, &STORED::strId);
        event.bDuplicate = same != stream.end();
        event.ullSequence = static_cast<uint64_t>(same - stream.begin()) + 1;
        if (!event.bDuplicate && stMessage.ullExpectedLast != LastOf(stMessage.strSubject)) {
            event.enKind = HUB_EVENT::KIND::REFUSED;
            event.strText = "wrong last sequence";
        } else if (!event.bDuplicate)
            stream.push_back({stMessage.strSubject, stMessage.strId, {stMessage.bytes.begin(), stMessage.bytes.end()}});
        Answer(std::move(event));
        return true;
    }
    void PutState(const std::string& strJson) override { states.push_back(strJson); }
    std::optional<HUB_EVENT> Wait(std::chrono::milliseconds) override
    {
        if (m_events.empty())
            return std::nullopt;
        HUB_EVENT event = std::move(m_events.front());
        m_events.pop_front();
        return event;
    }

private:
    void Answer(HUB_EVENT event)
    {
        if (!bLoseAnswers)
            m_events.push_back(std::move(event));
    }
    std::deque<HUB_EVENT> m_events;
};

/// A spool that the test writes, a forwarder that runs in the test's time, and what has come out of it.
class Forward : public testing::Test
{
protected:
    Forward() { std::filesystem::create_directories(Spool()); }

    std::string Spool() const { return m_dir.Path() + "/spool"; }
    std::string Path(const std::string& strName) const { return Spool() + '/' + strName + ".pcapng"; }

    /// Name of a segment that began in this minute of the day.
    static std::string Name(unsigned int ulMinute)
    {
        return "vex_20261122T11" + std::to_string(10 + ulMinute) + "00.000Z_0000000001";
    }

    /// Blocks of a new segment with so many records, of two UEs in turn and now and then of the agent.
    Bytes Segment(unsigned int ulRecords, size_t szRecord = 100)
    {
        Bytes bytes;
        CPcapngWriter writer(bytes);
        writer.Begin({"lab7", 1, 2, 3}, "test");
        for (unsigned int i = 0; i < ulRecords; ++i)
            writer.Record(Record(i),
                          Bytes(ByteView(std::vector<unsigned char>(szRecord, static_cast<unsigned char>(i)))));
        writer.End(0);
        return bytes;
    }
    static TAP_RECORD Record(unsigned int ulIndex)
    {
        TAP_RECORD stRecord;
        stRecord.enKind = ulIndex % 10 == 9 ? TAP_KIND::STATUS : TAP_KIND::UE_TO_AGENT;
        if (stRecord.enKind != TAP_KIND::STATUS) {
            stRecord.ucUe = static_cast<uint8_t>(ulIndex % 2);
            stRecord.ucChannel = CHANNEL_LTE_DATA;
        }
        stRecord.ullNumber = ulIndex;
        stRecord.ullTime = 1'700'000'000'000'000'000 + ulIndex;
        return stRecord;
    }

    void Write(const std::string& strName, ByteView bytes)
    {
        std::ofstream file(Path(strName), std::ios::binary | std::ios::app);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        Bytes& whole = m_mapWritten[strName];
        whole.insert(whole.end(), bytes.begin(), bytes.end());
    }
    void Compress(const std::string& strName) const
    {
        std::string strError;
        ASSERT_TRUE(CompressFile(Path(strName), strError)) << strError;
    }

    /// A new run of the program, with the spool and hub as they are.
    void Start()
    {
        m_pForwarder.reset();
        m_pLedger.emplace(Spool());
        std::string strError;
        ASSERT_TRUE(m_pLedger->Open(strError)) << strError;
        m_stSettings.stPublish.strBench = "lab7";
        m_stSettings.stPublish.strEpoch = m_pLedger->Epoch();
        m_pForwarder = std::make_unique<CForwarder>(m_stSettings, *m_pLedger, m_hub, m_log);
        m_hub.Connect();
    }
    /// Rounds of 50 ms.
    void Run(unsigned int ulRounds = 40)
    {
        for (unsigned int i = 0; i < ulRounds; ++i) {
            m_now += std::chrono::milliseconds(50);
            size_t szBefore = 0;
            do
                szBefore = m_hub.stream.size();
            while (m_pForwarder->Turn(m_now) || m_hub.stream.size() > szBefore);
        }
    }

    /// What the stream has of each segment, put together. A byte that comes twice or a lane out of its order is
    /// a failure; what is missing leaves the segment shorter.
    std::map<std::string, Bytes> Arrived() const
    {
        std::map<std::string, std::map<uint64_t, Bytes>> pieces;
        std::map<std::string, std::set<std::string>> passed; // segments of each lane that are over
        std::map<std::string, std::pair<std::string, uint64_t>> last;
        for (const CFakeHub::STORED& stored : m_hub.stream) {
            FLEET_MESSAGE stMessage;
            EXPECT_TRUE(DecodeMessage(stored.vecBytes, stMessage));
            auto& [strSegment, ullEnd] = last[stored.strSubject];
            if (strSegment != stMessage.strSegment)
                passed[stored.strSubject].insert(std::exchange(strSegment, stMessage.strSegment)), ullEnd = 0;
            EXPECT_FALSE(passed[stored.strSubject].contains(strSegment)) << stored.strSubject << " goes back";
            EXPECT_GE(stMessage.vecRuns.front().ullOffset, ullEnd) << stored.strSubject;
            ullEnd = stMessage.End();
            ByteView rest = stMessage.bytes;
            for (const FLEET_RUN& stRun : stMessage.vecRuns) {
                pieces[strSegment][stRun.ullOffset] = Bytes(rest.first(stRun.ulLength));
                rest = rest.subspan(stRun.ulLength);
            }
        }
        std::map<std::string, Bytes> whole;
        for (const auto& [strSegment, runs] : pieces)
            for (const auto& [ullOffset, bytes] : runs)
                if (!bytes.empty()) {
                    EXPECT_GE(ullOffset, whole[strSegment].size()) << strSegment << " has bytes twice";
                    whole[strSegment].insert(whole[strSegment].end(), bytes.begin(), bytes.end());
                }
        return whole;
    }
    /// Messages that tell a loss: segment and offset.
    std::vector<std::pair<std::string, uint64_t>> Losses() const
    {
        std::vector<std::pair<std::string, uint64_t>> losses;
        for (const CFakeHub::STORED& stored : m_hub.stream) {
            FLEET_MESSAGE stMessage;
            if (DecodeMessage(stored.vecBytes, stMessage) && stMessage.enKind == FLEET_KIND::LOSS)
                losses.emplace_back(stMessage.strSegment, stMessage.vecRuns.front().ullOffset);
        }
        return losses;
    }

    CTempDir m_dir;
    std::map<std::string, Bytes> m_mapWritten;
    CFakeHub m_hub;
    std::ostringstream m_text;
    CForwardLog m_log{m_text};
    CForwarder::SETTINGS m_stSettings;
    std::optional<CSegmentLedger> m_pLedger;
    std::unique_ptr<CForwarder> m_pForwarder;
    std::chrono::steady_clock::time_point m_now = std::chrono::steady_clock::now();
};
