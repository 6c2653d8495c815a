#pragma once

#include "support/Sockets.h"

#include <map>
#include <string>
#include <string_view>

/// An answer of a web server.
struct HTTP_ANSWER
{
    int nStatus = 0;                               // 0: none came, or none that is one
    std::map<std::string, std::string> mapHeaders; // names in small letters
    std::string strBody;
};

/// One HTTP/1.1 connection to the loopback address.
class CHttpClient
{
public:
    explicit CHttpClient(unsigned short usPort) : m_usPort(usPort), m_fd(ConnectTcp(usPort)) {}

    bool IsOpen() const { return m_fd.IsOpen(); }
    const CUniqueFd& Fd() const { return m_fd; }

    /// Sends a request; the headers are lines that end in CR LF. Host is that of the connection unless they name one.
    bool Send(const std::string& strMethod, const std::string& strAddress, const std::string& strHeaders = "",
              const std::string& strBody = "");
    /// The answer, its body by Content-Length or chunks; the head alone when there is neither.
    HTTP_ANSWER Receive();
    HTTP_ANSWER Get(const std::string& strAddress, const std::string& strHeaders = "");
    HTTP_ANSWER Post(const std::string& strAddress, const std::string& strBody, const std::string& strHeaders = "");

    /// The head of a stream; its events follow.
    HTTP_ANSWER ReceiveHead();
    /// The next chunk of a stream, or nothing at its end or when none comes in time.
    std::string ReceiveChunk();
    /// Reads chunks until one event has come as a whole; empty at the end of the stream.
    std::string ReceiveEvent();

private:
    std::string ReceiveUntil(std::string_view strEnd);
    std::string ReceiveCount(size_t szCount);

    unsigned short m_usPort;
    CUniqueFd m_fd;
    std::string m_strEvents; // read, not yet given
};

/// One request on a connection of its own.
HTTP_ANSWER HttpGet(unsigned short usPort, const std::string& strAddress, const std::string& strHeaders = "");
HTTP_ANSWER HttpPost(unsigned short usPort, const std::string& strAddress, const std::string& strBody,
                     const std::string& strHeaders = "");
