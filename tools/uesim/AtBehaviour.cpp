#include "uesim/AtBehaviour.h"

#include <algorithm>
#include <cctype>

namespace
{
constexpr size_t MAX_LINE = 4096;
const std::string OK = "\r\nOK\r\n";

std::string Upper(std::string strText)
{
    std::ranges::transform(strText, strText.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return strText;
}
} // namespace

bool CAtBehaviour::OnPacket(enSerialType enPort, ByteView packet)
{
    if (enPort != SERIAL_TYPE_AT)
        return false;
    for (const unsigned char ucByte : packet) {
        if (ucByte == '\r') {
            Execute(std::exchange(m_strLine, {}));
        } else if (ucByte >= ' ' && m_strLine.size() < MAX_LINE) {
            m_strLine += static_cast<char>(ucByte);
        }
    }
    return true;
}

void CAtBehaviour::OnPortOpened(enSerialType enPort, SimTime now)
{
    if (enPort == SERIAL_TYPE_AT && m_ue.Options().ulAtInterval > 0)
        m_next = now + std::chrono::milliseconds(m_ue.Options().ulAtInterval);
}

void CAtBehaviour::OnPortClosed(enSerialType enPort)
{
    if (enPort != SERIAL_TYPE_AT)
        return;
    m_strLine.clear();
    m_next = NEVER;
}

SimTime CAtBehaviour::OnTick(SimTime now)
{
    if (now < m_next || !m_ue.HasRoom(SERIAL_TYPE_AT, now))
        return m_next;
    SendText("\r\n+CREG: 1,\"0001\"," + std::to_string(++m_ulLines) + "\r\n");
    ++m_ue.Counter("at unsolicited");
    m_next = now + std::chrono::milliseconds(m_ue.Options().ulAtInterval);
    return m_next;
}

void CAtBehaviour::Execute(const std::string& strCommand)
{
    if (strCommand.empty())
        return;
    m_ue.Log().Event(m_ue.Name(), "at \"%s\"", strCommand.c_str());
    ++m_ue.Counter("at commands");
    SendText(AnswerTo(Upper(strCommand)));
}

std::string CAtBehaviour::AnswerTo(const std::string& strCommand)
{
    if (strCommand == "AT")
        return OK;
    if (strCommand == "ATI")
        return "\r\nSimulated modem " + m_ue.Name() + "\r\n" + OK;
    if (strCommand == "AT+CGSN")
        return "\r\n" + m_ue.Identity().strImei + "\r\n" + OK;
    if (strCommand == "AT+CGMR")
        return "\r\n" + m_ue.Identity().VersionText() + "\r\n" + OK;
    if (strCommand == "AT+CSQ")
        return "\r\n+CSQ: " + std::to_string(15 + m_ulQuality++ % 10) + ",99\r\n" + OK;
    return "\r\nERROR\r\n";
}

void CAtBehaviour::SendText(const std::string& strText)
{
    m_ue.Send(SERIAL_TYPE_AT, AsBytes(strText));
}
