#pragma once

#include "common/Wait.h"
#include "support/WaitFor.h"
#include "ue/LineWriter.h"
#include "ue/ReadSet.h"
#include "ue/UEManager.h"

#include <poll.h>

/// Opens a port as its UE does, but for the second in which the device settles.
inline bool OpenPort(CSerial& serial)
{
    const uint64_t ullOpening = serial.BeginOpen();
    return serial.OpenSerial(ullOpening) && serial.FinishOpen(ullOpening, [] {});
}

/// Reads once as the read thread does; false on a fault.
inline bool ReadPort(ILine& line)
{
    return line.ReadHandle() >= 0 && line.ReadBytes(line.ReadHandle());
}

/// Writes a packet as the write thread does, until it is written or given up.
inline void WritePacket(ILine& line, ByteView packet)
{
    CLineWriter writer;
    const std::shared_ptr<ILine> pLine(std::shared_ptr<ILine>(), &line);
    MSG_UE stMsg;
    stMsg.packet = CPacket::Copy(packet);
    writer.Put(std::move(stMsg));
    for (writer.Pump(pLine, std::chrono::steady_clock::now()); !writer.IsIdle();
         writer.Pump(pLine, std::chrono::steady_clock::now())) {
        pollfd stPoll{writer.WaitHandle(), POLLOUT, 0};
        const auto end = std::min(writer.Due(), std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
        if (PollFor({&stPoll, 1}, MsUntil(end)) > 0 && (stPoll.revents & POLLNVAL) != 0)
            writer.OnWaitFault();
    }
}

/// Waits until all that was begun with the ports is done.
inline bool PortsSettled(CUE& ue)
{
    return WaitFor([&] { return ue.Worker().IsIdle(); });
}
inline bool PortsSettled(CUEManager& manager)
{
    bool bSettled = true;
    for (UE_INDEX i = 0; i < MAXUENUM; ++i)
        bSettled = PortsSettled(*manager.GetUE(i)) && bSettled;
    return bSettled;
}
