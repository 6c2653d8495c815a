#include "support/HttpClient.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

namespace
{
std::string SmallLetters(std::string strText)
{
    std::ranges::transform(strText, strText.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return strText;
}

HTTP_ANSWER ParseHead(const std::string& strHead)
{
    HTTP_ANSWER stAnswer;
    std::istringstream lines(strHead);
    std::string strLine;
    if (!std::getline(lines, strLine) || !strLine.starts_with("HTTP/1.1 "))
        return stAnswer;
    stAnswer.nStatus = std::atoi(strLine.c_str() + sizeof("HTTP/1.1"));
    while (std::getline(lines, strLine) && strLine != "\r") {
        const size_t szColon = strLine.find(": ");
        if (szColon != std::string::npos)
            stAnswer.mapHeaders[SmallLetters(strLine.substr(0, szColon))] =
                strLine.substr(szColon + 2, strLine.size() - szColon - 3);
    }
    return stAnswer;
}
} // namespace

bool CHttpClient::Send(const std::string& strMethod, const std::string& strAddress, const std::string& strHeaders,
                       const std::string& strBody)
{
    std::string strText = strMethod + " " + strAddress + " HTTP/1.1\r\n";
    if (strHeaders.find("Host:") == std::string::npos)
        strText += "Host: localhost:" + std::to_string(m_usPort) + "\r\n";
    if (!strBody.empty())
        strText += "Content-Length: " + std::to_string(strBody.size()) + "\r\n";
    strText += strHeaders + "\r\n" + strBody;
    return SendAll(m_fd, AsBytes(strText));
}

std::string CHttpClient::ReceiveUntil(std::string_view strEnd)
{
    std::string strText;
    while (!strText.ends_with(strEnd)) {
        const std::string strByte = ReceiveCount(1);
        if (strByte.empty())
            return "";
        strText += strByte;
    }
    return strText;
}

std::string CHttpClient::ReceiveCount(size_t szCount)
{
    const Bytes bytes = ReceiveBytes(m_fd, szCount);
    return {bytes.begin(), bytes.end()};
}

HTTP_ANSWER CHttpClient::ReceiveHead()
{
    return ParseHead(ReceiveUntil("\r\n\r\n"));
}

std::string CHttpClient::ReceiveChunk()
{
    const size_t szLength = std::strtoul(ReceiveUntil("\r\n").c_str(), nullptr, 16);
    const std::string strChunk = ReceiveCount(szLength);
    (void)ReceiveCount(2); // CR LF
    return strChunk;
}

std::string CHttpClient::ReceiveEvent()
{
    size_t szEnd = 0;
    while ((szEnd = m_strEvents.find("\n\n")) == std::string::npos) {
        const std::string strChunk = ReceiveChunk();
        if (strChunk.empty())
            return "";
        m_strEvents += strChunk;
    }
    const std::string strEvent = m_strEvents.substr(0, szEnd + 2);
    m_strEvents.erase(0, szEnd + 2);
    return strEvent;
}

HTTP_ANSWER CHttpClient::Receive()
{
    HTTP_ANSWER stAnswer = ReceiveHead();
    if (stAnswer.mapHeaders.contains("content-length"))
        stAnswer.strBody = ReceiveCount(std::strtoul(stAnswer.mapHeaders["content-length"].c_str(), nullptr, 10));
    else if (stAnswer.mapHeaders["transfer-encoding"] == "chunked")
        for (std::string strChunk = ReceiveChunk(); !strChunk.empty(); strChunk = ReceiveChunk())
            stAnswer.strBody += strChunk;
    return stAnswer;
}

HTTP_ANSWER CHttpClient::Get(const std::string& strAddress, const std::string& strHeaders)
{
    return Send("GET", strAddress, strHeaders) ? Receive() : HTTP_ANSWER{};
}

HTTP_ANSWER CHttpClient::Post(const std::string& strAddress, const std::string& strBody, const std::string& strHeaders)
{
    const std::string strType = "Content-Type: application/json\r\n";
    const bool bOwn = strHeaders.find("Content-Type:") != std::string::npos;
    return Send("POST", strAddress, (bOwn ? "" : strType) + strHeaders, strBody) ? Receive() : HTTP_ANSWER{};
}

HTTP_ANSWER HttpGet(unsigned short usPort, const std::string& strAddress, const std::string& strHeaders)
{
    return CHttpClient(usPort).Get(strAddress, strHeaders);
}

HTTP_ANSWER HttpPost(unsigned short usPort, const std::string& strAddress, const std::string& strBody,
                     const std::string& strHeaders)
{
    return CHttpClient(usPort).Post(strAddress, strBody, strHeaders);
}
