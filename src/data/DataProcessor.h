#pragma once

#include "common/Bytes.h"
#include "common/Config.h"
#include "common/Types.h"
#include "data/AgentInterfaces.h"
#include "data/DiagPacket.h"

#include <atomic>
#include <memory>

/// Reads one configured field: usSize bytes of src at usOffset go to dst, which keeps its other bytes. False, and
/// nothing copied, when the size is 0, above 8 or above that of dst, or the offset above usLimit. Offset plus size
/// isn't checked against the limit; what lies beyond src reads as zero.
bool GetMemValue(ByteSpan dst, const VALUE_STRU& value, ByteView src, size_t szLimit);
/// Writes one configured field: usSize low bytes of src go to dst at usOffset. False, and nothing copied, as above
/// (with the size of src, and dst.size() as the limit). Bytes that would lie beyond dst are left out.
bool SetMemValue(ByteSpan dst, const VALUE_STRU& value, ByteView src);

/// Where the two directions of a client's channel meet. A client owns exactly one, chosen by its channel.
/// ProcessClientData runs on the main thread, ProcessSerialData on the agent message thread or the one that has read
/// the packet, never both at a time.
class CDataProcessor
{
public:
    CDataProcessor(IBindings* pBindings, IClientPort* pClient);
    virtual ~CDataProcessor() = default;
    CDataProcessor(const CDataProcessor&) = delete;
    CDataProcessor& operator=(const CDataProcessor&) = delete;

    /// One complete client record, lead bytes stripped; on the AT channel also raw socket bytes. Non-zero when a
    /// packet was given (its data isn't null).
    virtual int ProcessClientData(ByteView packet) = 0;
    /// One decoded UE packet. The bytes stay the caller's and may be rewritten in place. Non-zero when consumed.
    virtual int ProcessSerialData(ByteSpan data) = 0;

    /// The commands 0x50000040 and 0x50000050. True when the binding stands (unbind: always, with an agent).
    bool ProcessBind(const DIAG_PACKET_REQ_VIEW* pstReq);
    bool ProcessUnBind(const DIAG_PACKET_REQ_VIEW* pstReq);

    /// Builds one DIAG_PACKET_ACK_STRU and sends it; a payload above 8192 bytes is refused with a warning.
    void SendAckToClient(unsigned int ulCmdId, unsigned short usPktType, unsigned int ulRc, ByteView payload,
                         unsigned long long ullTimeStamp);

    void SetChannelBindPort(unsigned int ulPort) { m_ulBindPort = ulPort; }

protected:
    /// Carries out the two binding commands; false for any other id.
    bool ProcessBindCmd(const DIAG_PACKET_REQ_VIEW& stReq);
    unsigned int BindPort() const { return m_ulBindPort.load(std::memory_order_relaxed); }

    IClientPort* m_pClient; // the owner
    IBindings* m_pBindings;
    enChannelType m_enChannelType = CHANNEL_LTE_DIAG;
    std::atomic<unsigned int> m_ulBindPort = 0; // port of the bound UE, for log lines only
};
