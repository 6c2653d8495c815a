#pragma once

#include "capture/CaptureFormat.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

struct CAPTURED_RECORD;

// What a capture says of its clients, made ready to be done again.

/// A connection that a client had.
struct REPLAY_CLIENT
{
    uint32_t ulNumber = 0; // in the capture
    enChannelType enChannel = CHANNEL_LTE_DIAG;
    std::optional<uint32_t> bindPort = {}; // it was there before the capture, bound to the UE with this port
    std::vector<std::vector<unsigned char>> answers = {}; // what it got, without lead bytes
};

struct REPLAY_ACT
{
    enum class KIND
    {
        CONNECT,
        SEND,  // the bytes, lead bytes included
        AWAIT, // the next answer
        CLOSE,
    };
    KIND enKind;
    size_t szClient;
    uint64_t ullTime; // ns since the first record of the capture
    std::vector<unsigned char> bytes = {};
};

/// All that the clients did, in order.
class CReplayScript
{
public:
    /// Reads a whole file. False, with what is wrong, when it is none or has no client.
    bool Load(const std::string& strPath, std::string& strError);
    void Add(const CAPTURED_RECORD& stRecord);

    const std::vector<REPLAY_CLIENT>& Clients() const { return m_clients; }
    const std::vector<REPLAY_ACT>& Acts() const { return m_acts; }
    uint64_t Lost() const { return m_ullLost; } // records that the capture misses

private:
    void OnEvent(const TAP_RECORD& stHead, ByteView bytes);
    /// The client of a record; one that never connected was there before.
    size_t ClientOf(const TAP_RECORD& stHead);
    void Act(REPLAY_ACT::KIND enKind, size_t szClient, uint64_t ullTime, std::vector<unsigned char> bytes = {});

    std::vector<REPLAY_CLIENT> m_clients;
    std::map<uint32_t, size_t> m_mapClients; // by number
    std::vector<REPLAY_ACT> m_acts;
    std::optional<uint64_t> m_start;
    uint64_t m_ullLost = 0;
};
