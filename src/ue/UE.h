#pragma once

#include "common/Types.h"
#include "common/UeConnectionAck.h"
#include "common/xtl.h"
#include "ue/Serial.h"

#include <array>
#include <string>

/// One UE: the four ports of one modem, known by a group id. Attach and detach come one at a time, under the UE
/// manager's lock; the other operations are safe from any thread.
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

    /// Null for a type that doesn't exist.
    CSerial* GetSerial(enSerialType enType);
    /// What frames the bytes of that channel; the AT port's when there is no such channel.
    CChildChannel& GetSerialChannel(enChannelType enType);
    /// True while any port is open.
    bool IsUEPresent() const;

    /// Gives the port its name and number, opens it and posts an attach message for each of its channels. An AT
    /// port is left closed until the first write. Nothing happens when the port is open already.
    void OnSerialAttach(const std::string& strName, enSerialType enType, unsigned int uiPort);
    /// Closes the port and posts a detach message for each of its channels. With its last open port gone, the UE
    /// forgets its group id.
    void OnSerialDetach(enSerialType enType);

    // What the agent keeps of the UE's host connect confirmation; all zero while there is none.
    ADE_UE_CONNECTION_ACK_STRU GetUEConnectionAck() const EXCLUDES(m_DataLock);
    void SetUEConnectionAck(const ADE_UE_CONNECTION_ACK_STRU& stConnectionAck) EXCLUDES(m_DataLock);
    void ClearUEConnectionAck() { SetUEConnectionAck({}); }

private:
    std::array<CSerial, SERIALNUM> m_aSerial; // by enSerialType
    mutable xtl::Mutex m_DataLock;            // taken last, for a copy only
    std::string m_strGroupid GUARDED_BY(m_DataLock);
    UE_INDEX m_ulUEIdx = 0; // set once, before any thread starts
    ADE_UE_CONNECTION_ACK_STRU m_stConnectionAck GUARDED_BY(m_DataLock);
};

/// Posts the attach message of one channel: the connect block with port number, device name and group id.
void PostAttach(UE_INDEX ue, enChannelType enChannel, unsigned int uiPort, const std::string& strName,
                const std::string& strGroupid);
/// Posts the detach message of one channel.
void PostDetach(UE_INDEX ue, enChannelType enChannel);
