#pragma once

#include "e2e/ScriptedUe.h"

#include <atomic>
#include <thread>

/// A modem that sends far more than a slow client reads: 2 MB/s of data indications, from a thread of its own.
class CTorrent
{
public:
    explicit CTorrent(unsigned int ulFirstPort) : m_ue(ulFirstPort, "torrent") {}
    ~CTorrent() { Stop(); }
    CTorrent(const CTorrent&) = delete;
    CTorrent& operator=(const CTorrent&) = delete;

    bool Attach() { return m_ue.Confirm() && m_ue.Attach(SERIAL_TYPE_DATA); }
    void Detach();
    void Start();
    void Stop();
    size_t Sent() const { return m_szSent; }

    /// Whether this is a payload of the torrent, whole.
    static bool IsIntact(ByteView payload);

private:
    void Send();

    CScriptedUe m_ue;
    std::atomic<bool> m_bSend = false;
    std::atomic<size_t> m_szSent = 0;
    std::thread m_sender;
};
