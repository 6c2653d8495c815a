#pragma once

#include "common/Types.h"
#include "page/PageTime.h"
#include "tap/TapRecord.h"

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What the page knows of the modems and clients of an agent, from the events and packets of the tap. Times are ms
/// since 1970. Not safe from several threads.

struct PAGE_CLIENT
{
    uint32_t ulNumber = 0;
    std::string strAddress; // empty: not known yet
    uint8_t ucChannel = TAP_NO_CHANNEL;
    double dSince = 0;
    std::optional<unsigned int> ue; // it is bound to
    std::optional<uint32_t> port;
};

struct PAGE_CHANNEL
{
    bool bAttached = false;
    bool bConfirmed = false;
    uint32_t ulPort = 0;
    std::string strName;
    uint32_t ulClient = 0; // 0: none is bound
    double dClientSince = 0;
};

/// Packets and bytes of one class: a kind of record on a channel of a UE.
struct PAGE_COUNT
{
    uint64_t ullPackets = 0;
    uint64_t ullBytes = 0;
};
constexpr size_t PACKET_KINDS = 4; // UE_TO_AGENT to AGENT_TO_CLIENT

/// What passed in each of the last seconds, in all channels.
struct PAGE_RATES
{
    static constexpr size_t SECONDS = 60;
    double dTime = 0; // of the newest second's end
    std::deque<std::array<PAGE_COUNT, PACKET_KINDS>> seconds;
};

struct PAGE_MODEM
{
    unsigned int ulUe = 0;
    std::string strVersion;
    std::string strImei;
    std::string strGroup;
    double dSince = 0; // of the state
    double dLast = 0;  // packet from it; 0: none yet
    uint64_t ullLosses = 0;
    uint64_t ullWarnings = 0;
    std::array<PAGE_CHANNEL, CHANNELNUM> astChannel;
    std::array<std::array<PAGE_COUNT, CHANNELNUM>, PACKET_KINDS> astCount;  // since the page's start
    std::array<std::array<PAGE_COUNT, CHANNELNUM>, PACKET_KINDS> astSecond; // of the second that runs
    std::array<std::array<PAGE_COUNT, CHANNELNUM>, PACKET_KINDS> astClosed; // of the last whole second
    PAGE_RATES stRates;

    enum class STATE : uint8_t
    {
        GONE,
        ATTACHED,
        CONFIRMED,
    };
    STATE State() const;
};
const char* StateName(PAGE_MODEM::STATE enState); // "gone"

class CModemTable
{
public:
    static constexpr double GONE_MS = 600'000; // so long a modem that went stays to be seen

    /// All modems and clients of the run before are gone.
    void EndRun(double dNow);
    /// True when another modem has come to the place of the one before.
    bool TakeEvent(const TAP_RECORD& stRecord, ByteView bytes);
    void CountPacket(const TAP_RECORD& stRecord, size_t szBytes);
    /// Ends the second of the rates; forgets modems that went long ago and gives their UEs.
    std::vector<unsigned int> OnSecond(double dNow);

    const std::map<unsigned int, PAGE_MODEM>& Modems() const { return m_mapModems; }
    PAGE_MODEM* Find(unsigned int ulUe);
    const PAGE_MODEM* Find(unsigned int ulUe) const;
    const std::map<uint32_t, PAGE_CLIENT>& Clients() const { return m_mapClients; }
    const PAGE_CLIENT* FindClient(uint32_t ulClient) const;
    /// UE of the one client of the channel that is bound; none when there are several or none.
    std::optional<unsigned int> OnlyBoundUe(uint8_t ucChannel) const;
    std::optional<unsigned int> UeOfPort(uint32_t ulPort) const;
    uint64_t Connections(size_t szChannel) const { return m_aullConnections[szChannel]; } // of clients, so far

private:
    void TakeChannel(const TAP_RECORD& stRecord, ByteView bytes);
    bool TakeUe(const TAP_RECORD& stRecord, ByteView bytes);
    void TakeClient(const TAP_RECORD& stRecord, ByteView bytes);
    void TakeSince(const TAP_RECORD& stRecord, ByteView bytes);
    void Bind(const TAP_RECORD& stRecord, PAGE_CHANNEL& stChannel);
    void Unbind(uint32_t ulClient);

    std::map<unsigned int, PAGE_MODEM> m_mapModems; // by UE
    std::map<uint32_t, PAGE_CLIENT> m_mapClients;   // by number
    std::array<uint64_t, CHANNELNUM> m_aullConnections{};
};
