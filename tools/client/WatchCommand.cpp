#include "client/Commands.h"

#include "client/Names.h"
#include "client/Rate.h"
#include "client/Stop.h"

namespace
{
void PrintIndication(CPrinter& printer, const PACKET& stPacket, const WATCH_ARGS& stArgs)
{
    PACKET_NOTE stNote{.pszEvent = "indication", .strName = IndicationKindName(stPacket.stHead.usPktType)};
    stNote.pszRcName = "ack_field";
    stNote.bHexDump = stArgs.bHex;
    stNote.szListItems = 2; // enough to see what moves; --json has them all
    if (const auto* pstLayout = IndicationLayout(stPacket.stHead.usPktType, stPacket.payload.size())) {
        stNote.strTypeName = pstLayout->pszName;
        stNote.decoded = Decode(*pstLayout, stPacket.payload);
    }
    printer.Packet(stPacket, stNote);
}
} // namespace

EXIT_CODE RunWatch(const CONTEXT& stContext, const WATCH_ARGS& stArgs)
{
    CSession session(stContext, CHANNEL_LTE_DATA);
    if (const EXIT_CODE enCode = session.Open(); enCode != CODE_DONE)
        return enCode;
    const auto end = After(stArgs.stLimits.seconds);
    CRate rate;
    for (;;) {
        for (PACKET stPacket; session.Connection().Next(stPacket);) {
            if (!stArgs.bQuiet)
                PrintIndication(stContext.printer, stPacket, stArgs);
            rate.Count(stPacket.payload.size());
            if (stArgs.stLimits.count && rate.Packets() >= *stArgs.stLimits.count) {
                rate.PrintTotal(stContext.printer, session.Connection().Skipped());
                return CODE_DONE;
            }
        }
        rate.PrintIfDue(stContext.printer);
        stContext.printer.Flush();
        if (StopRequested() || Clock::now() >= end)
            break;
        const int nFd = session.Connection().Fd();
        WaitReadable({&nFd, 1}, std::min(end, rate.NextPrint()));
        if (!session.Connection().Pump())
            return session.Lost();
    }
    rate.PrintTotal(stContext.printer, session.Connection().Skipped());
    return CODE_DONE;
}
