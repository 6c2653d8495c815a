#include "page/GuSession.h"

#include "client/Names.h"

#include <functional>

namespace
{
const CONTROL_RESULT ENDED{504, "the agent has closed the connection"};

/// Sends a request and waits for the packet that answers it.
CONTROL_RESULT Ask(CConnection& connection, ByteView request, Clock::time_point deadline,
                   const std::function<bool(const PACKET&)>& isAnswer, PACKET& stAnswer)
{
    if (!connection.Send(request, deadline))
        return ENDED;
    for (;;) {
        const RECV_RESULT enGot = connection.Receive(stAnswer, deadline);
        if (enGot == RECV_RESULT::CLOSED)
            return ENDED;
        if (enGot == RECV_RESULT::TIME_OUT)
            return {504, "no answer in time; has the modem told its version, and does it answer?"};
        if (isAnswer(stAnswer))
            return {};
    }
}

CONTROL_RESULT Join(CConnection& connection, const std::string& strHost, enChannelType enChannel, unsigned int ulPort,
                    Clock::time_point deadline)
{
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    std::string strError;
    if (!connection.Connect(strHost, LISTENPORT[static_cast<size_t>(enChannel)], limit, strError))
        return {504, strError};
    std::array<unsigned char, 4> aucPort{};
    StoreLe<uint32_t>(aucPort, 0, ulPort);
    PACKET stAck;
    const auto request = EncodeRequest(AGENT_CMD_BIND, PKT_TYPE_AGENT, aucPort);
    const auto isAck = [](const PACKET& st) { return st.stHead.ulCmdId == AGENT_CMD_BIND; };
    CONTROL_RESULT stResult = Ask(connection, request, deadline, isAck, stAck);
    if (!stResult.IsOk() || stAck.stHead.ulRc == DIAG_RC_OK)
        return stResult;
    return {409, std::string("the agent refuses to bind ") + strChannelType[static_cast<size_t>(enChannel)] +
                     " to port " + std::to_string(ulPort) + ": no confirmed modem has it"};
}
} // namespace

CONTROL_RESULT CGuSession::Open(const std::string& strHost, unsigned int ulPort, Clock::time_point deadline,
                                enChannelType& enRefused)
{
    enRefused = CHANNEL_GU_DATA; // first, so that no report is missed
    CONTROL_RESULT stResult = Join(m_data, strHost, enRefused, ulPort, deadline);
    if (stResult.IsOk()) {
        enRefused = CHANNEL_GU_CMD;
        stResult = Join(m_command, strHost, enRefused, ulPort, deadline);
    }
    if (!stResult.IsOk())
        Close();
    return stResult;
}

CONTROL_RESULT CGuSession::Request(const CONTROL_ORDER& stOrder, bool bStart, Clock::time_point deadline)
{
    const REPORT_ROW& stRow = *stOrder.stReport.pstRow;
    const auto params = ReportParams(stRow.enForm, bStart, stOrder.usPeriodMs);
    const auto request = EncodeRequest(stOrder.stReport.Req(), stRow.ucType, params);
    const auto isConfirm = [&](const PACKET& st) {
        return IdName(st.stHead.ulCmdId).empty() && stOrder.stReport.IsCnf(static_cast<uint16_t>(st.stHead.ulCmdId));
    };
    PACKET stConfirm;
    CONTROL_RESULT stResult = Ask(m_command, request, deadline, isConfirm, stConfirm);
    if (!stResult.IsOk())
        return stResult;
    const uint32_t ulResult = ConfirmResult(stRow.enForm, stConfirm.stHead.ulRc, stConfirm.payload);
    if (ulResult == DIAG_RC_OK)
        return {};
    return {409, std::string("the modem refuses ") + stRow.pszName + ": " + ResultText(ulResult)};
}

bool CGuSession::Drain()
{
    PACKET stPacket;
    for (CConnection* pConnection : {&m_command, &m_data}) {
        if (!pConnection->Pump())
            return false;
        while (pConnection->Next(stPacket)) {
        }
    }
    return true;
}

void CGuSession::Close()
{
    m_command = CConnection();
    m_data = CConnection();
}
