#pragma once

#include "capture/PcapngWriter.h"
#include "fleet/FleetFormat.h"
#include "fleet/Hub.h"
#include "support/TestBytes.h"

#include <map>
#include <string>

/// Bytes of a segment as vex-capture would have written it: a picture, then one record a second from ullStart (ns) on,
/// of UE 3's data channel and, every third, of UE 5's AT port.
Bytes SegmentOf(uint64_t ullStart, unsigned int ulRecords);
/// Its name: "vex_20231114T221320.000Z_0000000001".
std::string SegmentName(uint64_t ullStart);

/// A bench that puts segments into the stream by the rules of FleetFormat.h, one message after the other, and does
/// nothing by itself.
class CHubBench
{
public:
    /// Connects with a certificate of strCertName. strEpoch: of the installation.
    CHubBench(HUB_OPTIONS stOptions, std::string strBench, std::string strEpoch = "e1");
    bool IsConnected() const { return m_pHub != nullptr; }

    /// Sends a segment, a few blocks a message, lane by lane in the order given. szMost: blocks of each lane, for one
    /// that has not got all of it to the hub. The first failure's status ends it.
    natsStatus Send(const std::string& strSegment, const Bytes& segment, size_t szMost = SIZE_MAX);
    natsStatus SendLoss(const std::string& strSegment, uint64_t ullOffset);
    natsStatus PutState(const std::string& strJson);
    /// Publishes something under another bench's name.
    natsStatus PublishAs(const std::string& strOther);

private:
    natsStatus Publish(const FLEET_LANE& lane, const FLEET_MESSAGE& stMessage);

    std::string m_strBench;
    std::string m_strEpoch;
    std::unique_ptr<CHub> m_pHub;
    JsContext m_pJs;
    std::map<FLEET_LANE, uint64_t> m_mapLast; // sequence of each lane's last message
};
