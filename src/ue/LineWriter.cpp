#include "ue/LineWriter.h"

#include "common/Debug.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <utility>

void CLineWriter::Pump(const std::shared_ptr<ILine>& pLine, TIME now)
{
    if (m_bBlock && (m_pLine != pLine || m_ullOpening != pLine->Opening()))
        DropBlock(); // its beginning went to a line that is gone
    m_pLine = pLine;
    if (!pLine)
        return LoseAll();
    while (RestIsOver(now) && (m_bBlock || StartPacket(now)) && WriteBlock(now)) {
    }
    if (!m_bBlock)
        m_pLine.reset(); // a link that is closed must not be held on to
}

bool CLineWriter::RestIsOver(TIME now)
{
    if (m_bResting && now < m_RestEnd)
        return false;
    m_bResting = false;
    m_RestCharge.Release();
    return true;
}

/// Makes the next packet that the line takes a block. False when there is none now.
bool CLineWriter::StartPacket(TIME now)
{
    for (; !m_deqWaiting.empty(); m_deqWaiting.pop_front()) {
        switch (m_pLine->PrepareWrite()) {
        case LINE_STATE::OPENING:
            return false;
        case LINE_STATE::REFUSED:
            continue;
        case LINE_STATE::CLOSED:
            LoseAll();
            return false;
        case LINE_STATE::OPEN:
            break;
        }
        m_Block = TakeBlock(m_deqWaiting.front());
        if (!m_Block)
            continue; // the channel has told
        m_bBlock = true;
        m_szWritten = 0;
        m_ullOpening = m_pLine->Opening();
        m_GiveUp = now + m_pLine->WriteLimit(m_Block.size());
        return true;
    }
    return false;
}

/// The packet as it goes on the line.
CPacket CLineWriter::TakeBlock(MSG_UE& stMsg)
{
    if (IToUeObserver* const pObserver = CMsgBuf::Instance()->ToUeObserver())
        pObserver->OnPacketToUe(stMsg.ulUeIdx, stMsg.enChannel, stMsg.packet.Bytes());
    return m_pLine->Channel().WriteChannel(std::move(stMsg.packet));
}

/// False when the line takes no more now.
bool CLineWriter::WriteBlock(TIME now)
{
    const ByteView rest = Slice(std::as_const(m_Block).Bytes(), m_szWritten, m_Block.size() - m_szWritten);
    const ssize_t nWritten = rest.empty() ? 0 : m_pLine->WriteBytes(rest);
    if (nWritten < 0) {
        DropBlock();
        return true;
    }
    if (nWritten > 0)
        OnHeadway(static_cast<size_t>(nWritten), now);
    if (m_szWritten == m_Block.size()) {
        EndBlock(now);
        return true;
    }
    if (nWritten > 0)
        return true; // perhaps it takes more
    OnNothingTaken(now);
    return !m_bBlock;
}

void CLineWriter::OnHeadway(size_t szWritten, TIME now)
{
    m_szWritten += szWritten;
    m_GiveUp = now + m_pLine->WriteLimit(m_Block.size() - m_szWritten); // starts anew with each piece
    m_bStalled = false;
    if (m_szLost > 0)
        CDebug::Instance()->PrintWarn("UE %u takes data again, %zu packets were lost", m_pLine->GetUEIdx(), m_szLost);
    m_szLost = 0;
}

/// Its charge goes with the pause, if there is one.
void CLineWriter::EndBlock(TIME now)
{
    MSG_UE& stMsg = m_deqWaiting.front();
    m_bResting = stMsg.pause.count() > 0;
    m_RestEnd = now + stMsg.pause;
    if (m_bResting)
        m_RestCharge = std::move(stMsg.charge);
    DropBlock();
}

void CLineWriter::OnNothingTaken(TIME now)
{
    if (m_bStalled) {
        ++m_szLost;
        DropBlock();
    } else if (now >= m_GiveUp) {
        m_pLine->OnNoHeadway(true);
        m_bStalled = true;
        m_szLost = m_deqWaiting.size();
        LoseAll();
    }
}

/// The packet at hand is dealt with.
void CLineWriter::DropBlock()
{
    m_bBlock = false;
    m_Block = {};
    m_deqWaiting.pop_front();
}

void CLineWriter::LoseAll()
{
    m_bBlock = false;
    m_Block = {};
    m_deqWaiting.clear();
    m_bResting = false;
    m_RestCharge.Release();
}

void CLineWriter::OnWaitFault()
{
    if (!m_bBlock)
        return;
    m_pLine->OnNoHeadway(false);
    DropBlock();
}

int CLineWriter::WaitHandle() const
{
    return m_bBlock ? m_pLine->WriteHandle() : -1;
}

CLineWriter::TIME CLineWriter::Due() const
{
    if (m_bResting)
        return m_RestEnd;
    return m_bBlock ? m_GiveUp : TIME::max();
}
