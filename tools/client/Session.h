#pragma once

#include "client/Connection.h"
#include "client/Printer.h"
#include "common/Types.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>

/// Exit status of the program.
enum EXIT_CODE : int
{
    CODE_DONE = 0,
    CODE_USAGE = 1,
    CODE_NO_CONNECTION = 2, // none to begin with, or the agent ended it
    CODE_TIME_OUT = 3,
    CODE_REFUSED = 4,   // ulRc isn't 0
    CODE_DIFFERENT = 5, // a replay's answers aren't the recorded ones
};

/// What the user chose for every command.
struct CLIENT_OPTIONS
{
    std::string strHost = "127.0.0.1";
    bool bJson = false;
    double dTimeout = 5;                  // seconds, for connecting and for each answer
    std::optional<unsigned int> bindPort; // port of the UE to bind to first
};

/// Where a command writes to.
struct CONTEXT
{
    CLIENT_OPTIONS stOptions;
    CPrinter& printer;
    std::ostream& errors;

    EXIT_CODE Fail(EXIT_CODE enCode, const std::string& strReason) const
    {
        errors << "vex-client: " << strReason << '\n';
        return enCode;
    }
};

/// The point in time that lies dSeconds ahead; never, for none.
Clock::time_point After(double dSeconds);
Clock::time_point After(const std::optional<double>& seconds);

/// One connection to a channel of the agent, bound if the user asks so. Failures are told on the error stream.
class CSession
{
public:
    CSession(const CONTEXT& stContext, enChannelType enChannel) : m_stContext(stContext), m_enChannel(enChannel) {}

    /// Connects, and binds when a port is given.
    [[nodiscard]] EXIT_CODE Open();
    [[nodiscard]] EXIT_CODE Send(uint32_t ulCmdId, uint16_t usPktType, ByteView params);
    /// Waits for the answer, told by its id; what comes before it is printed as unsolicited. CODE_REFUSED when its ulRc
    /// isn't 0. The hint goes into the message of a time-out.
    [[nodiscard]] EXIT_CODE Await(const std::function<bool(uint32_t)>& isAnswer, PACKET& stAck,
                                  const std::string& strHint = "");
    /// Sends a request and waits for the answer with its id.
    [[nodiscard]] EXIT_CODE Ask(uint32_t ulCmdId, uint16_t usPktType, ByteView params, PACKET& stAck);
    [[nodiscard]] EXIT_CODE Bind(unsigned int ulPort, PACKET& stAck);

    CConnection& Connection() { return m_connection; }
    /// Prints a packet that nobody waits for: a status record, a late ack. As text, status records that come during
    /// a bind are kept for its end: the agent has told of its own binding before.
    void PrintUnsolicited(const PACKET& stPacket);
    EXIT_CODE Lost() const;

private:
    bool IsGu() const { return m_enChannel == CHANNEL_GU_CMD || m_enChannel == CHANNEL_GU_DATA; }
    const char* Label() const { return strChannelType[static_cast<size_t>(m_enChannel)]; }
    Clock::time_point Deadline() const { return After(m_stContext.stOptions.dTimeout); }

    const CONTEXT& m_stContext;
    enChannelType m_enChannel;
    CConnection m_connection;
    bool m_bBinding = false;
    std::string m_strStatusLine; // the last one of a bind
};
