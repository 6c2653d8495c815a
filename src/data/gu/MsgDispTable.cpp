#include "data/gu/MsgDispTable.h"

#include "data/gu/MsgProcessNas.h"

// The one place that knows which processors there are, and their ids. All ids are those of modem 0: modem 1 has
// packet ids 0x100 higher, and its UE messages are told apart by the modem in bit 16 of the key.

namespace
{
// clang-format off
constexpr MSG_PROCESS_ROW g_astTransProcess[] = {
    // Class, indications, confirm, UE request, PID of modem 0 and 1,
    //   packets (request, confirm, report, and their own range of periods where they have one),
    //   range of periods, default period (500 unless given)
    {CreateProcessor<CGPRSStatusNasMsg>, {0xC002}, NO_ID, 0xC001, {141, 30},
        {{{0xE546, 0xE547, 0xE548}}}, 0, 0},
    {CreateProcessor<CGPRSDataNasMsg>, {0xC00D}, 0xC00C, 0xC00B, {152, 40},
        {{{0xE550, 0xE551, 0xE552}, {0xE569, 0xE56A, 0xE56B}, {0xE583, 0xE584, 0xE585}}}, 1000, 2000, 1000},
    {CreateProcessor<CGPRSPdpContextNasMsg>, {0xC006}, NO_ID, 0xC005, {145, 38},
        {{{0xE570, 0xE571, 0xE572}}}, 0, 0},
    {CreateProcessor<CGPRSPdpContextQosNasMsg>, {0xC004}, NO_ID, 0xC003, {145, 38},
        {{{0xE573, 0xE574, 0xE575}}}, 0, 0},
};
// clang-format on
} // namespace

std::span<const MSG_PROCESS_ROW> MsgProcessTable(unsigned int ulKind)
{
    if (ulKind == MSG_DISP_TRANS)
        return g_astTransProcess;
    return {};
}
