#pragma once

#include <string>

/// What the agent was asked to do.
struct AGENT_COMMAND
{
    enum ACTION
    {
        RUN,
        HELP,
        VERSION,
        CHECK, // the configuration, and nothing else
        WRONG, // a usage error, which has been told
    };

    ACTION enAction = RUN;
    std::string strConfig = "./config/vex.cfg";
};

/// Reads the command line; what getopt finds wrong is on standard error.
AGENT_COMMAND ParseCommandLine(int nArgs, char** ppszArgs);

extern const char* const AGENT_USAGE;

/// Exit status of a check.
enum CHECK_STATUS
{
    CHECK_CLEAN = 0,
    CHECK_WARNINGS = 1,
    CHECK_ERRORS = 2, // also a file that can't be read
};
/// Prints what is wrong with the configuration file.
CHECK_STATUS CheckConfigFile(const std::string& strPath);
