#pragma once

#include "common/Bytes.h"
#include "common/UniqueFd.h"

#include <array>
#include <chrono>
#include <functional>
#include <poll.h>
#include <vector>

/// Connections that bring one record of a fixed size each, side by side: one that says nothing holds up no other. A
/// connection ends with its record, when it fails or when its time is over. For one thread, which tells the time.
class CRecordConnections
{
public:
    using TIME = std::chrono::steady_clock::time_point;
    static constexpr size_t RECORD_SIZE = 520;            // bytes
    static constexpr size_t MOST = 80;                    // connections
    static constexpr std::chrono::seconds TIME_LIMIT{10}; // of a connection for its whole record

    CRecordConnections() { m_vecOpen.reserve(MOST); }

    bool IsFull() const { return m_vecOpen.size() >= MOST; }
    /// Takes a connection, non-blocking, unless it is full.
    void Add(CUniqueFd fd, TIME now);
    void Clear() { m_vecOpen.clear(); }

    /// Appends the descriptors to what a poll waits for.
    void AppendTo(std::vector<pollfd>& fds) const;
    /// When the time of the next connection is over; the end of time without one.
    TIME NextTime() const;
    /// Reads what has come and hands each record that is whole to onRecord, in the order of the connections, each of
    /// which is closed before. One that fails or has run out of time is closed with an error line. True when any ended.
    bool Serve(TIME now, const std::function<void(ByteView)>& onRecord);

private:
    struct CONNECTION
    {
        CUniqueFd fd;
        TIME end;
        size_t szHave = 0; // bytes of the record
        std::array<unsigned char, RECORD_SIZE> aucRecord{};
    };
    enum class STATE
    {
        WAITS,
        WHOLE,
        FAILED,
    };

    static STATE Read(CONNECTION& stConnection, TIME now);

    std::vector<CONNECTION> m_vecOpen; // in the order in which they came
};
