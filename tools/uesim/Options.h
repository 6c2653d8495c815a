#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>

/// Classes of LTE indications that the simulator can stream.
enum LTE_CLASS
{
    LTE_CLASS_DSP,
    LTE_CLASS_AIR,
    LTE_CLASS_IMS,
    LTE_CLASS_LAYER,
    LTE_CLASS_EVENT,
    LTE_CLASS_USER,
    LTE_CLASS_MEAS,
    LTE_CLASS_TDS,
    LTE_CLASS_DROPPED,
    LTE_CLASS_DPI,
    LTE_CLASS_OTHER,
    LTE_CLASS_COUNT,
};
inline constexpr std::array<const char*, LTE_CLASS_COUNT> LTE_CLASS_NAMES = {
    "dsp", "air", "ims", "layer", "event", "user", "meas", "tds", "dropped", "dpi", "other"};
using LTE_MIX = std::array<unsigned int, LTE_CLASS_COUNT>; // weight of each class

/// Everything that the command line says.
struct UESIM_OPTIONS
{
    unsigned int ulUes = 1;
    std::string strDir;
    std::string strConfig = "config/vex.cfg";
    std::string strAttachHost; // empty: no device monitor records
    bool bNetwork = false;
    uint32_t ulFirstPort = 1; // number of the first port of UE 0; a UE's ports start at 100 times its index further on
    double dRunFor = 0;       // seconds, 0: until a signal
    std::string strLog;
    bool bVerbose = false;
    bool bQuiet = false;
    bool bJson = false;

    std::string strReplay; // capture file that the modems play; empty: none
    double dSpeed = 1;     // of the replay; 0: as fast as possible
    bool bLoop = false;    // from the start again, until a signal

    unsigned int ulConnectPayload = 320; // bytes of the host connect confirmation's payload
    uint32_t ulConnectId = 0x10065000;
    unsigned int ulConnectDelay = 0;   // ms from the host connect to its confirmation
    std::set<uint32_t> silent;         // LTE commands that get no answer
    std::map<uint32_t, uint32_t> fail; // result code that an LTE command's ack carries
    unsigned int ulAtInterval = 0;     // ms between unsolicited AT lines, 0: none

    bool bLteStream = false;
    double dLteRate = 0;         // indications a second and UE, 0: as fast as the line takes them
    unsigned int ulLteSize = 64; // bytes of payload where the class leaves the choice
    LTE_MIX lteMix = {4, 2, 1, 4, 2, 2, 1, 1, 1, 1, 1};
    uint64_t ullLteCount = 0; // indications a UE, 0: no end
    bool bLteStartOnSwitch = false;
    uint32_t ulLteDspId = 0x30100001;

    unsigned int ulGuMode = 2; // form of the heads between GU frames
    std::string strGuVersion;  // empty: one that fits the mode
    std::string strGuType = "ASIC";
    bool bDualCard = false;
    unsigned int ulGuRat = 1;        // value of the mode answer
    unsigned int ulGuInterval = 500; // ms between indications of a running GU report
    unsigned int ulGuPack = 1;       // GU frames a block
    bool bGuAll = false;             // reports run without a request
    unsigned int ulRegInterval = 10; // ms between register indications
};

/// Reads the command line. True when the program is to run; otherwise it ends with the status, and what there was
/// to say (help, version, an error) has been said.
bool ParseOptions(int nArgs, char** ppszArgs, UESIM_OPTIONS& stOptions, int& nStatus);

/// "air=2,event=1" to weights; classes that aren't named get 0. False for an unknown class or a bad number.
bool ParseMix(const std::string& strText, LTE_MIX& mix);
