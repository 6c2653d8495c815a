#pragma once

#include "capture/PcapngWriter.h"
#include "support/TestBytes.h"
#include "support/VexProcess.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

/// What tshark shows of one packet: the values of each field in the order of the tree, the messages of expert infos
/// under "expert".
using DISSECTED = std::map<std::string, std::vector<std::string>>;

/// A capture file of records that a test makes, and the real tshark with the dissector of this build.
class CTshark
{
public:
    CTshark();

    /// Adds a record as the next frame, 1 ms behind the last one; gives the number of the frame, from 1 on. The
    /// record's number and time are set.
    unsigned int Add(TAP_RECORD stRecord, const Bytes& bytes, uint64_t ullLost = 0);
    /// The next record comes so much later.
    void Pass(std::chrono::seconds time) { m_ullTime += static_cast<uint64_t>(time.count()) * 1'000'000'000; }
    /// Another file than that of the records.
    void UseFile(const std::string& strPath) { m_strFile = strPath; }
    const std::string& File() const { return m_strFile; }

    /// Every packet of the file, by its frame number less 1; in two passes, so that requests know their answers.
    std::vector<DISSECTED> Packets();
    /// The numbers of the frames that a display filter lets pass.
    std::vector<unsigned int> Passing(const std::string& strFilter);
    /// "source | destination | protocol | info" of each packet.
    std::vector<std::string> Columns();
    /// Standard output with more arguments. Fails the test when tshark isn't there, doesn't end with status 0, or has
    /// anything to complain about: a Lua error leaves the status at 0.
    std::string Run(const std::vector<std::string>& args);

    /// What is wrong with a run's output; empty when nothing is.
    static std::string Complaint(const std::string& strOutput, const std::string& strErrors);

private:
    void WriteFile();

    CTempDir m_dir;
    std::string m_strFile;
    std::vector<unsigned char> m_vecFile;
    CPcapngWriter m_writer;
    unsigned int m_ulFrames = 0;
    uint64_t m_ullTime;  // ns, of the next record
    bool m_bOwn = false; // the records aren't written to the file yet
};

/// The values of a field, joined by ","; "-" when the packet doesn't have it.
std::string Values(const DISSECTED& packet, const std::string& strField);
