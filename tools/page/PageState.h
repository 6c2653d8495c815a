#pragma once

#include "page/LogLine.h"
#include "page/ModemTable.h"
#include "page/PacketStore.h"
#include "page/PageModel.h"
#include "page/PlotStore.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <string>

/// Packets or records that never came where they should.
struct PAGE_LOSS
{
    double dTime = 0;
    std::string strWhat;
    uint64_t ullCount = 0;
    std::optional<unsigned int> ue;
};

/// All that the page knows. Not safe from several threads: the model has it under a lock.
struct PAGE_STATE
{
    static constexpr size_t LOSSES_MOST = 20;
    static constexpr size_t LOG_LINES_MOST = 100;

    explicit PAGE_STATE(const CPageModel::SETTINGS& st) : stSettings(st), packets(st.szPacketBytes) {}

    /// Notes a loss; of a kind that goes on, the newest entry counts it.
    void NoteLoss(const PAGE_LOSS& stLoss);
    /// The latest time that is known, ns since 1970.
    uint64_t LatestTime() const { return std::max(ullLatest, static_cast<uint64_t>(dNow * 1000) * 1000); }

    CPageModel::SETTINGS stSettings;
    bool bConnected = false;
    TAP_HELLO stHello;    // of the last run
    uint64_t ullRuns = 0; // that were read
    uint64_t ullTick = 0;
    double dNow = 0;        // of the newest tick
    double dStart = 0;      // of the page
    uint64_t ullLatest = 0; // time of the newest record, ns
    CModemTable modems;
    CPlotStore plots;
    CPacketStore packets;

    std::deque<PAGE_LOSS> losses;       // newest first
    std::deque<PAGE_LOG_LINE> logLines; // newest first
    std::string strLogSource;

    // Counts since the start of the page.
    uint64_t ullTapLost = 0;
    uint64_t ullRunLost = 0;               // of ullTapLost, in this run
    std::array<uint64_t, 8> aullRecords{}; // by TAP_KIND
    std::array<uint64_t, 8> aullBytes{};
    std::array<uint64_t, 3> aullLogLines{};                                             // by LOG_LEVEL
    std::map<std::pair<std::string, std::string>, uint64_t> mapLogLosses;               // by reason, channel
    std::map<std::tuple<unsigned int, unsigned int, std::string>, uint64_t> mapRefused; // by UE, channel, result
};

/// "lte-data"; empty for no channel.
const char* ChannelName(uint8_t ucChannel);
/// "from-ue"; empty for what is no kind.
const char* KindName(TAP_KIND enKind);
