#include "e2e/Torrent.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass
constexpr size_t PAYLOAD_LEN = 1500;    // a mark in front and at the end, the same
constexpr size_t BURST = 14;            // frames a tick: 2 MB/s
constexpr auto TICK = std::chrono::milliseconds(10);
constexpr int LOOK_MS = 20;
} // namespace

void CTorrent::Detach()
{
    Stop();
    (void)m_ue.Detach(SERIAL_TYPE_DATA);
    (void)m_ue.Detach(SERIAL_TYPE_DIAG);
}

void CTorrent::Start()
{
    const int nModem = m_ue.Port(SERIAL_TYPE_DATA).Modem().Get();
    (void)fcntl(nModem, F_SETFL, fcntl(nModem, F_GETFL) | O_NONBLOCK); // so that the sender can end at any time
    m_bSend = true;
    m_sender = std::thread([this] { Send(); });
}

void CTorrent::Stop()
{
    m_bSend = false;
    if (m_sender.joinable())
        m_sender.join();
}

bool CTorrent::IsIntact(ByteView payload)
{
    return payload.size() == PAYLOAD_LEN &&
           LoadLe<uint32_t>(payload, 0) == LoadLe<uint32_t>(payload, PAYLOAD_LEN - sizeof(uint32_t));
}

void CTorrent::Send()
{
    Bytes burst;
    for (uint32_t i = 0; i < BURST; ++i)
        burst = Join(burst, CScriptedUe::Frame(CScriptedUe::Packet(3, DSP_ID, 0, i, i,
                                                                   Join(Le(i), Fill(PAYLOAD_LEN - 8, 0x5A), Le(i)))));
    const int nModem = m_ue.Port(SERIAL_TYPE_DATA).Modem().Get();
    for (auto due = std::chrono::steady_clock::now(); m_bSend; due += TICK) {
        std::this_thread::sleep_until(due);
        for (ByteView rest(burst); !rest.empty() && m_bSend;) {
            const ssize_t lWritten = write(nModem, rest.data(), rest.size());
            if (lWritten > 0) {
                rest = rest.subspan(static_cast<size_t>(lWritten));
                continue;
            }
            pollfd stPoll{nModem, POLLOUT, 0};
            (void)poll(&stPoll, 1, LOOK_MS);
        }
        m_szSent += BURST;
    }
}
