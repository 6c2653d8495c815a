#include "client/Commands.h"
#include "client/Names.h"
#include "common/Types.h"
#include "support/Sockets.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>

using testing::HasSubstr;

namespace
{
struct REQUEST
{
    enChannelType enChannel;
    DIAG_PACKET_REQ_STRU stHead;
    Bytes params;
};

Bytes Answer(uint32_t ulCmdId, uint32_t ulRc, uint16_t usPktType, const Bytes& payload = {})
{
    return Join(Hex("9F9F"), Le(ulCmdId), Le(ulRc), Le(uint64_t{32768}), Le(usPktType),
                Le(static_cast<uint16_t>(payload.size())), payload);
}

/// The agent's five ports, with a script for its answers. Serves one client a channel at a time.
class CFakeAgent
{
public:
    using Script = std::function<void(CFakeAgent&, const REQUEST&)>;

    explicit CFakeAgent(Script script) : m_script(std::move(script))
    {
        for (size_t i = 0; i < CHANNELNUM; ++i)
            m_listeners[i] = ListenTcp(LISTENPORT[i]);
        m_thread = std::thread([this] { Serve(); });
    }
    ~CFakeAgent()
    {
        m_bRun = false;
        m_thread.join();
    }
    CFakeAgent(const CFakeAgent&) = delete;
    CFakeAgent& operator=(const CFakeAgent&) = delete;

    // For the script.
    void Send(enChannelType enChannel, const Bytes& bytes) { EXPECT_TRUE(SendAll(Socket(enChannel), bytes)); }
    void Close(enChannelType enChannel) { Socket(enChannel).Reset(); }

    // For the test, once the command has ended.
    std::vector<REQUEST> Requests()
    {
        const std::lock_guard guard(m_lock);
        return m_requests;
    }

private:
    CUniqueFd& Socket(enChannelType enChannel) { return m_clients[static_cast<size_t>(enChannel)]; }

    void Serve()
    {
        while (m_bRun) {
            std::array<pollfd, 2 * CHANNELNUM> polls{};
            for (size_t i = 0; i < CHANNELNUM; ++i) {
                polls[i] = {m_listeners[i].Get(), POLLIN, 0};
                polls[CHANNELNUM + i] = {m_clients[i].Get(), POLLIN, 0};
            }
            (void)poll(polls.data(), polls.size(), 10);
            for (size_t i = 0; i < CHANNELNUM; ++i) {
                if (polls[i].revents != 0)
                    m_clients[i].Reset(accept(m_listeners[i].Get(), nullptr, nullptr));
                else if (polls[CHANNELNUM + i].revents != 0)
                    Read(static_cast<enChannelType>(i));
            }
        }
    }

    void Read(enChannelType enChannel)
    {
        const Bytes head = ReceiveBytes(Socket(enChannel), LEAD_LEN + DIAG_PACKET_REQ_STRU::SIZE);
        if (head.size() < LEAD_LEN + DIAG_PACKET_REQ_STRU::SIZE)
            return Close(enChannel);
        REQUEST stRequest{enChannel, ViewReq(Slice(ByteView(head), LEAD_LEN)).stHead, {}};
        stRequest.params = ReceiveBytes(Socket(enChannel), stRequest.stHead.usLen);
        {
            const std::lock_guard guard(m_lock);
            m_requests.push_back(stRequest);
        }
        m_script(*this, stRequest);
    }

    Script m_script;
    std::array<CUniqueFd, CHANNELNUM> m_listeners;
    std::array<CUniqueFd, CHANNELNUM> m_clients;
    std::mutex m_lock;
    std::vector<REQUEST> m_requests;
    std::atomic<bool> m_bRun = true;
    std::thread m_thread;
};

struct OUTCOME
{
    EXIT_CODE enCode;
    std::string strOut;
    std::string strErrors;

    /// The JSON lines whose "event" is this.
    std::vector<ordered_json> Events(const std::string& strEvent) const
    {
        std::vector<ordered_json> events;
        std::istringstream lines(strOut);
        for (std::string strLine; std::getline(lines, strLine);)
            if (const auto object = ordered_json::parse(strLine); object["event"] == strEvent)
                events.push_back(object);
        return events;
    }
};

OUTCOME Client(const std::vector<std::string>& args)
{
    std::ostringstream out;
    std::ostringstream errors;
    const EXIT_CODE enCode = RunClient(args, out, errors, false);
    return {enCode, out.str(), errors.str()};
}

void Silence(CFakeAgent&, const REQUEST&) {}

/// Answers every request with the same result and payload under its own id.
CFakeAgent::Script Always(uint32_t ulRc, const Bytes& payload = {})
{
    return [=](CFakeAgent& agent, const REQUEST& stRequest) {
        agent.Send(stRequest.enChannel, Answer(stRequest.stHead.ulCmdId, ulRc, stRequest.stHead.usPktType, payload));
    };
}
} // namespace

TEST(ClientCommands, WrongUsageIsOne)
{
    const std::vector<std::vector<std::string>> cases = {
        {},
        {"nonsense"},
        {"bind"},
        {"bind", "x"},
        {"request", "zz"},
        {"request", "1", "0"},
        {"request", "1", "--type", "70000"},
        {"switch", "air", "1"},
        {"switch", "1", "2"},
        {"switch", "air"},
        {"nv-write", "1", "0", "5", "0"},
        {"nv-write", "1", "0", "3", "0", "--bits", "0", "1"},
        {"nv-write", "1", "0", "4", "0", "--bits", "0", "32"},
        {"gu"},
        {"gu", "nosuch"},
        {"gu", "bler", "--modem", "1"},
        {"gu", "pdp", "--stop"},
        {"gu", "0x1234"},
        {"stat", "radio"},
        {"stat", "sir", "--modem", "1"},
        {"watch", "--count", "0"},
    };
    for (const auto& args : cases)
        EXPECT_EQ(Client(args).enCode, CODE_USAGE) << testing::PrintToString(args);
}

TEST(ClientCommands, HelpIsZero)
{
    EXPECT_EQ(Client({"--help"}).enCode, CODE_DONE);
    for (const char* pszCommand : {"channels", "bind", "unbind", "version", "timestamp", "request", "switch", "nv-read",
                                   "nv-write", "at", "watch", "gu", "stat", "monitor"}) {
        const OUTCOME stOutcome = Client({pszCommand, "--help"});
        EXPECT_EQ(stOutcome.enCode, CODE_DONE) << pszCommand;
        EXPECT_THAT(stOutcome.strOut, HasSubstr(pszCommand));
    }
}

TEST(ClientCommands, NoAgentIsTwo)
{
    const OUTCOME stOutcome = Client({"channels"});
    EXPECT_EQ(stOutcome.enCode, CODE_NO_CONNECTION);
    EXPECT_THAT(stOutcome.strErrors, HasSubstr("20260"));
}

TEST(ClientCommands, SilenceIsThree)
{
    CFakeAgent agent(Silence);
    EXPECT_EQ(Client({"version", "--timeout", "0.05"}).enCode, CODE_TIME_OUT);
}

TEST(ClientCommands, AnAgentThatHangsUpIsTwo)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST& stRequest) { self.Close(stRequest.enChannel); });
    const OUTCOME stOutcome = Client({"version"});
    EXPECT_EQ(stOutcome.enCode, CODE_NO_CONNECTION);
    EXPECT_THAT(stOutcome.strErrors, HasSubstr("closed"));
}

TEST(ClientCommands, RefusalIsFourAndReadable)
{
    CFakeAgent agent(Always(41));
    const OUTCOME stOutcome = Client({"request", "0x10015000", "01"});
    EXPECT_EQ(stOutcome.enCode, CODE_REFUSED);
    EXPECT_THAT(stOutcome.strErrors, HasSubstr("DIAG_RC_NOT_BOUND (41)"));
    EXPECT_THAT(stOutcome.strErrors, HasSubstr("--bind"));
}

TEST(ClientCommands, ChannelsShowsTheRowsThatAreThere)
{
    Bytes table = Fill(3520);
    for (size_t i = 0; i < 80; ++i)
        StoreLe<uint32_t>(table, i * 44 + 32, 0xFFFFFFFF);
    StoreText(Slice(ByteSpan(table), 0, 32), "/dev/pts/7");
    StoreLe<uint32_t>(table, 32, 3);
    StoreLe<uint32_t>(table, 36, 1);
    StoreLe<uint32_t>(table, 40, 1);
    StoreText(Slice(ByteSpan(table), size_t{7} * 44, 32), "ttyUSB9"); // UE 1, channel 2, not confirmed
    CFakeAgent agent(Always(0, table));
    const OUTCOME stText = Client({"channels"});
    EXPECT_EQ(stText.enCode, CODE_DONE);
    EXPECT_EQ(stText.strOut, "UE  channel   port  attached  bound  name\n"
                             " 0  Lte Diag     3  yes       yes    /dev/pts/7\n"
                             " 1  Guom Cmd    -1  no        no     ttyUSB9\n");
    const auto rows = Client({"--json", "channels"}).Events("channel");
    ASSERT_EQ(rows.size(), 80U);
    EXPECT_EQ(rows[0].dump(), R"({"event":"channel","ue":0,"channel":0,"channel_name":"Lte Diag",)"
                              R"("name":"/dev/pts/7","port":3,"attached":1,"bound":1})");
    EXPECT_EQ(rows[7]["name"], "ttyUSB9");
    EXPECT_EQ(rows[7]["port"], -1);
}

TEST(ClientCommands, BindShowsTheStatusRecordAndTheAgentVersion)
{
    Bytes status = Fill(92);
    status[0] = 1;
    StoreText(Slice(ByteSpan(status), 4, 32), "V100R001C00B010SP00");
    CFakeAgent agent([&](CFakeAgent& self, const REQUEST& stRequest) {
        self.Send(CHANNEL_LTE_DIAG, Answer(0x50000010, 0, 0x00F0, status));
        self.Send(CHANNEL_LTE_DIAG, Answer(stRequest.stHead.ulCmdId, 0, 240, Hex("312E3000")));
    });
    const OUTCOME stOutcome = Client({"bind", "5", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    ASSERT_EQ(stOutcome.Events("unsolicited").size(), 1U);
    EXPECT_EQ(stOutcome.Events("unsolicited")[0]["decoded"]["version"], "V100R001C00B010SP00");
    ASSERT_EQ(stOutcome.Events("bound").size(), 1U);
    EXPECT_EQ(stOutcome.Events("bound")[0]["agent_version"], "1.0");
    ASSERT_EQ(agent.Requests().size(), 1U);
    EXPECT_EQ(agent.Requests()[0].stHead.ulCmdId, 0x50000040U);
    EXPECT_EQ(agent.Requests()[0].stHead.usPktType, 240);
    EXPECT_EQ(agent.Requests()[0].params, Hex("05000000"));
}

TEST(ClientCommands, ABindTellsItsUeOnce)
{
    // The agent has bound the client by itself first, to UE 0, and says so too.
    std::atomic<uint32_t> ulRc = 0;
    CFakeAgent agent([&](CFakeAgent& self, const REQUEST& stRequest) {
        for (const unsigned char ucUeIdx : Bytes{0, 2}) {
            Bytes status = Fill(92);
            status[0] = 1;
            status[1] = ucUeIdx;
            StoreText(Slice(ByteSpan(status), 4, 32), "V1");
            self.Send(CHANNEL_LTE_DIAG, Answer(0x50000010, 0, 0x00F0, status));
        }
        self.Send(CHANNEL_LTE_DIAG, Answer(stRequest.stHead.ulCmdId, ulRc, 240, Hex("312E3000")));
    });
    EXPECT_EQ(Client({"bind", "5"}).strOut, "on UE 2, version V1\nbound to port 5, agent version 1.0\n");
    EXPECT_EQ(Client({"bind", "5", "--json"}).Events("unsolicited").size(), 2U) << "there each packet is an event";
    ulRc = 2;
    EXPECT_EQ(Client({"bind", "5"}).strOut, "") << "refused, it is on none";
}

TEST(ClientCommands, EveryCommandBindsFirstWhenAsked)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST& stRequest) {
        const uint32_t ulRc = stRequest.stHead.ulCmdId == 0x50000040 ? 2 : 0;
        self.Send(stRequest.enChannel, Answer(stRequest.stHead.ulCmdId, ulRc, 240));
    });
    for (const auto& command : std::vector<std::vector<std::string>>{{"channels"},
                                                                     {"unbind"},
                                                                     {"version"},
                                                                     {"timestamp"},
                                                                     {"request", "1"},
                                                                     {"at", "AT"},
                                                                     {"watch"},
                                                                     {"gu", "radio"}}) {
        auto args = command;
        args.insert(args.end(), {"--bind", "77"});
        const OUTCOME stOutcome = Client(args);
        EXPECT_EQ(stOutcome.enCode, CODE_REFUSED) << command[0];
        EXPECT_THAT(stOutcome.strErrors, HasSubstr("port 77 refused, DIAG_RC_FAIL (2)")) << command[0];
        EXPECT_EQ(stOutcome.strOut, "") << command[0];
    }
}

TEST(ClientCommands, VersionIsDecoded)
{
    CFakeAgent agent(Always(0, Hex("6400 0100 0200 0A00 0300 0000 00000000 3412 7856 01000000 02000000")));
    const auto acks = Client({"version", "--json"}).Events("ack");
    ASSERT_EQ(acks.size(), 1U);
    EXPECT_EQ(acks[0]["decoded"]["v"], 100);
    EXPECT_EQ(acks[0]["decoded"]["b"], 10);
    EXPECT_EQ(acks[0]["decoded"]["identity_high"], 0x1234);
    EXPECT_EQ(acks[0]["rc_name"], "DIAG_RC_OK");
    EXPECT_EQ(acks[0]["stamp"], 32768);
    EXPECT_EQ(acks[0]["len"], 28);
}

TEST(ClientCommands, TimestampThatIsNotStoredYet)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) { self.Send(CHANNEL_LTE_DIAG, Answer(0, 0, 0)); });
    EXPECT_EQ(Client({"timestamp"}).enCode, CODE_REFUSED);
}

TEST(ClientCommands, RequestTypesFollowTheIdOrTheOption)
{
    CFakeAgent agent(Always(0));
    (void)Client({"request", "0x10015000", "0a0B", "0C"});
    (void)Client({"request", "0x50000020"});
    (void)Client({"request", "77"});
    (void)Client({"request", "77", "--type", "0x2233"});
    const auto requests = agent.Requests();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_EQ(requests[0].stHead.usPktType, 16);
    EXPECT_EQ(requests[0].params, Hex("0A0B0C"));
    EXPECT_EQ(requests[1].stHead.usPktType, 240);
    EXPECT_EQ(requests[2].stHead.usPktType, 5);
    EXPECT_EQ(requests[3].stHead.usPktType, 0x2233);
}

TEST(ClientCommands, TextShowsNamesHexAndCharacters)
{
    CFakeAgent agent(Always(0, Hex("41 42 00 FF")));
    EXPECT_EQ(Client({"request", "0x10015000"}).strOut,
              "ack 0x10015000  type 16 cmd  rc DIAG_RC_OK (0)  stamp 32768 (1.000 s)  4 bytes\n"
              "    0000  41 42 00 FF                                      |AB..|\n");
}

TEST(ClientCommands, ASwitchOfThreeKindsWaitsForThreeAcks)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        for (int i = 0; i < 3; ++i)
            self.Send(CHANNEL_LTE_DIAG, Answer(0x10015317, i == 1 ? 43 : 0, 16));
    });
    const OUTCOME stOutcome =
        Client({"switch", "--json", "air", "1", "0x10", "event", "2", "1", "user", "3", "1", "user2", "4", "0"});
    EXPECT_EQ(stOutcome.enCode, CODE_REFUSED);
    EXPECT_EQ(stOutcome.Events("ack").size(), 3U);
    EXPECT_EQ(agent.Requests()[0].stHead.ulCmdId, 0x10015317U);
    EXPECT_EQ(agent.Requests()[0].params, Hex("01000000 01000000 10000000  02000000 03000000 01000000"
                                              "03000000 02000000 01000000  04000000 04000000 00000000"));
}

TEST(ClientCommands, AnUnboundSwitchIsRefusedUnderTheCommandsIds)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_LTE_DIAG, Answer(0x10015312, 41, 16));
        self.Send(CHANNEL_LTE_DIAG, Answer(0x10015315, 41, 16));
    });
    EXPECT_EQ(Client({"switch", "air", "1", "1", "event", "2", "1"}).enCode, CODE_REFUSED);
}

TEST(ClientCommands, NvWriteSendsTheDescriptor)
{
    CFakeAgent agent(Always(0));
    EXPECT_EQ(Client({"nv-write", "0x101", "8", "2", "0x1234"}).enCode, CODE_DONE);
    EXPECT_EQ(Client({"nv-write", "257", "8", "4", "5", "--bits", "3", "31"}).enCode, CODE_DONE);
    const auto requests = agent.Requests();
    EXPECT_EQ(requests[0].stHead.ulCmdId, 0x10015501U);
    EXPECT_EQ(requests[0].stHead.usPktType, 240);
    EXPECT_EQ(requests[0].params, Hex("01010000 01000000 08000000 00 02 00 00 34120000"));
    EXPECT_EQ(requests[1].params, Hex("01010000 01000000 08000000 01 04 03 1F 05000000"));
}

TEST(ClientCommands, AFailedNvReadIsAnsweredUnderTheWritesId)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_LTE_DIAG, Answer(0x10015501, 7, 0x0210, Hex("07000000 01000000")));
    });
    EXPECT_EQ(Client({"nv-read", "1"}).enCode, CODE_REFUSED);
    EXPECT_EQ(agent.Requests()[0].stHead.ulCmdId, 0x10015503U);
    EXPECT_EQ(agent.Requests()[0].params, Hex("01000000"));
}

TEST(ClientCommands, AnUnboundNvWriteIsRefusedUnderTheReadsId)
{
    CFakeAgent agent(
        [](CFakeAgent& self, const REQUEST&) { self.Send(CHANNEL_LTE_DIAG, Answer(0x10015503, 41, 240)); });
    EXPECT_EQ(Client({"nv-write", "1", "0", "2", "1"}).enCode, CODE_REFUSED);
}

TEST(ClientCommands, AtPrintsLinesUntilTheFinalOne)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_AT, Answer(34, 0, 240, Bytes(AsBytes("\r\n^RSSI: 20\r\n"))));
        self.Send(CHANNEL_AT, Answer(33, 0, 240, Bytes(AsBytes("\r\n8610"))));
        self.Send(CHANNEL_AT, Answer(33, 0, 240, Bytes(AsBytes("1234\r\n\r\nOK\r\n"))));
    });
    const OUTCOME stOutcome = Client({"at", "AT+CGSN"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    EXPECT_EQ(stOutcome.strOut, "* ^RSSI: 20\n86101234\nOK\n");
    EXPECT_EQ(agent.Requests()[0].stHead.ulCmdId, 33U);
    EXPECT_EQ(agent.Requests()[0].params, Bytes(AsBytes("AT+CGSN\r")));
}

TEST(ClientCommands, AtErrorIsFourAndSilenceThree)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST& stRequest) {
        if (stRequest.params.size() == 3)
            self.Send(CHANNEL_AT, Answer(33, 0, 240, Bytes(AsBytes("\r\n+CME ERROR: 10\r\n"))));
    });
    EXPECT_EQ(Client({"at", "AT"}).enCode, CODE_REFUSED);
    EXPECT_EQ(Client({"at", "ATX", "--timeout", "0.05"}).enCode, CODE_TIME_OUT);
}

TEST(ClientCommands, WatchEndsAfterItsCount)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST& stRequest) {
        self.Send(CHANNEL_LTE_DATA, Answer(stRequest.stHead.ulCmdId, 0, 240));
        self.Send(CHANNEL_LTE_DATA, Answer(0x31234, 5, 0x0201, Hex("01 00 0200 AABB")));
        self.Send(CHANNEL_LTE_DATA, Join(Answer(0x99, 0, 0x0203), Answer(0x9A, 0, 0x0203)));
    });
    const OUTCOME stOutcome = Client({"watch", "--bind", "1", "--count", "2", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    const auto indications = stOutcome.Events("indication");
    ASSERT_EQ(indications.size(), 2U);
    EXPECT_EQ(indications[0]["name"], "air");
    EXPECT_EQ(indications[0]["ack_field"], 5);
    EXPECT_EQ(indications[0]["mode"], 2);
    EXPECT_EQ(indications[0]["decoded"]["message_len"], 2);
    EXPECT_EQ(indications[0]["data"], "01000200AABB");
    EXPECT_EQ(indications[1]["id"], 0x99);
    EXPECT_EQ(stOutcome.Events("summary")[0]["bytes"], 50);
}

TEST(ClientCommands, WatchEndsAfterItsTime)
{
    CFakeAgent agent(Silence);
    const OUTCOME stOutcome = Client({"watch", "--for", "0.05", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    EXPECT_EQ(stOutcome.Events("summary")[0]["packets"], 0);
}

TEST(ClientCommands, GuStartsShowsAndStopsAReport)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST& stRequest) {
        if (stRequest.stHead.ulCmdId == 0x50000040)
            return self.Send(stRequest.enChannel, Answer(0x50000040, 0, 240));
        self.Send(CHANNEL_GU_CMD, Answer(0x0154E604, 0, 0x0154, Hex("00000000")));
        if (stRequest.params[0] == 1)
            self.Send(CHANNEL_GU_DATA, Answer(0x0154E605, 9, 0x0154, Hex("0100 1400 0300 0000")));
    });
    const OUTCOME stOutcome =
        Client({"gu", "cs-tx", "--modem", "1", "--period", "1000", "--count", "1", "--bind", "4", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE) << stOutcome.strErrors;
    const auto requests = agent.Requests();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_EQ(requests[0].enChannel, CHANNEL_GU_DATA); // both connections are bound before the start
    EXPECT_EQ(requests[1].enChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(requests[2].stHead.ulCmdId, 0xE603U);
    EXPECT_EQ(requests[2].stHead.usPktType, 84);
    EXPECT_EQ(requests[2].params, Hex("0100 E803"));
    EXPECT_EQ(requests[3].params, Hex("0000 E803"));
    EXPECT_EQ(stOutcome.Events("confirm").size(), 2U);
    ASSERT_EQ(stOutcome.Events("indication").size(), 1U);
    EXPECT_EQ(stOutcome.Events("indication")[0]["name"], "cs-tx, modem 1");
    EXPECT_EQ(stOutcome.Events("indication")[0]["sn"], 9);
    EXPECT_EQ(stOutcome.Events("indication")[0]["decoded"]["power"], 20);
}

TEST(ClientCommands, GuRefusedStartStopsNothing)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_GU_CMD, Answer(0x0154E501, 1, 0x0154, Hex("01000000")));
    });
    const OUTCOME stOutcome = Client({"gu", "radio", "--period", "750"});
    EXPECT_EQ(stOutcome.enCode, CODE_REFUSED);
    EXPECT_THAT(stOutcome.strErrors, HasSubstr("radio refused: 1"));
    EXPECT_EQ(agent.Requests().size(), 1U);
}

TEST(ClientCommands, AResultInThePayloadRefusesToo)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_GU_CMD, Answer(0x0154F519, 0, 0x0154, Hex("02000000")));
    });
    EXPECT_EQ(Client({"gu", "mac-d"}).enCode, CODE_REFUSED);
}

TEST(ClientCommands, GuStopOnlyStops)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_GU_CMD, Answer(0x0154B017, 0, 0x0154, Hex("00000000")));
    });
    EXPECT_EQ(Client({"gu", "lte-neighbour", "--stop"}).enCode, CODE_DONE); // confirmed under the GSM neighbours' id
    ASSERT_EQ(agent.Requests().size(), 1U);
    EXPECT_EQ(agent.Requests()[0].stHead.ulCmdId, 0xB060U);
    EXPECT_EQ(agent.Requests()[0].params, Hex("0002 F401"));
}

TEST(ClientCommands, GuQueryShowsTheValue)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_GU_CMD, Answer(0x010A80A6, 0, 0x010A, Hex("02000000")));
    });
    const OUTCOME stOutcome = Client({"gu", "mode", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    EXPECT_EQ(stOutcome.Events("confirm")[0]["decoded"]["mode"], 2);
    EXPECT_EQ(agent.Requests()[0].stHead.usPktType, 90);
    EXPECT_EQ(agent.Requests()[0].params, Hex("00000000"));
}

TEST(ClientCommands, AOneShotReportEndsByItself)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_GU_CMD, Answer(0x0154E574, 0, 0x0154, Hex("00000000")));
        self.Send(CHANNEL_GU_DATA, Answer(0x0154E575, 1, 0x0154, Hex("0102040305 000000")));
    });
    const OUTCOME stOutcome = Client({"gu", "0xE573", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    EXPECT_EQ(stOutcome.Events("indication")[0]["decoded"]["byte_4"], 4);
    EXPECT_EQ(agent.Requests().size(), 1U);
}

TEST(ClientCommands, AOneShotReportThatNeverComesIsThree)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_GU_CMD, Answer(0x0154E574, 0, 0x0154, Hex("00000000")));
    });
    EXPECT_EQ(Client({"gu", "pdp-qos", "--timeout", "0.05"}).enCode, CODE_TIME_OUT);
}

TEST(ClientCommands, StatStartsAndStopsAStatistic)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST& stRequest) {
        self.Send(CHANNEL_GU_CMD, Answer(0x0154F507, 0, 0x0154, Hex("00000000")));
        if (stRequest.params[0] == 1)
            self.Send(CHANNEL_GU_DATA,
                      Answer(0x0154F508, 1, 0x0154, Hex("02000000 0000C03F 00000040 00000000 00000000")));
    });
    const OUTCOME stOutcome = Client({"stat", "sir", "--period", "100", "--count", "1", "--json"});
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    const auto decoded = stOutcome.Events("indication")[0]["decoded"];
    EXPECT_EQ(decoded["carriers"][0]["sir_db"], 1.5);
    EXPECT_EQ(decoded["carriers"][0]["sir_target_db"], 2.0);
    ASSERT_EQ(agent.Requests().size(), 2U);
    EXPECT_EQ(agent.Requests()[0].stHead.ulCmdId, 62726U);
    EXPECT_EQ(agent.Requests()[0].params, Hex("0100 6400"));
    EXPECT_EQ(agent.Requests()[1].params, Hex("0000 6400"));
}

TEST(ClientCommands, MonitorAsksAndShowsWhatComes)
{
    CUniqueFd query(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(STATUS_QUERY_PORT);
    ASSERT_EQ(bind(query.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)), 0);
    Bytes asked;
    std::thread agent([&] {
        asked = ReceiveBytes(query, 1);
        SendUdp(STATUS_PORT, Hex("07 000000 0C000000 01000000 02000000 03000000"));
    });
    const OUTCOME stOutcome = Client({"monitor", "--for", "0.3", "--json"});
    agent.join();
    EXPECT_EQ(stOutcome.enCode, CODE_DONE);
    EXPECT_EQ(asked, Hex("00"));
    ASSERT_EQ(stOutcome.Events("agent_version").size(), 1U);
    EXPECT_EQ(stOutcome.Events("agent_version")[0]["version"], "1.2.3");
}

TEST(ClientCommands, MonitorNeedsItsPort)
{
    CUniqueFd taken(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(STATUS_PORT);
    ASSERT_EQ(bind(taken.Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)), 0);
    EXPECT_EQ(Client({"monitor", "--for", "0.1"}).enCode, CODE_NO_CONNECTION);
}

TEST(ClientCommands, TextThatIsNoUtf8StaysValidJson)
{
    CFakeAgent agent([](CFakeAgent& self, const REQUEST&) {
        self.Send(CHANNEL_AT, Answer(33, 0, 240, Join(Hex("FFFE"), Bytes(AsBytes("\r\nOK\r\n")))));
    });
    EXPECT_EQ(Client({"at", "AT", "--json"}).Events("at").size(), 2U);
}
