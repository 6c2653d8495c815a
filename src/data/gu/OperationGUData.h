#pragma once

#include "common/Bytes.h"

class CAgent;
class CClient;

/// All GU state of one UE. Lives as long as the agent. Requests come on the main thread, UE packets on the agent
/// message thread.
class COperationGUData
{
public:
    COperationGUData();
    ~COperationGUData();

    /// One block from the UE's GU command channel.
    void ProcessSerialData(CAgent* pAgent, ByteSpan data, unsigned char ucUeIdx);
    /// A client request (DIAG_PACKET_REQ_STRU, lead bytes stripped).
    int TranslateProbePacket(ByteView req, CAgent* pAgent, CClient* pClient);
    /// The UE went away.
    void ClearData();
    /// A client goes away: nothing points to it afterwards.
    void ForgetClient(CClient* pClient);
};
