#pragma once

#include "support/GuFixture.h"

#include <iosfwd>

/// A packet that left the agent.
struct GuEvent
{
    enum TO
    {
        CLIENT,
        UE,
    };

    TO enTo;
    unsigned int ulId; // ulCmdId towards a client, message id towards the UE

    bool operator==(const GuEvent&) const = default;
};
void PrintTo(const GuEvent& stEvent, std::ostream* pStream); // for messages of tests

/// What leaves the agent for the fixture's clients and UE while the object lives, in the order in which it happens. It
/// takes the UE's packets off their queue; the clients' arrive as ever. For one thread, one object at a time, in a
/// program that is linked with --wrap=send.
class CGuEvents
{
public:
    explicit CGuEvents(CGuFixture& gu);
    ~CGuEvents();
    CGuEvents(const CGuEvents&) = delete;
    CGuEvents& operator=(const CGuEvents&) = delete;

    /// Those since the last call.
    std::vector<GuEvent> Take();

    /// Right ahead of a packet to a client.
    void OnSend(ByteView packet);

private:
    void TakeToUe();

    CGuFixture& m_gu;
    std::vector<GuEvent> m_events;
};
