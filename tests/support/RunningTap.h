#pragma once

#include "tap/TapServer.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

/// A tap with its thread and without an agent: the test writes the records. The picture is one record, a
/// configuration of the text "picture".
class CRunningTap
{
public:
    explicit CRunningTap(const std::string& strPath, size_t szRingBytes = TAP_LEAST_BYTES)
        : m_pServer(CTapServer::Open(strPath, szRingBytes, WritePicture, m_strError))
    {
        if (m_pServer)
            m_thread = std::thread([this] {
                while (!m_bEnd)
                    m_pServer->Pass();
            });
    }
    ~CRunningTap()
    {
        m_bEnd = true;
        if (m_thread.joinable())
            m_thread.join();
    }
    CRunningTap(const CRunningTap&) = delete;
    CRunningTap& operator=(const CRunningTap&) = delete;

    bool IsOpen() const { return m_pServer != nullptr; }
    const std::string& Error() const { return m_strError; }
    CTapWriter& Writer() { return m_pServer->Writer(); }

private:
    static CTapWriter::PLACE WritePicture(CTapWriter& writer)
    {
        TAP_RECORD stRecord;
        stRecord.enKind = TAP_KIND::CONFIGURATION;
        stRecord.ucFlags = TAP_REPLAYED;
        return writer.Write(stRecord, AsBytes("picture"));
    }

    std::string m_strError;
    std::unique_ptr<CTapServer> m_pServer;
    std::atomic<bool> m_bEnd = false;
    std::thread m_thread;
};
