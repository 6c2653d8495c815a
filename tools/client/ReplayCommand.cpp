#include "capture/Speed.h"
#include "client/Commands.h"
#include "client/ReplayPlayer.h"

namespace
{
constexpr size_t DIFFERENCES_SHOWN = 20;

/// Counts the differences of all clients and tells of the first ones.
class CVerdict
{
public:
    explicit CVerdict(CPrinter& printer) : m_printer(printer) {}

    void Take(const REPLAY_CLIENT& stClient, const std::vector<REPLAY_PACKET>& got)
    {
        m_szPackets += stClient.answers.size();
        for (const REPLAY_DIFFERENCE& stDifference : ComparePackets(stClient.enChannel, stClient.answers, got)) {
            if (m_szDifferences++ >= DIFFERENCES_SHOWN)
                continue;
            const std::string strClient = "client " + std::to_string(stClient.ulNumber) + " (" +
                                          CAPTURE_CHANNEL_NAMES[static_cast<size_t>(stClient.enChannel)] + ") ";
            const std::string strText = strClient + DifferenceText(stDifference, stClient.answers, got);
            m_printer.Print({{"event", "difference"},
                             {"client", stClient.ulNumber},
                             {"channel", CAPTURE_CHANNEL_NAMES[static_cast<size_t>(stClient.enChannel)]},
                             {"packet", stDifference.szExpected + 1},
                             {"text", strText}},
                            strText);
        }
    }

    EXIT_CODE Finish(size_t szClients)
    {
        std::string strText;
        if (m_szDifferences > DIFFERENCES_SHOWN)
            strText = "and " + std::to_string(m_szDifferences - DIFFERENCES_SHOWN) + " more\n";
        strText += std::to_string(szClients) + " clients, " + std::to_string(m_szPackets) + " packets, " +
                   std::to_string(m_szDifferences) + " differences\n";
        m_printer.Print(
            {{"event", "replayed"}, {"clients", szClients}, {"packets", m_szPackets}, {"differences", m_szDifferences}},
            strText);
        return m_szDifferences == 0 ? CODE_DONE : CODE_DIFFERENT;
    }

private:
    CPrinter& m_printer;
    size_t m_szPackets = 0;
    size_t m_szDifferences = 0;
};
} // namespace

EXIT_CODE RunReplay(const CONTEXT& stContext, const REPLAY_ARGS& stArgs)
{
    double dSpeed = 0;
    if (!ParseSpeed(stArgs.strSpeed, dSpeed))
        return stContext.Fail(CODE_USAGE, "--speed: expected a number above 0, or max");
    CReplayScript script;
    std::string strError;
    if (!script.Load(stArgs.strFile, strError))
        return stContext.Fail(CODE_USAGE, strError);
    if (script.Lost() > 0)
        stContext.errors << "vex-client: " << script.Lost() << " records are missing in the capture\n";
    CReplayPlayer player(stContext, script, dSpeed > 0 ? 1 / dSpeed : 0);
    if (const EXIT_CODE enCode = player.Run(stArgs.bNow); enCode != CODE_DONE)
        return enCode;
    CVerdict verdict(stContext.printer);
    for (size_t i = 0; i < script.Clients().size(); ++i)
        verdict.Take(script.Clients()[i], player.Got(i));
    return verdict.Finish(script.Clients().size());
}
