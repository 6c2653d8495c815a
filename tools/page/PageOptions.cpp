#include "page/PageOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>

namespace
{
constexpr const char* FOOTER =
    "Beyond this machine the page is served with a token only: open http://HOST:PORT/?token=TOKEN once, or send\n"
    "'Authorization: Bearer TOKEN'.\n"
    "Exit status: 0 done, 1 wrong usage, 2 the address can't be listened on, or the page's files or certificates\n"
    "can't be read";
constexpr unsigned int LEAST_MIB = 1;
constexpr unsigned int MOST_MIB = 4096;

bool IsTokenLetter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.';
}

/// What the command line fills in, as text where the parser's own types don't fit.
class CPageLine
{
public:
    explicit CPageLine(PAGE_OPTIONS& stOptions)
        : m_app("Serves a page with live plots of an agent and its modems", "vex-page"), m_stOptions(stOptions)
    {
        m_app.footer(FOOTER);
        m_app.add_option("--listen", m_strListen, "address and port of the page (127.0.0.1:8280)")
            ->type_name("[ADDRESS:]PORT");
        m_app.add_option("--tap", m_stOptions.strTap, "socket of the agent's tap (TapSocket)")->capture_default_str();
        m_app.add_option("--log", m_stOptions.strLog, "log of the agent, as debugfilename names it")->type_name("FILE");
        m_app.add_flag("--control", m_stOptions.bControl, "allow viewers to start and stop reports and statistics");
        m_app.add_option("--agent", m_stOptions.strAgent, "host of the agent, for --control")
            ->capture_default_str()
            ->type_name("HOST");
        AddAccess();
        m_app.add_option("--memory", m_stOptions.ulMemoryMiB, "memory for the newest packets, in MiB")
            ->capture_default_str()
            ->check(CLI::Range(LEAST_MIB, MOST_MIB))
            ->type_name("MIB");
        m_app
            .add_option("--web", m_stOptions.strWeb, "folder of the page's files, by default that of the installation")
            ->type_name("DIR");
        AddFleet();
    }

    CLI::App& App() { return m_app; }

    /// What spans several options; throws what the parser throws.
    void Finish()
    {
        if (!m_strListen.empty()) {
            const auto address = ParsePageAddress(m_strListen);
            if (!address)
                throw CLI::ValidationError("--listen", "'" + m_strListen + "' is no port and no ADDRESS:PORT");
            m_stOptions.stAccess.stListen = *address;
        }
        FinishHosts();
        FinishToken();
    }

private:
    void AddAccess()
    {
        m_app.add_option("--host", m_hosts, "a further name under which the page is opened")
            ->delimiter(',')
            ->type_name("NAME,...");
        auto* const pToken = m_app
                                 .add_option("--token", m_strToken,
                                             "ask every viewer for this token; others on this "
                                             "machine can read it here")
                                 ->type_name("TEXT");
        m_app.add_option("--token-file", m_strTokenFile, "the token is the first line of this file")
            ->type_name("FILE")
            ->excludes(pToken);
    }

    /// Options of the tap's page and of the fleet's exclude each other.
    void AddFleet()
    {
        auto* const pFleet = m_app.add_flag("--fleet", m_stOptions.bFleet, "show the benches of a lab, not an agent");
        m_stOptions.stHub.strName = "vex-page";
        AddHubOptions(m_app, m_stOptions.stHub);
        for (const char* const pszTap : {"--tap", "--log", "--control", "--agent", "--memory"})
            pFleet->excludes(m_app.get_option(pszTap));
        for (const char* const pszHub : {"--servers", "--cert", "--key", "--ca"})
            m_app.get_option(pszHub)->needs(pFleet);
    }

    void FinishHosts()
    {
        for (const std::string& strName : m_hosts) {
            const std::string strHost = HostOf(strName);
            if (strHost.empty() || strHost.size() != strName.size())
                throw CLI::ValidationError("--host", "'" + strName + "' is no name of a machine");
            m_stOptions.stAccess.hosts.push_back(strHost);
        }
    }

    void FinishToken()
    {
        std::string& strToken = m_stOptions.stAccess.strToken;
        strToken = m_strToken;
        if (!m_strTokenFile.empty()) {
            std::ifstream file(m_strTokenFile);
            if (!std::getline(file, strToken))
                throw CLI::ValidationError("--token-file", m_strTokenFile + " can't be read, or is empty");
        }
        const bool bGiven = !strToken.empty() || !m_strTokenFile.empty() || m_app.count("--token") > 0;
        if (bGiven && (strToken.size() < LEAST_TOKEN || !std::ranges::all_of(strToken, IsTokenLetter)))
            throw CLI::ValidationError("--token", "a token has " + std::to_string(LEAST_TOKEN) +
                                                      " letters, digits or -_. at least; try: openssl rand -hex 16");
        if (!bGiven && !m_stOptions.stAccess.stListen.IsLocal())
            throw CLI::ValidationError("--listen", m_stOptions.stAccess.stListen.Text() +
                                                       " is reached from other machines: give --token-file or --token");
    }

    CLI::App m_app;
    PAGE_OPTIONS& m_stOptions;
    std::string m_strListen;
    std::vector<std::string> m_hosts;
    std::string m_strToken;
    std::string m_strTokenFile;
};
} // namespace

std::optional<PAGE_EXIT> ParsePageOptions(std::vector<std::string> args, PAGE_OPTIONS& stOptions, std::ostream& out,
                                          std::ostream& errors)
{
    CPageLine line(stOptions);
    try { // the parser reports by exceptions
        std::ranges::reverse(args);
        line.App().parse(args);
        line.Finish();
    } catch (const CLI::ParseError& error) {
        return line.App().exit(error, out, errors) == 0 ? PAGE_DONE : PAGE_USAGE;
    }
    return std::nullopt;
}
