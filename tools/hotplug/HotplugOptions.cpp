#include "hotplug/HotplugOptions.h"

#include "common/Types.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <netdb.h>

namespace
{
constexpr const char* FOOTER =
    "Without --list, --once and --forget it runs until SIGTERM or SIGINT. The agent has to listen on this machine, in\n"
    "the same network namespace.\n"
    "Exit status: 0 done, 1 wrong usage, 2 the rules are wrong, 3 the agent isn't reached (--once), 4 udev or the "
    "state\n"
    "file can't be used";

/// False for what is no HOST:PORT with a known IPv4 host.
bool ParseAgent(const std::string& strAgent, sockaddr_in& stAgent)
{
    const size_t szColon = strAgent.rfind(':');
    const std::string strPort = szColon < strAgent.size() ? strAgent.substr(szColon + 1) : "";
    uint16_t usPort = 0;
    const char* const pEnd = strPort.data() + strPort.size();
    const auto stResult = std::from_chars(strPort.data(), pEnd, usPort);
    if (stResult.ec != std::errc() || stResult.ptr != pEnd || usPort == 0)
        return false;
    addrinfo stHints{};
    stHints.ai_family = AF_INET;
    addrinfo* pFound = nullptr;
    if (getaddrinfo(strAgent.substr(0, szColon).c_str(), nullptr, &stHints, &pFound) != 0)
        return false;
    std::copy_n(reinterpret_cast<const unsigned char*>(pFound->ai_addr), sizeof(stAgent),
                reinterpret_cast<unsigned char*>(&stAgent)); // AF_INET: it is a sockaddr_in
    freeaddrinfo(pFound);
    stAgent.sin_port = htons(usPort);
    return true;
}

void AddOptions(CLI::App& app, HOTPLUG_OPTIONS& stOptions)
{
    app.footer(FOOTER);
    app.add_option("--config", stOptions.strConfig, "rules: which port has which role")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_option("--state", stOptions.strState, "where the numbers of modems are kept")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_option("--agent", stOptions.strAgent, "the agent's port for device records")
        ->capture_default_str()
        ->type_name("HOST:PORT");
    CLI::Option* const pList = app.add_flag("--list", stOptions.bList, "show the ports that are there, and end");
    app.add_flag("--json", stOptions.bJson, "the list as JSON")->needs(pList);
    CLI::Option* const pOnce = app.add_flag("--once", stOptions.bOnce, "tell what is there now, and end");
    CLI::Option* const pDryRun =
        app.add_flag("--dry-run", stOptions.bDryRun, "only show what the agent would be told; keeps no numbers");
    app.add_flag("--verbose", stOptions.bVerbose, "tell of ports that no rule fits, too");
    CLI::Option* const pForget =
        app.add_option("--forget", stOptions.strForget, "give up the numbers of the modem with this path, and end")
            ->type_name("PATH");
    pList->excludes(pOnce)->excludes(pDryRun)->excludes(pForget);
    pForget->excludes(pOnce)->excludes(pDryRun);
}
} // namespace

std::optional<HOTPLUG_EXIT> ParseHotplugOptions(std::vector<std::string> args, HOTPLUG_OPTIONS& stOptions,
                                                std::ostream& out, std::ostream& errors)
{
    CLI::App app("Tells the agent which USB modems come and go", "vex-hotplug");
    stOptions.strAgent = "127.0.0.1:" + std::to_string(DEVICE_MONITOR_PORT);
    AddOptions(app, stOptions);
    try { // the parser reports by exceptions
        std::ranges::reverse(args);
        app.parse(args);
        if (!ParseAgent(stOptions.strAgent, stOptions.stAgent))
            throw CLI::ValidationError("--agent", "'" + stOptions.strAgent + "' is no HOST:PORT that is known");
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, errors) == 0 ? HOTPLUG_DONE : HOTPLUG_USAGE;
    }
    return std::nullopt;
}
