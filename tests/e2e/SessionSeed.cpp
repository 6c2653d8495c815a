#include "data/DiagPacket.h"
#include "e2e/SessionRecords.h"
#include "tap/TapEvents.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>

// Turns a recorded session into a seed of the session fuzzer, whose steps and their numbers are those of
// fuzz/SessionFuzz.cpp: clients that come, talk and go, and a modem that attaches, confirms, sends and detaches.

namespace
{
enum STEP : unsigned char
{
    STEP_CONNECT = 0, // channel
    STEP_SAY = 1,     // block, client
    STEP_BIND = 4,    // UE, client
    STEP_CLOSE = 6,   // client
    STEP_ATTACH = 7,  // UE
    STEP_CONFIRM = 8, // UE, UE version
    STEP_DATA = 13,   // UE, channel, number of packets less one, blocks
    STEP_DETACH = 14, // UE, channel
};
constexpr size_t SEED_MAX = 4096;  // bytes: the fuzzer works with many small ones
constexpr size_t ALIKE_MAX = 3;    // packets with the same kind, channel and length
constexpr size_t CLIENTS_MAX = 12; // that the fuzzer holds
constexpr unsigned char UE_VERSION = 1;

class CSeed
{
public:
    void Add(const SESSION_RECORD& record)
    {
        const TAP_RECORD& stHead = record.stHead;
        if (stHead.enKind == TAP_KIND::PORT_EVENT)
            AddEvent(record);
        else if (IsAlike(record))
            return;
        else if (stHead.enKind == TAP_KIND::UE_TO_AGENT)
            Put(Join(Step(STEP_DATA), Ue(stHead), Byte(stHead.ucChannel), Byte(0), Block(record.bytes)));
        else if (stHead.enKind == TAP_KIND::CLIENT_TO_AGENT)
            AddRequest(record);
    }
    const Bytes& Result() const { return m_seed; }

private:
    static Bytes Byte(size_t szValue) { return {static_cast<unsigned char>(szValue)}; }
    static Bytes Step(STEP enStep) { return Byte(enStep); }
    static Bytes Ue(const TAP_RECORD& stHead) { return Byte(stHead.ucUe == TCP_UE_INDEX ? 2 : stHead.ucUe % 2); }
    static Bytes Block(const Bytes& bytes) { return Join(Le(static_cast<uint16_t>(bytes.size())), bytes); }

    void Put(const Bytes& step)
    {
        if (m_seed.size() + step.size() <= SEED_MAX)
            m_seed = Join(m_seed, step);
    }

    /// Enough of that kind is there already.
    bool IsAlike(const SESSION_RECORD& record)
    {
        const std::array<size_t, 3> kind = {static_cast<size_t>(record.stHead.enKind), record.stHead.ucChannel,
                                            record.bytes.size()};
        return ++m_alike[kind] > ALIKE_MAX;
    }

    void AddEvent(const SESSION_RECORD& record)
    {
        const TAP_RECORD& stHead = record.stHead;
        const bool bSet = record.bytes.at(4) != 0; // attached, or connected
        switch (static_cast<TAP_EVENT>(LoadLe<uint32_t>(record.bytes, 0))) {
        case TAP_EVENT::CHANNEL:
            if (stHead.ucChannel == CHANNEL_LTE_DIAG && bSet != std::exchange(m_bAttached, bSet))
                Put(bSet ? Join(Step(STEP_ATTACH), Ue(stHead)) : Join(Step(STEP_DETACH), Ue(stHead), Byte(0)));
            break;
        case TAP_EVENT::UE:
            Put(Join(Step(STEP_CONFIRM), Ue(stHead), Byte(UE_VERSION)));
            break;
        case TAP_EVENT::CLIENT:
            AddClient(stHead, bSet);
            break;
        case TAP_EVENT::SINCE:
        case TAP_EVENT::LOG:
            break;
        }
    }

    /// The fuzzer's list of clients closes its gaps.
    void AddClient(const TAP_RECORD& stHead, bool bConnected)
    {
        const auto pClient = std::ranges::find(m_clients, stHead.ulClient);
        if (bConnected && m_clients.size() < CLIENTS_MAX) {
            m_clients.push_back(stHead.ulClient);
            Put(Join(Step(STEP_CONNECT), Byte(stHead.ucChannel)));
        } else if (!bConnected && pClient != m_clients.end()) {
            Put(Join(Step(STEP_CLOSE), Byte(static_cast<size_t>(pClient - m_clients.begin()))));
            m_clients.erase(pClient);
        }
    }

    void AddRequest(const SESSION_RECORD& record)
    {
        const auto pClient = std::ranges::find(m_clients, record.stHead.ulClient);
        if (pClient == m_clients.end())
            return;
        const Bytes client = Byte(static_cast<size_t>(pClient - m_clients.begin()));
        const bool bText = (record.stHead.ucFlags & TAP_TEXT) != 0;
        if (!bText && LoadLe<uint32_t>(record.bytes, 0) == AGENT_CMD_BIND) // ports have other numbers there
            Put(Join(Step(STEP_BIND), Byte(0), client));
        else
            Put(Join(Step(STEP_SAY), Block(bText ? record.bytes : Join(Hex("9F 9F"), record.bytes)), client));
    }

    Bytes m_seed;
    std::vector<uint32_t> m_clients; // in the order of the fuzzer's list
    std::map<std::array<size_t, 3>, size_t> m_alike;
    bool m_bAttached = false;
};
} // namespace

int main(int nArgs, char** ppszArgs)
{
    if (nArgs != 3) {
        std::cerr << "usage: vex-session-seed SESSION.pcapng.zst SEED\n";
        return 1;
    }
    const auto session = ReadSession(ppszArgs[1]);
    CSeed seed;
    for (const SESSION_RECORD& record : session)
        seed.Add(record);
    std::ofstream file(ppszArgs[2], std::ios::binary);
    file.write(reinterpret_cast<const char*>(seed.Result().data()), static_cast<std::streamsize>(seed.Result().size()));
    file.close();
    if (session.empty() || !file)
        std::cerr << "vex-session-seed: can't read " << ppszArgs[1] << " or write " << ppszArgs[2] << "\n";
    return session.empty() || !file ? 1 : 0;
}
