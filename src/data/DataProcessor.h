#pragma once

#include "common/Bytes.h"
#include "common/Config.h"
#include "common/Types.h"
#include "data/AgentInterfaces.h"
#include "data/DiagPacket.h"

#include <atomic>
#include <memory>

/// Whether a field can be read or written: its size is 1 to 8 and not above that of the value, its offset not above
/// the limit. Offset plus size isn't checked against that.
constexpr bool IsFieldUsable(const VALUE_STRU& stField, size_t szLimit, size_t szValue)
{
    constexpr size_t FIELD_SIZE_MAX = 8;
    return stField.usSize != 0 && stField.usSize <= FIELD_SIZE_MAX && stField.usOffset <= szLimit &&
           stField.usSize <= szValue;
}

/// Reads one configured field into the low bytes of a value, whose other bytes stay. False, and the value as it was,
/// when the field isn't usable. What lies beyond src reads as zero.
template <std::unsigned_integral T> bool GetMemValue(T& value, const VALUE_STRU& stField, ByteView src, size_t szLimit)
{
    if (!IsFieldUsable(stField, szLimit, sizeof(T)))
        return false;
    const T kept = stField.usSize == sizeof(T) ? T{0} : static_cast<T>(static_cast<T>(-1) << (8 * stField.usSize));
    value = static_cast<T>((value & kept) | (LoadLe<T>(src, stField.usOffset) & ~kept));
    return true;
}
/// Writes one configured field: usSize low bytes of src go to dst at usOffset. False, and nothing copied, when the
/// field isn't usable with dst.size() as the limit. Bytes that would lie beyond dst are left out.
bool SetMemValue(ByteSpan dst, const VALUE_STRU& stField, ByteView src);

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
