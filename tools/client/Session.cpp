#include "client/Session.h"

#include "client/Names.h"
#include "client/Reports.h"
#include "client/Stop.h"

#include <array>
#include <utility>

namespace
{
/// A UE status record comes with every binding, so it takes one line only.
std::string StatusLine(const ordered_json& status)
{
    const auto strImei = status["imei"].get<std::string>();
    return "on UE " + status["ue"].dump() + ", version " + status["version"].get<std::string>() +
           (strImei.empty() ? "" : ", IMEI " + strImei) + '\n';
}
} // namespace

Clock::time_point After(double dSeconds)
{
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(dSeconds));
}

Clock::time_point After(const std::optional<double>& seconds)
{
    return seconds ? After(*seconds) : Clock::time_point::max();
}

EXIT_CODE CSession::Open()
{
    const CLIENT_OPTIONS& stOptions = m_stContext.stOptions;
    const auto limit = std::chrono::milliseconds(static_cast<long>(stOptions.dTimeout * 1000));
    std::string strError;
    if (!m_connection.Connect(stOptions.strHost, LISTENPORT[static_cast<size_t>(m_enChannel)], limit, strError))
        return m_stContext.Fail(CODE_NO_CONNECTION, strError + " (" + Label() + ')');
    if (!stOptions.bindPort)
        return CODE_DONE;
    PACKET stAck;
    return Bind(*stOptions.bindPort, stAck);
}

EXIT_CODE CSession::Lost() const
{
    return m_stContext.Fail(CODE_NO_CONNECTION, std::string("the agent closed the connection to channel ") + Label());
}

EXIT_CODE CSession::Send(uint32_t ulCmdId, uint16_t usPktType, ByteView params)
{
    const bool bSent = m_connection.Send(EncodeRequest(ulCmdId, usPktType, params), Deadline());
    return bSent ? CODE_DONE : Lost();
}

EXIT_CODE CSession::Await(const std::function<bool(uint32_t)>& isAnswer, PACKET& stAck, const std::string& strHint)
{
    const auto deadline = Deadline();
    for (;;) {
        m_stContext.printer.Flush();
        switch (m_connection.Receive(stAck, deadline)) {
        case RECV_RESULT::CLOSED:
            return Lost();
        case RECV_RESULT::TIME_OUT:
            return m_stContext.Fail(CODE_TIME_OUT,
                                    StopRequested() ? "interrupted" : "no answer from the agent in time" + strHint);
        case RECV_RESULT::PACKET:
            if (isAnswer(stAck.stHead.ulCmdId))
                return stAck.stHead.ulRc == DIAG_RC_OK ? CODE_DONE : CODE_REFUSED;
            PrintUnsolicited(stAck);
        }
    }
}

EXIT_CODE CSession::Ask(uint32_t ulCmdId, uint16_t usPktType, ByteView params, PACKET& stAck)
{
    const EXIT_CODE enCode = Send(ulCmdId, usPktType, params);
    if (enCode != CODE_DONE)
        return enCode;
    return Await([=](uint32_t ulId) { return ulId == ulCmdId; }, stAck);
}

EXIT_CODE CSession::Bind(unsigned int ulPort, PACKET& stAck)
{
    std::array<unsigned char, 4> aucPort{};
    StoreLe<uint32_t>(aucPort, 0, ulPort);
    m_bBinding = true;
    const EXIT_CODE enCode = Ask(AGENT_CMD_BIND, PKT_TYPE_AGENT, aucPort, stAck);
    m_bBinding = false;
    const std::string strStatusLine = std::exchange(m_strStatusLine, {});
    if (enCode == CODE_DONE && !strStatusLine.empty())
        m_stContext.printer.Print({}, strStatusLine);
    if (enCode != CODE_REFUSED)
        return enCode;
    return m_stContext.Fail(enCode, std::string("bind of channel ") + Label() + " to port " + std::to_string(ulPort) +
                                        " refused, " + ResultText(stAck.stHead.ulRc) +
                                        ": no confirmed UE has this port, or another client holds the channel");
}

void CSession::PrintUnsolicited(const PACKET& stPacket)
{
    const uint32_t ulId = stPacket.stHead.ulCmdId;
    PACKET_NOTE stNote{.pszEvent = "unsolicited", .strName = IdName(ulId)};
    if (const REPORT_ID stId = FindReportByAnswer(static_cast<uint16_t>(ulId)); IsGu() && stId.pstRow != nullptr)
        stNote.strName = stId.pstRow->pszName; // a late confirm
    stNote.strTypeName = PacketTypeName(stPacket.stHead.usPktType);
    if (const RECORD_LAYOUT* pstLayout = AnswerLayout(ulId)) {
        stNote.decoded = Decode(*pstLayout, stPacket.payload);
        stNote.bHexDump = false;
    }
    const bool bStatus = ulId == AGENT_CMD_UE_STATUS || ulId == AGENT_CMD_GU_STATUS;
    if (m_stContext.printer.IsJson() || !bStatus)
        m_stContext.printer.Packet(stPacket, stNote);
    else if (m_bBinding)
        m_strStatusLine = StatusLine(stNote.decoded);
    else
        m_stContext.printer.Print({}, StatusLine(stNote.decoded));
}
