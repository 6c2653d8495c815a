#include "ue/RecordConnections.h"

#include "common/Debug.h"
#include "common/Wait.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

void CRecordConnections::Add(CUniqueFd fd, TIME now)
{
    if (!IsFull())
        m_vecOpen.push_back({std::move(fd), now + TIME_LIMIT});
}

void CRecordConnections::AppendTo(std::vector<pollfd>& fds) const
{
    for (const CONNECTION& stConnection : m_vecOpen)
        fds.push_back({stConnection.fd.Get(), POLLIN, 0});
}

CRecordConnections::TIME CRecordConnections::NextTime() const
{
    return m_vecOpen.empty() ? TIME::max() : m_vecOpen.front().end; // all have the same time, so the oldest is next
}

bool CRecordConnections::Serve(TIME now, const std::function<void(ByteView)>& onRecord)
{
    const auto isOver = [&](CONNECTION& stConnection) {
        const STATE enState = Read(stConnection, now);
        if (enState == STATE::WAITS)
            return false;
        stConnection.fd.Reset();
        if (enState == STATE::WHOLE)
            onRecord(stConnection.aucRecord);
        return true;
    };
    return std::erase_if(m_vecOpen, isOver) > 0;
}

CRecordConnections::STATE CRecordConnections::Read(CONNECTION& stConnection, TIME now)
{
    while (stConnection.szHave < RECORD_SIZE) {
        const ByteSpan rest = ByteSpan(stConnection.aucRecord).subspan(stConnection.szHave);
        const ssize_t nRead = RetryOnEintr([&] { return recv(stConnection.fd.Get(), rest.data(), rest.size(), 0); });
        if (nRead > 0) {
            stConnection.szHave += static_cast<size_t>(nRead);
            continue;
        }
        const int iError = nRead == 0 ? 0 : errno; // the peer closes early: no error of the system
        if (iError == EAGAIN && now < stConnection.end)
            return STATE::WAITS;
        CDebug::Instance()->PrintError("Device Monitor Thread Read Data Error %d", iError);
        return STATE::FAILED;
    }
    return STATE::WHOLE;
}
