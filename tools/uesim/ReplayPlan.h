#pragma once

#include "capture/PcapngReader.h"
#include "common/Config.h"
#include "uesim/ReplayNames.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// What a capture says of its modems, made ready to be played again. All times are ns since the first record.

/// A request of the agent.
struct REPLAY_REQUEST
{
    enSerialType enPort;
    std::string strName;
    uint64_t ullTime;
    size_t szSteps;         // packets of the modem that came before it
    bool bAnswered = false; // a packet waits for it
};

/// A packet of the modem.
struct REPLAY_STEP
{
    enSerialType enPort;
    uint64_t ullTime;
    std::vector<unsigned char> packet;
    std::vector<size_t> requests; // that it answers; none: the modem sent it by itself
};

/// A port that comes or goes.
struct REPLAY_EVENT
{
    enSerialType enPort;
    bool bArrives;
    uint32_t ulNumber; // of the port
    uint64_t ullTime;  // when the device monitor told of it
    size_t szSteps;    // packets of the modem that came before it
};

struct REPLAY_UE
{
    unsigned int ulSlot = 0;
    std::string strGroup;                                 // the address of the network UE
    std::array<std::optional<uint32_t>, SERIALNUM> ports; // first number of each port that it ever had
    std::array<bool, SERIALNUM> present{};                // at the start
    bool bConfirmed = false;                              // at the start: its host connect isn't in the capture
    std::string strImei;                                  // then also what it said of itself
    std::string strVersion;
    std::vector<REPLAY_STEP> steps; // in the order of the capture, as the others
    std::vector<REPLAY_REQUEST> requests;
    std::vector<REPLAY_EVENT> events;
};

/// Walks the records of a capture and finds for each packet of a modem which request it answers: the earliest one of
/// its UE, port and id that isn't answered yet. The lines of an AT port belong to the command before them.
class CReplayPlan
{
public:
    CReplayPlan();
    ~CReplayPlan();

    /// Reads a whole file. False, with what is wrong, when it is none or has nothing to play.
    bool Load(const std::string& strPath, std::string& strError);
    void Add(const CAPTURED_RECORD& stRecord);

    const std::map<unsigned int, REPLAY_UE>& Ues() const { return m_ues; } // by slot
    /// The agent's configuration, with the layout of the packets.
    const CConfig& Config() const { return m_config; }
    uint64_t Lost() const { return m_ullLost; } // records that the capture misses
    uint64_t Cut() const { return m_ullCut; }   // packets that it has the beginning of
    bool IsCutFile() const { return m_bCutFile; }
    uint64_t End() const { return m_ullEnd; } // time of the last record

private:
    struct STATE; // of a UE while its records are walked
    void OnEvent(const TAP_RECORD& stHead, ByteView bytes);
    void OnChannel(const TAP_RECORD& stHead, ByteView bytes);
    void OnUe(const TAP_RECORD& stHead, ByteView bytes);
    void OnToUe(const TAP_RECORD& stHead, ByteView bytes);
    void OnFromUe(const TAP_RECORD& stHead, ByteView bytes);
    std::vector<size_t> Answered(const STATE& stState, REPLAY_UE& stUe, enSerialType enPort, ByteView bytes);
    REPLAY_UE& Ue(const TAP_RECORD& stHead);
    STATE& State(const TAP_RECORD& stHead);
    uint64_t TimeOf(const TAP_RECORD& stHead) const;

    CConfig m_config;
    CReplayNames m_names;
    std::map<unsigned int, REPLAY_UE> m_ues;
    std::map<unsigned int, STATE> m_states;
    std::optional<uint64_t> m_start; // CLOCK_REALTIME of the first record
    bool m_bConfigured = false;
    bool m_bPicture = true; // nothing but the picture of what was came so far
    uint64_t m_ullLost = 0;
    uint64_t m_ullCut = 0;
    bool m_bCutFile = false;
    uint64_t m_ullEnd = 0;
};
