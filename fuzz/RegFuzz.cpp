#include "common/Config.h"
#include "data/gu/reg/RegisterManager.h"
#include "support/RegAddresses.h"

// Register confirmations and indications to a manager whose statistics all run. The input is steps of a byte for the
// kind and, behind most, a u16 length and its bytes: a whole message, or values for the list that was confirmed last.

namespace
{
enum STEP : unsigned char
{
    STEP_CNF,     // bytes: a confirmation
    STEP_IND,     // bytes: an indication
    STEP_SHARE,   // bytes: a share address
    STEP_FITTING, // bytes: values of an indication that fits the registers of all statistics
    STEP_MODE,    // next byte: the mode
    STEP_REQUEST, // next byte: which statistic; bytes: its parameters
    STEP_COUNT,
};

constexpr unsigned int WBBP = 0x50900000;
constexpr unsigned int WDSP_QUERY = 0x20000004;

constexpr size_t CNF_HEAD = 28;
constexpr size_t IND_HEAD = 52;

void Confirm(CRegisterManager& manager, const std::vector<unsigned int>& addrs)
{
    std::vector<unsigned char> msg(CNF_HEAD + 4 * addrs.size());
    StoreLe<uint16_t>(msg, 12, 62724);
    StoreLe<uint32_t>(msg, 24, static_cast<uint32_t>(addrs.size()));
    for (size_t i = 0; i < addrs.size(); ++i)
        StoreLe<uint32_t>(msg, CNF_HEAD + 4 * i, addrs[i]);
    manager.ProcessRegCnfMsg(msg);
}

/// Values cut or filled up with zeros to the count, at a time that the first two of them tell.
void Indicate(CRegisterManager& manager, ByteView values, size_t szCount)
{
    std::vector<unsigned char> msg(IND_HEAD + 4 * szCount);
    StoreLe<uint32_t>(msg, 8, LoadLe<uint32_t>(values, 0));
    StoreLe<uint16_t>(msg, 12, 0xF501);
    StoreLe<uint16_t>(msg, 50, static_cast<uint16_t>(szCount));
    CopyPadded(Slice(ByteSpan(msg), IND_HEAD), values);
    manager.ProcessRegIndMsg(msg);
}

void BringUp(CRegisterManager& manager)
{
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, WDSP_QUERY + 8);
    Confirm(manager, {WDSP_QUERY, WDSP_QUERY + 4});
    static constexpr unsigned char aucBase[] = {0, 0, 0, 0, 0, 0, 0, 0x30};
    Indicate(manager, aucBase, 2);
    static constexpr unsigned char aucStart[] = {1, 0, 100, 0};
    for (const REG_STAT_ROW& stRow : RegStatTable())
        manager.ProcessRegReqPacket(stRow.usReq, aucStart);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize)
{
    static const bool s_bSilent = [] {
        std::string strLine = "debuglevel=0"; // nobody reads the log's queue here
        return CConfig::Instance()->ParseLine(strLine);
    }();
    (void)s_bSilent;
    CRegisterManager manager(nullptr);
    BringUp(manager);
    static const std::vector<unsigned int> s_registers = AllRegisters(manager);
    CByteReader input(ByteView(pucData, szSize));
    const auto NextBytes = [&] {
        unsigned short usLen = 0;
        input.Field(usLen);
        const ByteView taken = input.Take(usLen % 8192);
        return std::vector<unsigned char>(taken.begin(), taken.end());
    };
    while (input.Left() > 0) {
        unsigned char ucStep = 0;
        unsigned char ucArg = 0;
        input.Field(ucStep);
        switch (ucStep % STEP_COUNT) {
        case STEP_CNF:
            manager.ProcessRegCnfMsg(NextBytes());
            break;
        case STEP_IND:
            manager.ProcessRegIndMsg(NextBytes());
            break;
        case STEP_SHARE:
            manager.RefreshWdspQueryAddr(NextBytes());
            break;
        case STEP_FITTING:
            Confirm(manager, s_registers);
            Indicate(manager, NextBytes(), s_registers.size());
            break;
        case STEP_MODE:
            input.Field(ucArg);
            (void)manager.ChangeRegListByMode(ucArg); // without a modem nobody asks
            break;
        default:
            input.Field(ucArg);
            manager.ProcessRegReqPacket(RegStatTable()[ucArg % RegStatTable().size()].usReq, NextBytes());
        }
    }
    return 0;
}
