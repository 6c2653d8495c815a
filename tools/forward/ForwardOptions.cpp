#include "forward/ForwardOptions.h"

#include "capture/CaptureLimits.h"
#include "fleet/FleetFormat.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <unistd.h>

namespace
{
constexpr const char* FOOTER =
    "It runs until SIGTERM or SIGINT, with or without a hub that can be reached, and goes on where it stopped.\n"
    "Exit status: 0 done, 1 wrong usage, 2 the spool or a certificate can't be used, 3 --check found a fault";
constexpr const char* DEFAULT_RATE = "8M"; // bytes a second: a tenth of what three servers on one machine took

std::string HostName()
{
    std::array<char, 256> szName{};
    (void)gethostname(szName.data(), szName.size() - 1); // stays empty
    const std::string strName = szName.data();
    return strName.substr(0, strName.find('.'));
}

void AddOptions(CLI::App& app, FORWARD_OPTIONS& stOptions, std::string& strRate)
{
    app.footer(FOOTER);
    app.add_option("--spool", stOptions.strSpool, "folder of vex-capture --spool")->required()->type_name("DIR");
    app.add_option("--bench", stOptions.strBench, "name of this bench at the hub, by default the host's")
        ->type_name("NAME");
    AddHubOptions(app, stOptions.stHub);
    app.add_option("--max-rate", strRate, "bytes a second to send at most; sizes end in K, M or G, 0: no limit")
        ->capture_default_str()
        ->type_name("SIZE");
    app.add_option("--state-every", stOptions.dStateEvery, "how often the bench's state is put")
        ->capture_default_str()
        ->check(CLI::Range(0.1, 3600.0))
        ->type_name("SECONDS");
    app.add_flag("--delete", stOptions.bDelete, "delete compressed segments once the hub has had all of them for 30 s");
    app.add_flag("--allow-requests", stOptions.bRequests, "let vex-fleet send client requests to the agent");
    app.add_option("--agent", stOptions.strAgentHost, "host of the agent, for these requests")
        ->capture_default_str()
        ->type_name("HOST");
    app.add_flag("--check", stOptions.bCheck, "say whether spool, connection and permissions are good, and end");
}

void Finish(FORWARD_OPTIONS& stOptions, const std::string& strRate)
{
    ROTATION stRate; // the same sizes
    if (strRate != "0" && (!ParseRotation(strRate, stRate) || stRate.ullBytes == 0))
        throw CLI::ValidationError("--max-rate", "'" + strRate + "' is no size (500K, 8M) and not 0");
    stOptions.ullMaxRate = stRate.ullBytes;
    if (stOptions.strBench.empty())
        stOptions.strBench = HostName();
    if (!IsBenchName(stOptions.strBench))
        throw CLI::ValidationError("--bench",
                                   "'" + stOptions.strBench + "' is no name: 1 to 64 letters, digits, '-' and '_'");
}
} // namespace

std::optional<FORWARD_EXIT> ParseForwardOptions(std::vector<std::string> args, FORWARD_OPTIONS& stOptions,
                                                std::ostream& out, std::ostream& errors)
{
    CLI::App app("Brings a bench's recorded traffic and state to the lab's hub", "vex-forward");
    std::string strRate = DEFAULT_RATE;
    AddOptions(app, stOptions, strRate);
    try { // the parser reports by exceptions
        std::ranges::reverse(args);
        app.parse(args);
        Finish(stOptions, strRate);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, errors) == 0 ? FORWARD_DONE : FORWARD_USAGE;
    }
    return std::nullopt;
}
