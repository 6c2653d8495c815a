#pragma once

#include "common/Types.h"
#include "common/xtl.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CPortWorker;
class TCPChannel;

/// The links of the one network UE: made at its attach and dropped at its detach. Connecting is the business of the
/// UE's worker; everything else waits for nothing. With Recovery the worker looks for links that their peer has closed,
/// and connects them again.
class CTcpLinks
{
public:
    using LINKS = std::array<std::shared_ptr<TCPChannel>, SERIALNUM>; // by enSerialType

    /// The worker outlives the object and is stopped before its end.
    explicit CTcpLinks(CPortWorker& worker) : m_Worker(worker) {}

    /// The UE has come: its links begin to connect, and then its attach is posted. Takes the place of an earlier
    /// attach.
    void Attach(const std::string& ip) EXCLUDES(m_TableLock);
    /// The UE has gone: posts its detach and closes the links.
    void Detach() EXCLUDES(m_TableLock);
    /// Closes the links.
    void Drop() EXCLUDES(m_TableLock);

    /// Null when there is none. The link can't go away while the pointer is held.
    std::shared_ptr<TCPChannel> Get(enSerialType i) const EXCLUDES(m_TableLock);
    LINKS Table() const EXCLUDES(m_TableLock);

private:
    void ForgetUnused() REQUIRES(m_TableLock);
    void WaitForDropped() EXCLUDES(m_TableLock);
    bool ConnectAll(const std::string& ip, uint64_t ullAttach, bool bQuiet) EXCLUDES(m_TableLock);
    static std::shared_ptr<TCPChannel> Connect(size_t szIndex, const std::string& ip, bool bQuiet);
    bool Set(size_t szIndex, std::shared_ptr<TCPChannel> pLink, uint64_t ullAttach) EXCLUDES(m_TableLock);
    void PostAttachOf(const std::string& ip, uint64_t ullAttach) EXCLUDES(m_TableLock);
    void Look() EXCLUDES(m_TableLock);
    void ConnectMissing(const LINKS& apLink, const std::string& ip, uint64_t ullAttach) EXCLUDES(m_TableLock);

    CPortWorker& m_Worker;
    std::chrono::steady_clock::time_point m_NextConnect{}; // of links that are missing; the worker only
    mutable xtl::Mutex m_TableLock;                        // over all below, for a copy or a change
    LINKS m_apLink GUARDED_BY(m_TableLock);
    std::vector<std::shared_ptr<TCPChannel>> m_vecDropped GUARDED_BY(m_TableLock); // closed, perhaps still in use
    std::string m_strIp GUARDED_BY(m_TableLock);      // of the UE; empty while it is detached
    uint64_t m_ullAttach GUARDED_BY(m_TableLock) = 0; // attaches and detaches so far
    bool m_bLooks GUARDED_BY(m_TableLock) = false;    // Look runs at its period
};
