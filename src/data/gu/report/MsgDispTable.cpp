#include "data/gu/report/MsgDispTable.h"

#include "data/gu/report/MsgProcessGas.h"
#include "data/gu/report/MsgProcessGdsp.h"
#include "data/gu/report/MsgProcessGdspAmr.h"
#include "data/gu/report/MsgProcessNas.h"
#include "data/gu/report/MsgProcessTtf.h"
#include "data/gu/report/MsgProcessTtfTrace.h"

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
    {CreateProcessor<CGrmMntnInfoMsg>, {0xD006}, 0xD005, 0xD004, {130, 24}, // its ranges are in seconds
        {{{0xE549, 0xE54A, 0xE54B, 1, 2}, {0xE579, 0xE57A, 0xE57B}, {0xE586, 0xE587, 0xE588}}}, 1, 5, 1},
    {CreateProcessor<CGsmCellSnrMsg>, {0xE602}, 0xE601, 0xE600, {PID_G, 44},
        {{{0xE52C, 0xE52D, 0xE52E}, {0xE506, 0xE507, 0xE508}}}, 500, 2000},
    {CreateProcessor<CBaListMeasMsg>, {0xE605}, 0xE604, 0xE603, {PID_G, 44},
        {{{0xE529, 0xE52A, 0xE52B}, {0xE530, 0xE531, 0xE532}}}, 500, 2000},
    {CreateProcessor<CAmrSettingMsg>, {0xE608}, 0xE607, 0xE606, {PID_G, 44},
        {{{0xE589, 0xE58A, 0xE58B}}}, 500, 2000},
    {CreateProcessor<CAmrCodecUsageMsg>, {0xE60B}, 0xE60A, 0xE609, {PID_G, 44},
        {{{0xE58C, 0xE58D, 0xE58E}}}, 500, 2000},
    {CreateProcessor<CAmrCodecStatMsg>, {0xE60E}, 0xE60D, 0xE60C, {PID_G, 44},
        {{{0xE593, 0xE594, 0xE595}, {0xE590, 0xE591, 0xE592}}}, 500, 2000},
    {CreateProcessor<CCsTxInfoMsg>, {0xE611}, 0xE610, 0xE60F, {PID_G, 44},
        {{{0xE503, 0xE504, 0xE505}}}, 500, 2000},
    {CreateProcessor<CCsFerMsg>, {0xE614}, 0xE613, 0xE612, {PID_G, 44},
        {{{0xE509, 0xE50A, 0xE50B}}}, 500, 2000},
    {CreateProcessor<CGetCurrentDscMsg>, {0xE617}, 0xE616, 0xE615, {PID_G, 44},
        {{{0xE50C, 0xE50D, 0xE50E}}}, 500, 2000},
    {CreateProcessor<CGasRoadTestInfoMsg>, {0xA02E}, 0xA02D, 0xA02C, {128, 28},
        {{{0xE500, 0xE501, 0xE502}, {0xE536, 0xE537, 0xE538}, {0xE526, 0xE527, 0xE528}, {0xE51D, 0xE51E, 0xE51F},
          {0xE520, 0xE521, 0xE522}, {0xE523, 0xE524, 0xE525}, {0xE543, 0xE544, 0xE545}, {0xE510, 0xE511, 0xE512},
          {0xE513, 0xE514, 0xE515}, {0xE519, 0xE51B, 0xE51C}, {0xE533, 0xE534, 0xE535}}}, 500, 2000},
};

constexpr MSG_PROCESS_ROW g_astTraceProcess[] = {
    // The same columns; a trace has no confirm and no request of its own, and its PID is the traced one.
    {CreateProcessor<CPhpPacketDataIndMsg>, {0x7502}, NO_ID, NO_ID, {130, 24},
        {{{0xE57C, 0xE57D, 0xE57E}}}, 500, 2000},
    {CreateProcessor<CPsCipherMsg>, {0x1017}, NO_ID, NO_ID, {131, 26},
        {{{0xE516, 0xE517, 0xE518}}}, 60000, 120000, 60000},
    {CreateProcessor<CTraceLLCDlMsg>, {0x1013, 0x1016}, NO_ID, NO_ID, {131, 26},
        {{{0xE55C, 0xE55D, 0xE55E}}}, 500, 2000},
    {CreateProcessor<CTraceLLCUlMsg>, {0x1012, 0x1015}, NO_ID, NO_ID, {131, 26},
        {{{0xE559, 0xE55A, 0xE55B}}}, 500, 2000},
    {CreateProcessor<CTraceSNDCPDlMsg>, {0x1113, 0x1111}, NO_ID, NO_ID, {132, 27},
        {{{0xE556, 0xE557, 0xE558}}}, 500, 2000},
    {CreateProcessor<CTraceSNDCPUlMsg>, {0x1112, 0x1110}, NO_ID, NO_ID, {132, 27},
        {{{0xE553, 0xE554, 0xE555}}}, 500, 2000},
    {CreateProcessor<CTraceRLCDlMsg>, {0x1030, 0x1122}, NO_ID, NO_ID, {130, 24},
        {{{0xE563, 0xE564, 0xE565}}}, 500, 2000},
    {CreateProcessor<CTraceRLCUlMsg>, {0x1120, 0x1121}, NO_ID, NO_ID, {130, 24},
        {{{0xE560, 0xE561, 0xE562}}}, 500, 2000},
};
// clang-format on
} // namespace

std::span<const MSG_PROCESS_ROW> MsgProcessTable(unsigned int ulKind)
{
    if (ulKind == MSG_DISP_TRANS)
        return g_astTransProcess;
    if (ulKind == MSG_DISP_TRACE)
        return g_astTraceProcess;
    return {};
}
