#pragma once

#include "common/UniqueFd.h"
#include "tap/TapMemory.h"
#include "tap/TapWriter.h"

#include <functional>
#include <memory>
#include <poll.h>
#include <string>
#include <vector>

/// The agent's end of the tap's socket: hands the memory to whoever connects, and knows whether anybody observes.
class CTapServer
{
public:
    /// Writes the picture of what is, and gives the place of its first record, where the observer begins. Called on the
    /// server's thread; records of other threads may come between those of the picture.
    using PICTURE = std::function<CTapWriter::PLACE(CTapWriter&)>;

    /// Makes the memory and the socket, and takes the place of a socket that nobody listens on any more. Null, with
    /// what is wrong, when that fails.
    static std::unique_ptr<CTapServer> Open(const std::string& strPath, size_t szRingBytes, PICTURE picture,
                                            std::string& strError);
    ~CTapServer();
    CTapServer(const CTapServer&) = delete;
    CTapServer& operator=(const CTapServer&) = delete;

    CTapWriter& Writer() { return m_writer; }

    /// Waits once and serves what has come; for a thread of its own.
    void Pass();

private:
    CTapServer(const std::string& strPath, CTapMemory memory, CUniqueFd listenFd, PICTURE picture);
    void Accept();
    bool Greet(const CUniqueFd& observer);

    std::string m_strPath; // removed at the end
    CTapMemory m_memory;
    CTapWriter m_writer;
    CUniqueFd m_Listen;
    PICTURE m_picture;
    TAP_HELLO m_stHello; // but for the place
    std::vector<CUniqueFd> m_vecObserver;
    std::vector<pollfd> m_vecPoll;
};
