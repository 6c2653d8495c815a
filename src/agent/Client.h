#pragma once

#include "agent/AtFrameSearch.h"
#include "common/Bytes.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/xtl.h"
#include "data/AgentInterfaces.h"

#include <array>
#include <memory>
#include <netinet/in.h>
#include <span>
#include <string>
#include <vector>

class CDataProcessor;

/// The processor of a channel type; null for a value that is no channel.
std::unique_ptr<CDataProcessor> CreateDataProcessor(enChannelType enType, IBindings* pBindings, IClientPort* pClient);

/// One connected client: its socket, the reassembly of its request frames and its data processor.
/// Always held by a shared pointer: the agent's client list owns it, and a thread that sends to it without the
/// agent's lock holds it for that long. Requests are read on the main thread only.
class CClient : public IClientPort
{
public:
    static constexpr size_t REQ_BUF_LEN = 10240; // a frame never gets as long as this

    /// Takes the socket. A type that is no channel leaves the client without a processor.
    CClient(int nSocket, enChannelType enType, IBindings* pBindings);
    ~CClient() override;
    CClient(const CClient&) = delete;
    CClient& operator=(const CClient&) = delete;

    /// Bytes of one read from the socket: frames go to the processor. On the AT channel, where a terminal may talk
    /// as it is, all else goes there too, at once and in order, as raw text; but not from a read of fewer than three
    /// bytes.
    void OnClientData(ByteView data);
    struct TAKEN_FRAME
    {
        size_t szTaken = 0; // bytes taken, up to the end of one frame
        ByteView frame;     // the frame that they complete, lead bytes cut off; valid until the next call
    };
    TAKEN_FRAME GetDiagReqPacket(ByteView data);
    /// One packet from the UE, for the processor.
    void OnSerialData(ByteSpan data);
    /// While one exists, packets for the client are held back as long as little is held; its end sends them. One at
    /// a time, for a moment: it's meant for packets that are all there already.
    class CSendTogether
    {
    public:
        explicit CSendTogether(CClient& client) : m_client(client) { m_client.SetHolding(true); }
        ~CSendTogether() { m_client.SetHolding(false); }
        CSendTogether(const CSendTogether&) = delete;
        CSendTogether& operator=(const CSendTogether&) = delete;

    private:
        CClient& m_client;
    };

    bool SendData2Client(CPacket packet) override;
    void SendAck(unsigned int ulCmdId, unsigned short usPktType, unsigned int ulRc, ByteView payload,
                 unsigned long long ullTimeStamp);

    /// Holds the client.
    std::shared_ptr<CClient> Hold() { return std::static_pointer_cast<CClient>(shared_from_this()); }

    int GetClientSocket() const { return m_Socket.Get(); }
    enChannelType GetClientType() const override { return m_enType; }
    sockaddr_in& GetAddress() { return m_stAddr; }
    /// Dotted text of the peer's address.
    std::string GetAddressText() const;
    void SetBindUePort(unsigned int ulPort);

private:
    bool IsFrameComplete() const;
    void TakeByte(unsigned char ucByte);
    ByteView CollectFrame(ByteView data);
    void OnAtData(ByteView data);
    void ProcessRawText(std::vector<unsigned char>& text);
    void SetHolding(bool bHolding);
    void SendHeld() REQUIRES(m_SendMutex);
    void SendPackets(ByteView packets, std::span<const size_t> ends) REQUIRES(m_SendMutex);

    std::unique_ptr<CDataProcessor> m_pProcessor;
    CUniqueFd m_Socket;
    enChannelType m_enType;
    std::array<unsigned char, REQ_BUF_LEN> m_aucReqBuf{}; // the frame being assembled, lead bytes included
    size_t m_nReqLen = 0;                                 // bytes held of it
    CAtFrameSearch m_AtSearch;                            // AT channel: what comes between frames
    sockaddr_in m_stAddr{};
    unsigned int m_ulBindPort = 0;                   // COM port of the bound UE, also after an unbind; 0 until bound
    xtl::Mutex m_SendMutex;                          // keeps a packet together; held while the socket is waited for
    bool m_bStalled GUARDED_BY(m_SendMutex) = false; // the last send failed
    bool m_bHolding GUARDED_BY(m_SendMutex) = false; // a CSendTogether exists
    std::unique_ptr<unsigned char[]> m_pHeld GUARDED_BY(m_SendMutex); // packets not sent yet; null until the first time
    size_t m_szHeld GUARDED_BY(m_SendMutex) = 0;                      // their bytes
    std::vector<size_t> m_vecHeldEnd GUARDED_BY(m_SendMutex);         // where each of them ends
};
