#include "wireshark/FieldTables.h"
#include "wireshark/LuaTables.h"

#include <cstdio>
#include <fstream>
#include <sstream>

// Makes the dissector: the programs' tables and the default layout of UE packets, then the dissector's own code.

namespace
{
/// The lines of a configuration file that describe packets.
std::string LayoutLines(std::istream& config)
{
    std::string strLines;
    for (std::string strLine; std::getline(config, strLine);)
        if (!strLine.starts_with('#') && strLine.find("_CHL_PACKET_") != std::string::npos)
            strLines += strLine + '\n';
    return strLines;
}
} // namespace

int main(int nCount, char** ppszArg)
{
    if (nCount != 4) {
        (void)std::fprintf(stderr, "usage: vex-wireshark-tables CONFIGURATION CODE OUTPUT\n");
        return 1;
    }
    std::ifstream config(ppszArg[1]);
    std::ifstream code(ppszArg[2]);
    const std::string strLayout = LayoutLines(config);
    std::ostringstream all;
    all << "-- Wireshark dissector of Vex captures: made by the build from the programs' tables and "
           "wireshark/vex.lua.\n"
        << "local T = {}\n";
    WriteFieldTables(all);
    all << "T.default_layout = " << LuaText(strLayout) << "\n\n" << code.rdbuf();
    std::ofstream out(ppszArg[3]);
    out << all.str();
    out.close();
    if (strLayout.empty() || !code || !out) {
        (void)std::fprintf(stderr, "vex-wireshark-tables: can't make %s from %s and %s\n", ppszArg[3], ppszArg[1],
                           ppszArg[2]);
        return 1;
    }
    return 0;
}
