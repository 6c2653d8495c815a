#pragma once

#include "common/Bytes.h"
#include "common/Types.h"

/// Modems of a dual card UE.
enum DSDA_MODEM_ID_ENUM : unsigned int
{
    MODEM_ID_0 = 0,
    MODEM_ID_1 = 1,
};

/// The GU link of one UE: its set-up, and what the agent asks the UE by itself. The UE's thread only.
class CGuLink
{
public:
    /// Asks a UE that has just come for the link.
    static void SendLinkRequest(UE_INDEX ulUeIdx);
    /// Whether the packet is the UE's answer to the link request; the first one puts the link up.
    bool JudgeJIANLIANCMD(ByteView packet);
    /// The UE went away.
    void Down() { m_bJianLian = false; }

    /// Wraps an OM message and sends it on CHANNEL_GU_CMD.
    static void SendGUReq2UE(ByteView msg, UE_INDEX ulUeIdx);
    // What follows the set-up, and what the UE's answers lead to.
    static void EnableTransMsg(UE_INDEX ulUeIdx);
    static void SendUeInfoReqToUe(UE_INDEX ulUeIdx);
    static void QueryUeModemNum(UE_INDEX ulUeIdx);
    static void ModeQuery(DSDA_MODEM_ID_ENUM enModemId, UE_INDEX ulUeIdx);

private:
    bool m_bJianLian = false; // the link is up
};
