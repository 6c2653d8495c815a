#include "uesim/GuLinkBehaviour.h"

#include "uesim/GuIds.h"

#include <algorithm>

namespace
{
constexpr uint32_t CARDS_SINGLE = 1;
constexpr uint32_t CARDS_DUAL = 2;

// Version message: chip type, and the text behind a block of build data. An ASIC's is longer than 515 bytes.
constexpr size_t VERSION_TEXT = 109 - 12; // behind a query answer's value
constexpr size_t VERSION_REST = 520 - 12;
constexpr uint32_t CHIP_SILICON = 1;
constexpr uint32_t CHIP_PC = 2;
constexpr uint32_t CHIP_BOARD = 3;
} // namespace

bool CGuLinkBehaviour::OnPacket(enSerialType enPort, ByteView packet)
{
    if (enPort != SERIAL_TYPE_GU)
        return false;
    if (IsGuLinkRequest(packet)) {
        m_ue.Log().Event(m_ue.Name(), "gu link request");
        m_line.SendQueryAnswer(0, ID_LINK_ANSWER, 1);
        m_line.Flush();
        return true;
    }
    const auto stFrame = ReadOmFrame(packet);
    if (!stFrame)
        return false;
    if (stFrame->ulIndex != m_ulNextSegment)
        m_ue.Log().Event(m_ue.Name(), "gu segment %u of %u, expected %u", stFrame->ulIndex, stFrame->ulTotal,
                         m_ulNextSegment);
    m_segments.insert(m_segments.end(), stFrame->payload.begin(), stFrame->payload.end());
    m_ulNextSegment = stFrame->ulIndex + 1;
    if (stFrame->ulIndex < stFrame->ulTotal)
        return true;
    OnGuPacket(m_segments);
    OnPortClosed(SERIAL_TYPE_GU);
    return true;
}

/// A packet in hand is forgotten.
void CGuLinkBehaviour::OnPortClosed(enSerialType enPort)
{
    if (enPort != SERIAL_TYPE_GU)
        return;
    m_segments.clear();
    m_ulNextSegment = 1;
}

void CGuLinkBehaviour::OnGuPacket(ByteView packet)
{
    const GU_REQUEST stReq = ReadGuRequest(packet);
    ++m_ue.Counter("gu requests");
    const bool bTaken = AnswerQuery(stReq) || std::ranges::any_of(m_services, [&](IGuService* pService) {
                            return pService->OnRequest(stReq);
                        });
    m_ue.Log().Event(m_ue.Name(), "gu %s 0x%04x category %u pid %u modem %u, %zu bytes",
                     bTaken ? "request" : "unknown request", stReq.usId, stReq.ucCategory, stReq.ulPid, stReq.ulModem,
                     stReq.params.size());
    m_line.Flush();
}

bool CGuLinkBehaviour::AnswerQuery(const GU_REQUEST& stReq)
{
    switch (stReq.usId) {
    case ID_ENABLE_TRANS: // only says that transparent messages are welcome
        return true;
    case ID_VERSION_QUERY:
        SendVersion();
        return true;
    case ID_MODE_QUERY:
        m_line.SendQueryAnswer(stReq.ulModem, ID_MODE, m_ue.Options().ulGuRat);
        return true;
    case ID_CARDS_QUERY:
        m_line.SendQueryAnswer(0, ID_CARDS, m_ue.Options().bDualCard ? CARDS_DUAL : CARDS_SINGLE);
        return true;
    default:
        return false;
    }
}

void CGuLinkBehaviour::SendVersion()
{
    const std::string& strType = m_ue.Options().strGuType;
    std::vector<unsigned char> rest(VERSION_REST, 0);
    StoreText(Slice(ByteSpan(rest), VERSION_TEXT), m_ue.Options().strGuVersion);
    m_line.SendQueryAnswer(0, ID_VERSION,
                           strType == "ASIC" ? CHIP_SILICON
                           : strType == "PC" ? CHIP_PC
                                             : CHIP_BOARD,
                           rest);
}
