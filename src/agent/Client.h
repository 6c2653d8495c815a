#pragma once

#include "agent/AtFrameSearch.h"
#include "agent/ClientOut.h"
#include "common/Bytes.h"
#include "common/LineLoad.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/xtl.h"
#include "data/AgentInterfaces.h"

#include <array>
#include <atomic>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <vector>

class CDataProcessor;

/// The processor of a channel type; null for a value that is no channel.
std::unique_ptr<CDataProcessor> CreateDataProcessor(enChannelType enType, IBindings* pBindings, IClientPort* pClient);

/// One connected client: its socket, the reassembly of its request frames and its data processor.
/// Always held by a shared pointer: the agent's client list owns it, and a thread that sends to it without the
/// agent's lock holds it for that long. Requests are read on the main thread only; a client that sends them faster than
/// its UE takes them is held back there.
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
    /// bytes. What comes behind a request that the UE needs time for is kept, until MustWait says no.
    void OnClientData(ByteView data);
    /// The same for what was kept.
    void OnKeptData();
    bool HasKept() const { return !m_vecKept.empty(); }
    /// Whether nothing more is to be read or handled yet: packets of the last request, or the pauses behind them, are
    /// not over, or the line of the client's UE has no room. Then CMsgBuf's RoomWake wakes whoever has to ask again.
    bool MustWait();
    /// What MustWait said last.
    bool IsHeldBack() const { return m_bHeldBack; }
    /// Whether the peer sends nothing more. What it sent may still be there, and it may still read.
    bool HasEnded() const;
    /// From now on it isn't held back for pauses.
    void SkipPauses() { m_bSkipsPauses = true; }
    struct TAKEN_FRAME
    {
        size_t szTaken = 0; // bytes taken, up to the end of one frame
        ByteView frame;     // the frame that they complete, lead bytes cut off; valid until the next call
    };
    TAKEN_FRAME GetDiagReqPacket(ByteView data);
    /// One packet from the UE, for the processor.
    void OnSerialData(ByteSpan data);
    /// Held while a request is handled, and on the LTE data channel while packets from the UE are, which take no lock
    /// of all clients: a processor has one user at a time. Only the locks of rows and sends are taken with it held.
    xtl::Mutex& ProcessorMutex() RETURN_CAPABILITY(m_ProcessorMutex) { return m_ProcessorMutex; }
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

    [[nodiscard]] bool SendData2Client(ByteView head, ByteView payload) override;
    /// Woken when the times below change so that they come earlier. Set once, before the client is known to others.
    void SetWakeUp(CWakeUp& wake) { m_pWake = &wake; }
    /// Whether LookAtOutput has to be called at some time.
    bool HasOutput() const { return m_bHasOutput; }
    struct OUTPUT
    {
        bool bWaiting;           // when the socket takes bytes
        CClientOut::TIME nextAt; // then at the latest
    };
    OUTPUT Output();
    /// Sends what waits, as far as it goes, and gives up what has waited too long.
    void LookAtOutput();
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
    /// The UE that the client is bound to, or UE_NONE, as the channel table has it.
    UE_INDEX BoundUe() const { return m_ulBoundUe; }
    void SetBoundUe(UE_INDEX ulUeIdx) { m_ulBoundUe = ulUeIdx; }
    /// COM port of the bound UE, also after an unbind; 0 until bound.
    unsigned int BoundPort() const { return m_ulBindPort; }
    /// Counts the clients of the run from 1.
    uint32_t Number() const { return m_ulNumber; }
    uint64_t ConnectedSince() const { return m_ullConnected; } // ns since 1970
    /// The line that feeds the client: what waits for the client counts as on its way from there, so that a line that
    /// is faster than its client isn't read meanwhile.
    void SetSource(CLineLoad* pSource);

private:
    bool IsFrameComplete() const;
    void TakeByte(unsigned char ucByte);
    ByteView CollectFrame(ByteView data);
    void OnAtData(ByteView data);
    void ProcessRawText(std::vector<unsigned char>& text);
    CLineLoad* Load() const;
    bool IsBlocked() const;
    void SetHolding(bool bHolding);
    void Watch() REQUIRES(m_SendMutex);

    IBindings* m_pBindings;
    xtl::Mutex m_ProcessorMutex;
    std::unique_ptr<CDataProcessor> m_pProcessor;
    CUniqueFd m_Socket;
    enChannelType m_enType;
    std::array<unsigned char, REQ_BUF_LEN> m_aucReqBuf{}; // the frame being assembled, lead bytes included
    size_t m_nReqLen = 0;                                 // bytes held of it
    CAtFrameSearch m_AtSearch;                            // AT channel: what comes between frames
    sockaddr_in m_stAddr{};
    uint32_t m_ulNumber;
    uint64_t m_ullConnected;
    std::atomic<UE_INDEX> m_ulBoundUe = UE_NONE;
    std::atomic<unsigned int> m_ulBindPort = 0;
    std::vector<unsigned char> m_vecKept; // read and not handled yet
    CLineLoad* m_pPacedLoad = nullptr;    // line of the last request with pauses; null for none
    uint64_t m_ullPacedUntil = 0;         // its PacedDone when that request is over
    bool m_bHeldBack = false;
    bool m_bSkipsPauses = false;
    CWakeUp* m_pWake = nullptr;
    xtl::Mutex m_SendMutex; // keeps a packet together; never held across a wait
    CClientOut m_Out GUARDED_BY(m_SendMutex);
    OUTPUT m_stOutput GUARDED_BY(m_SendMutex){false, CClientOut::TIME::max()}; // as the wake-up was told last
    CLineLoad* m_pSource GUARDED_BY(m_SendMutex) = nullptr;                    // null until bound
    CLineCharge m_Backlog GUARDED_BY(m_SendMutex);
    std::atomic<bool> m_bHasOutput = false;
};
