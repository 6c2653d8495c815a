#include "e2e/Tshark.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

using nlohmann::json;

namespace
{
constexpr std::chrono::seconds RUN_LIMIT{60};
constexpr uint64_t FIRST_TIME = 1'700'000'000'000'000'000; // ns
constexpr uint64_t TIME_STEP = 1'000'000;

std::vector<std::string> Lines(const std::string& strText)
{
    std::vector<std::string> lines;
    std::istringstream in(strText);
    for (std::string strLine; std::getline(in, strLine);)
        lines.push_back(strLine);
    return lines;
}

/// Adds the fields of a part of the tree. tshark makes lists of fields that come more than once.
void Collect(DISSECTED& packet, const std::string& strKey, const json& value)
{
    if (value.is_array()) {
        for (const json& item : value)
            Collect(packet, strKey, item);
    } else if (value.is_object()) {
        for (const auto& [strInner, inner] : value.items())
            Collect(packet, strInner, inner);
    } else if (strKey == "_ws.expert.message") {
        packet["expert"].push_back(value.get<std::string>());
    } else {
        packet[strKey].push_back(value.get<std::string>());
    }
}
} // namespace

CTshark::CTshark() : m_strFile(m_dir.Path() + "/records.pcapng"), m_writer(m_vecFile), m_ullTime(FIRST_TIME)
{
    m_dir.Write("home/empty", "");
    m_writer.Begin({"lab7", 1, 2, FIRST_TIME}, "test");
}

unsigned int CTshark::Add(TAP_RECORD stRecord, const Bytes& bytes, uint64_t ullLost)
{
    stRecord.ullTime = m_ullTime;
    m_ullTime += TIME_STEP;
    stRecord.ullNumber = 100 + m_ulFrames;
    m_writer.Record(stRecord, bytes, ullLost);
    m_bOwn = true;
    return ++m_ulFrames;
}

void CTshark::WriteFile()
{
    if (!m_bOwn)
        return;
    std::ofstream file(m_strFile, std::ios::binary);
    file.write(reinterpret_cast<const char*>(m_vecFile.data()), static_cast<std::streamsize>(m_vecFile.size()));
    m_bOwn = false;
}

std::string CTshark::Complaint(const std::string& strOutput, const std::string& strErrors)
{
    for (const std::string& strLine : Lines(strErrors))
        if (!strLine.starts_with("Running as user \"root\""))
            return strLine;
    for (const char* const pszSign : {"Lua Error", "Dissector bug"})
        if (const size_t szAt = strOutput.find(pszSign); szAt != std::string::npos)
            return strOutput.substr(szAt, 200);
    return "";
}

std::string CTshark::Run(const std::vector<std::string>& args)
{
    WriteFile();
    std::vector<std::string> words = {"HOME=" + m_dir.Path() + "/home",           "tshark", "-X",
                                      std::string("lua_script:") + VEX_DISSECTOR, "-r",     m_strFile};
    words.insert(words.end(), args.begin(), args.end());
    CVexProcess tshark("/usr/bin/env", words, m_dir.Path());
    const std::optional<int> exit = tshark.WaitExit(RUN_LIMIT);
    EXPECT_NE(exit, 127) << "tshark isn't installed: scripts/setup";
    EXPECT_EQ(exit, 0) << tshark.Errors();
    std::string strOutput = tshark.Output();
    EXPECT_EQ(Complaint(strOutput, tshark.Errors()), "");
    return strOutput;
}

std::vector<DISSECTED> CTshark::Packets()
{
    std::vector<DISSECTED> packets;
    const json all =
        json::parse(Run({"-2", "-T", "json", "--no-duplicate-keys", "-J", "vex _ws.malformed"}), nullptr, false);
    EXPECT_TRUE(all.is_array()) << "no JSON from tshark";
    for (const json& one : all.is_array() ? all : json::array()) {
        packets.emplace_back();
        Collect(packets.back(), "", one["_source"]["layers"]);
    }
    return packets;
}

std::vector<unsigned int> CTshark::Passing(const std::string& strFilter)
{
    std::vector<unsigned int> frames;
    for (const std::string& strLine : Lines(Run({"-Y", strFilter, "-T", "fields", "-e", "frame.number"})))
        frames.push_back(static_cast<unsigned int>(std::stoul(strLine)));
    return frames;
}

std::vector<std::string> CTshark::Columns()
{
    std::vector<std::string> args = {"-T", "fields", "-E", "separator=|"};
    for (const char* const pszColumn : {"Source", "Destination", "Protocol", "Info"}) {
        args.push_back("-e");
        args.push_back(std::string("_ws.col.") + pszColumn);
    }
    return Lines(Run(args));
}

std::string Values(const DISSECTED& packet, const std::string& strField)
{
    const auto found = packet.find(strField);
    if (found == packet.end())
        return "-";
    std::string strAll;
    for (const std::string& strValue : found->second)
        strAll += (strAll.empty() ? "" : ",") + strValue;
    return strAll;
}
