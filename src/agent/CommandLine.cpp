#include "agent/CommandLine.h"

#include "common/ConfigCheck.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <getopt.h>

const char* const AGENT_USAGE = R"(usage: vex-agent [--config FILE]
       vex-agent --check-config [FILE]

Serves diagnostic clients and the modems under test. Without arguments the configuration is ./config/vex.cfg. The log
goes into the working folder.

  --config FILE          another configuration file
  --check-config [FILE]  names all that is wrong with the configuration, and ends: status 0 when nothing is, 1 with
                         warnings only, 2 with errors
  --version              shows the version
  --help                 shows this

SIGTERM and SIGINT end the agent in order.
)";

AGENT_COMMAND ParseCommandLine(int nArgs, char** ppszArgs)
{
    constexpr option OPTIONS[] = {
        {"config", required_argument, nullptr, 'c'},
        {"check-config", no_argument, nullptr, 'k'},
        {"version", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},
        {},
    };
    AGENT_COMMAND stCommand;
    for (int nOption = 0; (nOption = getopt_long(nArgs, ppszArgs, "h", OPTIONS, nullptr)) != -1;) {
        switch (nOption) {
        case 'c':
            stCommand.strConfig = optarg;
            break;
        case 'k':
            stCommand.enAction = AGENT_COMMAND::CHECK;
            break;
        case 'v':
            stCommand.enAction = AGENT_COMMAND::VERSION;
            return stCommand;
        case 'h':
            stCommand.enAction = AGENT_COMMAND::HELP;
            return stCommand;
        default:
            stCommand.enAction = AGENT_COMMAND::WRONG;
            return stCommand;
        }
    }
    if (stCommand.enAction == AGENT_COMMAND::CHECK && optind < nArgs)
        stCommand.strConfig = ppszArgs[optind++];
    if (optind < nArgs) {
        (void)std::fprintf(stderr, "%s: unexpected argument '%s'\n", ppszArgs[0], ppszArgs[optind]);
        stCommand.enAction = AGENT_COMMAND::WRONG;
    }
    return stCommand;
}

CHECK_STATUS CheckConfigFile(const std::string& strPath)
{
    const auto text = ReadConfigText(strPath);
    if (!text) {
        (void)std::fprintf(stderr, "%s: %s\n", strPath.c_str(), std::strerror(errno));
        return CHECK_ERRORS;
    }
    const std::vector<CONFIG_FINDING> findings = CheckConfig(*text);
    for (const CONFIG_FINDING& stFinding : findings)
        (void)std::printf("%s\n", FindingText(strPath, stFinding).c_str());
    if (std::ranges::any_of(findings, &CONFIG_FINDING::bError))
        return CHECK_ERRORS;
    return findings.empty() ? CHECK_CLEAN : CHECK_WARNINGS;
}
