#pragma once

#include "common/Types.h"
#include "common/UeConnectionAck.h"
#include "common/xtl.h"
#include "ue/PortWorker.h"
#include "ue/Serial.h"

#include <array>
#include <functional>
#include <optional>
#include <string>

/// One UE: the four ports of one modem, known by a group id. Attach and detach come one at a time, under the UE
/// manager's lock, and never wait; what takes time is done by the UE's worker. The other operations are safe from any
/// thread.
class CUE
{
public:
    CUE();
    CUE(const CUE&) = delete;
    CUE& operator=(const CUE&) = delete;

    /// The group id; empty while the slot is free.
    std::string GetGroupid() const EXCLUDES(m_DataLock);
    void SetGroupid(const std::string& strGroupid) EXCLUDES(m_DataLock);
    UE_INDEX GetUEIdx() const { return m_ulUEIdx; }
    void SetUEIdx(UE_INDEX ue) { m_ulUEIdx = ue; }
    /// What follows when a port could not be opened; set once. Runs on the worker.
    void SetOnOpenFailed(std::function<void(enSerialType)> fnOpenFailed) { m_fnOpenFailed = std::move(fnOpenFailed); }
    /// Handles the attach of a port that came while it was being opened, if there was one.
    bool AttachKept(enSerialType enType);

    /// Null for a type that doesn't exist.
    CSerial* GetSerial(enSerialType enType);
    /// What frames the bytes of that channel; the AT port's when there is no such channel.
    CChildChannel& GetSerialChannel(enChannelType enType);
    /// True while any port is open, or opens after an attach.
    bool IsUEPresent() const;
    /// True when the port has a name; that of the AT port may be closed and yet attached.
    bool IsAttached(enSerialType enType);
    /// No closed port has a name or number any more.
    void ForgetPorts();
    CPortWorker& Worker() { return m_Worker; }

    /// Gives the port its name and number, and has it opened. A second after that an attach message for each of its
    /// channels is posted, behind those of the UE's earlier ports. An AT port is left closed until the first write: its
    /// message is posted without that second. Nothing happens when the port is open already; while it opens, the attach
    /// is kept for the case that this fails. bRepeated: a further try of the agent's own, quiet as long as nothing
    /// changes.
    void OnSerialAttach(const std::string& strName, enSerialType enType, unsigned int uiPort, bool bRepeated = false);
    /// Closes the port and posts a detach message for each of its channels; an opening ends. With its last port gone,
    /// the UE forgets its group id.
    void OnSerialDetach(enSerialType enType);
    /// An attach with that number that was kept counts no more.
    void ForgetKept(unsigned int uiPort) EXCLUDES(m_DataLock);
    /// Opens a port that opens by write. The write thread.
    void OpenForWrite(enSerialType enType);

    // What the agent keeps of the UE's host connect confirmation; all zero while there is none.
    ADE_UE_CONNECTION_ACK_STRU GetUEConnectionAck() const EXCLUDES(m_DataLock);
    void SetUEConnectionAck(const ADE_UE_CONNECTION_ACK_STRU& stConnectionAck) EXCLUDES(m_DataLock);
    void ClearUEConnectionAck() { SetUEConnectionAck({}); }

private:
    struct PORT_ATTACH
    {
        std::string strName; // of the device
        unsigned int uiPort = UNUSED_PORT_NUM;
        bool bRepeated = false;
    };

    static void Forget(CSerial& serial);
    void Identify(CSerial& serial, const PORT_ATTACH& stAttach);
    void ReportUnopened(CSerial& serial, const PORT_ATTACH& stAttach);
    void OpenPort(CSerial& serial, uint64_t ullOpening, const PORT_ATTACH& stAttach);
    bool OpenAndSettle(CSerial& serial, uint64_t ullOpening, bool bRepeated);
    void PostAttachOf(const CSerial& serial, const PORT_ATTACH& stAttach) const;
    std::optional<PORT_ATTACH> TakeKept(enSerialType enType) EXCLUDES(m_DataLock);
    void Keep(enSerialType enType, std::optional<PORT_ATTACH> stAttach) EXCLUDES(m_DataLock);

    std::array<CSerial, SERIALNUM> m_aSerial; // by enSerialType
    mutable xtl::Mutex m_DataLock;            // taken last, for a copy only
    std::string m_strGroupid GUARDED_BY(m_DataLock);
    UE_INDEX m_ulUEIdx = 0; // set once, before any thread starts
    std::function<void(enSerialType)> m_fnOpenFailed = [](enSerialType) {};
    ADE_UE_CONNECTION_ACK_STRU m_stConnectionAck GUARDED_BY(m_DataLock);
    /// By enSerialType: an attach that came while the port was opening.
    std::array<std::optional<PORT_ATTACH>, SERIALNUM> m_aKept GUARDED_BY(m_DataLock);
    CPortWorker m_Worker; // last: its thread uses the rest
};

/// Posts the attach message of one channel: the connect block with port number, device name and group id.
void PostAttach(UE_INDEX ue, enChannelType enChannel, unsigned int uiPort, const std::string& strName,
                const std::string& strGroupid);
/// Posts the detach message of one channel.
void PostDetach(UE_INDEX ue, enChannelType enChannel);
