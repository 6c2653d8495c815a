#pragma once

#include "common/Types.h"
#include "ue/LineWriter.h"

#include <array>
#include <functional>
#include <memory>
#include <poll.h>
#include <vector>

/// The work of the write thread: takes packets off the queue, and lets each line have them as it takes them. One poll
/// waits for all lines, due times and new packets.
class CWriteLoop
{
public:
    /// The line that carries what goes to a port or link of a UE; null when there is none.
    using CLineOf = std::function<std::shared_ptr<ILine>(UE_INDEX ulUeIdx, enSerialType enPort)>;

    explicit CWriteLoop(CLineOf fnLineOf) : m_fnLineOf(std::move(fnLineOf)) {}

    /// Takes what is there, writes what can be written, and waits until there is more to do, a second at most.
    void Pass();

private:
    void Work();
    void TakeQueue();
    void TakeMsg(MSG_UE stMsg);
    void PumpAll();
    int FillPoll();
    void OnPollFault();

    CLineOf m_fnLineOf;
    std::array<std::array<CLineWriter, SERIALNUM>, MAXUENUM> m_aWriter; // by UE and port
    std::vector<std::pair<UE_INDEX, enSerialType>> m_vecBusy;           // ports whose writer isn't idle
    std::vector<pollfd> m_vecPoll; // the wake-up, then the lines that are waited for
};
