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

// clang-format off
const CAtBehaviour::ROW CAtBehaviour::c_astRow[] = {
    {"AT",         &CAtBehaviour::Nothing},
    {"ATZ",        &CAtBehaviour::Nothing},
    {"AT&F",       &CAtBehaviour::Nothing},
    {"ATI",        &CAtBehaviour::Identity},
    {"AT+CGMI",    &CAtBehaviour::Manufacturer},
    {"AT+CGMM",    &CAtBehaviour::Model},
    {"AT+CGMR",    &CAtBehaviour::Revision},
    {"AT+CGSN",    &CAtBehaviour::Imei},
    {"AT+CSQ",     &CAtBehaviour::Quality},
    {"AT+COPS?",   &CAtBehaviour::Operator},
    {"AT+CREG?",   &CAtBehaviour::Registration},
    {"AT+CSCS?",   &CAtBehaviour::Characters},
    {"AT+CSCS=?",  &CAtBehaviour::CharacterSets},
    {"AT+CMEE?",   &CAtBehaviour::ErrorForm},
    {"AT+CMEE=?",  &CAtBehaviour::ErrorForms},
};
// clang-format on

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
    m_bEcho = false;
    m_ulErrorForm = 0;
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
    if (m_bEcho)
        SendText(strCommand + '\r');
    m_ue.Log().Event(m_ue.Name(), "at \"%s\"", strCommand.c_str());
    ++m_ue.Counter("at commands");
    SendText(AnswerTo(Upper(strCommand)));
}

std::string CAtBehaviour::AnswerTo(const std::string& strCommand)
{
    if (Set(strCommand))
        return OK;
    const auto row = std::ranges::find(c_astRow, strCommand, &ROW::pszCommand);
    if (row == std::end(c_astRow))
        return Error();
    const std::string strText = (this->*row->pfnText)();
    return (strText.empty() ? "" : "\r\n" + strText + "\r\n") + OK;
}

/// Echo, the form of errors and the character set; false for any other command.
bool CAtBehaviour::Set(const std::string& strCommand)
{
    if (strCommand == "ATE" || strCommand == "ATE0" || strCommand == "ATE1")
        m_bEcho = strCommand.back() == '1';
    else if (strCommand == "AT+CMEE=0" || strCommand == "AT+CMEE=1" || strCommand == "AT+CMEE=2")
        m_ulErrorForm = static_cast<unsigned int>(strCommand.back() - '0');
    else if (strCommand == R"(AT+CSCS="IRA")" || strCommand == R"(AT+CSCS="GSM")")
        m_strCharacters = strCommand.substr(strCommand.find('"'));
    else
        return false;
    return true;
}

/// "Operation not supported", number 4 of 3GPP TS 27.007, in the form that was asked for.
std::string CAtBehaviour::Error() const
{
    constexpr const char* FORMS[] = {"ERROR", "+CME ERROR: 4", "+CME ERROR: operation not supported"};
    return std::string("\r\n") + FORMS[m_ulErrorForm] + "\r\n";
}

std::string CAtBehaviour::Identity()
{
    return "Simulated modem " + m_ue.Name();
}

std::string CAtBehaviour::Quality()
{
    return "+CSQ: " + std::to_string(15 + m_ulQuality++ % 10) + ",99";
}

void CAtBehaviour::SendText(const std::string& strText)
{
    m_ue.Send(SERIAL_TYPE_AT, AsBytes(strText));
}
