#include "wireshark/FieldTables.h"
#include "wireshark/LuaTables.h"

#include <cstdio>
#include <fstream>
#include <string>

// Makes the dissector: the programs' tables and the default layout of UE packets, then its code.

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
    if (nCount < 4) {
        (void)std::fprintf(stderr, "usage: vex-wireshark-tables CONFIGURATION OUTPUT CODE...\n");
        return 1;
    }
    std::ifstream config(ppszArg[1]);
    const std::string strLayout = LayoutLines(config);
    std::ofstream out(ppszArg[2]);
    out << "-- Wireshark dissector of Vex captures: made by the build from the programs' tables and wireshark/*.lua.\n"
        << "local T = {}\n";
    WriteFieldTables(out);
    out << "T.default_layout = " << LuaText(strLayout) << "\n";
    bool bRead = !strLayout.empty();
    for (int i = 3; i < nCount; ++i) {
        std::ifstream code(ppszArg[i]);
        out << "\n" << code.rdbuf();
        bRead = bRead && code;
    }
    out.close();
    if (!bRead || !out) {
        (void)std::fprintf(stderr, "vex-wireshark-tables: can't make %s of its parts\n", ppszArg[2]);
        return 1;
    }
    return 0;
}
