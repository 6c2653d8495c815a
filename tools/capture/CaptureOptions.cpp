#include "capture/CaptureOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace
{
constexpr const char* FOOTER =
    "One of -w, --spool and --live says where the records go. The configuration is always kept, and events are unless\n"
    "--direction leaves them out. Sizes end in K, M, G or T (powers of 1024), times in s, m, h or d.\n"
    "Exit status: 0 done, 1 wrong usage, 2 a file can't be written";
constexpr std::chrono::minutes SPOOL_TIME{5};
constexpr uint64_t SPOOL_BYTES = 64 * 1024 * 1024;

/// The slots of UEs, as names.
std::vector<std::string> UeNames()
{
    std::vector<std::string> names;
    for (unsigned int i = 0; i < MAXUENUM; ++i)
        names.push_back(std::to_string(i));
    return names;
}

template <class Names> std::string ListOf(const Names& names)
{
    std::string strList;
    for (const std::string_view strName : names)
        if (!strName.empty())
            strList.append(strList.empty() ? "" : ", ").append(strName);
    return strList;
}

/// Sets the bit of each name; a name that isn't there is an error that lists the names. Empty ones, as Wireshark's
/// dialogs leave them, say nothing.
template <class Names, size_t SIZE>
void SetNames(const std::vector<std::string>& given, const Names& names, std::bitset<SIZE>& set,
              const std::string& strOption)
{
    for (const std::string& strName : given) {
        if (strName.empty())
            continue;
        const auto found = std::ranges::find(names, strName);
        if (found == names.end())
            throw CLI::ValidationError(strOption, "'" + strName + "' is none of " + ListOf(names));
        set.set(static_cast<size_t>(found - names.begin()));
    }
}

/// What the command line fills in, as text where the parser's own types don't fit.
class CCaptureLine
{
public:
    explicit CCaptureLine(CAPTURE_OPTIONS& stOptions)
        : m_app("Records the whole traffic of an agent as pcapng", "vex-capture"), m_stOptions(stOptions)
    {
        m_app.footer(FOOTER);
        AddPlaces();
        AddFilter();
        AddExtcap();
    }

    CLI::App& App() { return m_app; }

    /// What spans several options; throws what the parser throws.
    void Finish()
    {
        SetNames(m_ues, UeNames(), m_stOptions.stFilter.ues, "--ue");
        SetNames(m_channels, CAPTURE_CHANNEL_NAMES, m_stOptions.stFilter.channels, "--channel");
        SetNames(m_kinds, CAPTURE_KIND_NAMES, m_stOptions.stFilter.kinds, "--direction");
        FinishLimits();
        FinishExtcap();
        FinishPlaces();
    }

private:
    void AddPlaces()
    {
        m_app.add_option("--tap", m_stOptions.strTap, "socket of the agent's tap (TapSocket)")->capture_default_str();
        m_app.add_option("-w", m_stOptions.strFile, "write to this file; - is --live")->type_name("FILE.pcapng");
        m_app
            .add_option("--spool", m_stOptions.strSpool,
                        "write segments to this folder, by default of 64M or 5m, the closed ones compressed")
            ->type_name("DIR");
        m_app.add_flag("--live", m_stOptions.bLive, "write to standard output, for wireshark -k -i -");
        m_app.add_option("--rotate", m_strRotate, "begin a new file at this size or after this time")
            ->type_name("SIZE|TIME");
        m_app.add_option("--keep", m_strKeep, "delete the oldest files beyond this size in all, or this count")
            ->type_name("SIZE|N");
        m_app.add_flag("--compress", m_stOptions.bCompress, "compress files with zstd once they are closed");
        m_app.add_option("--bench", m_stOptions.strBench, "name of the bench in the file, by default the agent's host");
        m_app.add_option("--for", m_stOptions.seconds, "end after so many seconds")
            ->check(CLI::Range(0.0, 1e9))
            ->type_name("SECONDS");
        m_app
            .add_option("--count", m_stOptions.count,
                        "end after so many records, without those that say what was "
                        "there at the start")
            ->check(CLI::Range(uint64_t{1}, UINT64_MAX))
            ->type_name("N");
    }

    void AddFilter()
    {
        m_app.add_option("--ue", m_ues, "only these UEs, by slot: 0,3")->delimiter(',')->type_name("N,...");
        m_app.add_option("--channel", m_channels, "only these channels: " + ListOf(CAPTURE_CHANNEL_NAMES))
            ->delimiter(',')
            ->type_name("NAME,...");
        m_app.add_option("--direction", m_kinds, "only these kinds of records: " + ListOf(CAPTURE_KIND_NAMES))
            ->delimiter(',')
            ->type_name("NAME,...");
    }

    void AddExtcap()
    {
        const std::string strGroup = "As Wireshark's capture program";
        m_app.add_flag("--extcap-interfaces", m_bInterfaces, "list the interface")->group(strGroup);
        m_app.add_option("--extcap-version", m_strIgnored, "version of Wireshark")->group(strGroup);
        m_app.add_option("--extcap-interface", m_stOptions.strExtcapInterface, "the interface")->group(strGroup);
        m_app.add_flag("--extcap-dlts", m_bDlts, "show its link type")->group(strGroup);
        m_app.add_flag("--extcap-config", m_bConfig, "show its options")->group(strGroup);
        m_app.add_option("--extcap-capture-filter", m_strIgnored, "not supported; ignored")->group(strGroup);
        m_app.add_flag("--capture", m_bCapture, "capture to the fifo")->group(strGroup);
        m_app.add_option("--fifo", m_stOptions.strFifo, "where to write")->group(strGroup);
    }

    void FinishLimits()
    {
        if (!m_strRotate.empty() && !ParseRotation(m_strRotate, m_stOptions.stRotation))
            throw CLI::ValidationError("--rotate", "'" + m_strRotate + "' is no size (100M) and no time (10m)");
        if (!m_strKeep.empty() && !ParseKeep(m_strKeep, m_stOptions.stKeep))
            throw CLI::ValidationError("--keep", "'" + m_strKeep + "' is no size (2G) and no count of files (20)");
        if (m_stOptions.strSpool.empty())
            return;
        m_stOptions.bCompress = true;
        if (!m_stOptions.stRotation.IsOn())
            m_stOptions.stRotation = {SPOOL_BYTES, SPOOL_TIME};
    }

    void FinishExtcap()
    {
        const std::pair<bool, EXTCAP> asked[] = {{m_bInterfaces, EXTCAP::INTERFACES},
                                                 {m_bDlts, EXTCAP::DLTS},
                                                 {m_bConfig, EXTCAP::CONFIG},
                                                 {m_bCapture, EXTCAP::CAPTURE}};
        for (const auto& [bAsked, enWhat] : asked)
            if (bAsked)
                m_stOptions.enExtcap = enWhat;
        if (m_stOptions.enExtcap == EXTCAP::CAPTURE && m_stOptions.strFifo.empty())
            throw CLI::ValidationError("--capture", "--fifo is missing");
    }

    void FinishPlaces()
    {
        if (m_stOptions.enExtcap != EXTCAP::NO)
            return;
        if (m_stOptions.strFile == "-") {
            m_stOptions.strFile.clear();
            m_stOptions.bLive = true;
        }
        const int nPlaces =
            int{!m_stOptions.strFile.empty()} + int{!m_stOptions.strSpool.empty()} + int{m_stOptions.bLive};
        if (nPlaces != 1)
            throw CLI::ValidationError("Where to", "give one of -w FILE, --spool DIR and --live");
        if (m_stOptions.bLive && (m_stOptions.stRotation.IsOn() || m_stOptions.bCompress))
            throw CLI::ValidationError("--live", "goes with neither --rotate nor --compress");
        if (m_stOptions.stKeep.IsOn() && !m_stOptions.stRotation.IsOn())
            throw CLI::ValidationError("--keep", "goes with --rotate or --spool only");
    }

    CLI::App m_app;
    CAPTURE_OPTIONS& m_stOptions;
    std::vector<std::string> m_ues;
    std::vector<std::string> m_channels;
    std::vector<std::string> m_kinds;
    std::string m_strRotate;
    std::string m_strKeep;
    std::string m_strIgnored;
    bool m_bInterfaces = false;
    bool m_bDlts = false;
    bool m_bConfig = false;
    bool m_bCapture = false;
};
} // namespace

std::optional<CAPTURE_EXIT> ParseCaptureOptions(std::vector<std::string> args, CAPTURE_OPTIONS& stOptions,
                                                std::ostream& out, std::ostream& errors)
{
    CCaptureLine line(stOptions);
    try { // the parser reports by exceptions
        std::ranges::reverse(args);
        line.App().parse(args);
        line.Finish();
    } catch (const CLI::ParseError& error) {
        return line.App().exit(error, out, errors) == 0 ? CAPTURE_DONE : CAPTURE_USAGE;
    }
    return std::nullopt;
}
