#pragma once

#include "support/TestBytes.h"
#include "uesim/SimUe.h"

#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// A simulated modem's port whose other end is in the hands of the test.
class CTestPort : public CSimPort
{
public:
    explicit CTestPort(enSerialType enType) : CSimPort(enType, 1)
    {
        int anPair[2] = {-1, -1};
        (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, anPair); // a failure shows as an empty read
        m_modem.Reset(anPair[0]);
        m_agent.Reset(anPair[1]);
    }

    std::string Name() const override { return "test"; }
    Change Probe() override { return Became(m_bPresent); }
    int WaitFd() const override { return m_modem.Get(); }

    void SetPresent(bool bPresent) { m_bPresent = bPresent; }
    int AgentFd() const { return m_agent.Get(); }

protected:
    int IoFd() const override { return m_modem.Get(); }

private:
    CUniqueFd m_modem;
    CUniqueFd m_agent;
    bool m_bPresent = true;
};

/// One simulated modem without the simulator's loop: packets go in by hand, what it sends is collected.
class CSimFixture
{
public:
    /// The configuration's text gives the packet layout and the filters.
    explicit CSimFixture(std::string strConfig = "", UESIM_OPTIONS stOptions = {}) : m_stOptions(std::move(stOptions))
    {
        m_log.SetQuiet(true);
        (void)m_config.ParseConfig(strConfig);
        CSimUe::Ports ports;
        for (unsigned int i = 0; i < SERIALNUM; ++i) {
            auto pPort = std::make_unique<CTestPort>(static_cast<enSerialType>(i));
            m_apPort[i] = pPort.get();
            ports[i] = std::move(pPort);
        }
        m_pUe = std::make_unique<CSimUe>(0, "ue0", std::move(ports), m_stOptions, *m_config.GetFilterCfg(), m_log);
        Open();
    }

    CSimUe& Ue() { return *m_pUe; }
    const CConfig& Config() const { return m_config; }
    CTestPort& Port(enSerialType enType) { return *m_apPort[enType]; }
    /// A time at which streams may run: the ports have been open for long enough.
    SimTime Now() const { return m_opened + CSimUe::SETTLE_TIME; }

    void Open()
    {
        m_opened = SimClock::now();
        m_pUe->Probe(m_opened);
    }

    /// The packets that the modem has sent on a port since the last call.
    std::vector<Bytes> Sent(enSerialType enType)
    {
        std::vector<Bytes> packets;
        CTestPort& port = Port(enType);
        for (bool bMore = true; bMore;) {
            (void)port.Write();
            unsigned char aucBuf[4096];
            const ssize_t nRead = read(port.AgentFd(), aucBuf, sizeof(aucBuf));
            bMore = nRead > 0;
            if (bMore)
                m_aCollector[enType].Feed({aucBuf, static_cast<size_t>(nRead)},
                                          [&](ByteView packet) { packets.push_back(Bytes(packet)); });
        }
        return packets;
    }

private:
    UESIM_OPTIONS m_stOptions;
    CConfig m_config;
    CSimLog m_log;
    std::array<CTestPort*, SERIALNUM> m_apPort{};
    std::unique_ptr<CSimUe> m_pUe;
    std::array<CFrameCollector, SERIALNUM> m_aCollector;
    SimTime m_opened{};
};
