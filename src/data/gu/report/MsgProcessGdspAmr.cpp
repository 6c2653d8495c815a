#include "data/gu/report/MsgProcessGdspAmr.h"

#include "data/gu/base/Percent.h"
#include "data/gu/base/RecordList.h"
#include "data/gu/report/ReportOperation.h"
#include "data/gu/report/ReportRecords.h"

#include <limits>

namespace
{
constexpr unsigned short PACKET_SETTING = 0xE589;
constexpr unsigned short PACKET_USAGE = 0xE58C;
constexpr unsigned short PACKET_STAT_SECOND = 0xE593;
constexpr unsigned short PACKET_STAT_FIRST = 0xE590;

// Both messages with modes: u16 count, then from offset 4 four u16 modes.
constexpr size_t AMR_MODES = 4;
constexpr size_t AMR_MODE_MAX = 4;

unsigned short ModeCount(ByteView payload)
{
    return LoadLe<uint16_t>(payload, 0);
}
unsigned short Mode(ByteView payload, size_t szMode)
{
    return LoadLe<uint16_t>(payload, AMR_MODES + 2 * szMode);
}

// Setting: between four modes there are three borders, each with a hysteresis and a threshold; the bounds of
// the report are half of these.
constexpr size_t SETTING_HYSTERESIS = 12; // u16[3]
constexpr size_t SETTING_THRESHOLD = 18;  // u16[3]
constexpr size_t SETTING_BORDERS = AMR_MODE_MAX - 1;
constexpr unsigned short NO_BORDER = 0xFFFF;

unsigned short Border(ByteView payload, size_t szOffset, size_t szBorder)
{
    return szBorder < SETTING_BORDERS ? LoadLe<uint16_t>(payload, szOffset + 2 * szBorder) : NO_BORDER;
}

/// The lowest mode starts at half of the smallest normal float.
float LowerBound(ByteView payload, size_t szMode)
{
    const double dDouble =
        szMode == 0 ? std::numeric_limits<float>::min() : Border(payload, SETTING_THRESHOLD, szMode - 1);
    return static_cast<float>(dDouble / 2.0);
}

/// The highest mode ends at half of the largest float.
float UpperBound(ByteView payload, size_t szMode)
{
    const double dDouble = szMode == SETTING_BORDERS ? std::numeric_limits<float>::max()
                                                     : Border(payload, SETTING_THRESHOLD, szMode) +
                                                           Border(payload, SETTING_HYSTERESIS, szMode);
    return static_cast<float>(dDouble / 2.0);
}

// Usage.
constexpr size_t USAGE_FIRST = 12;  // u32[4]
constexpr size_t USAGE_SECOND = 28; // u32[4]

// Statistics: four blocks of eight u32 counters, two for each report.
constexpr size_t CODECS = 8;
constexpr size_t STAT_BLOCK = CODECS * 4;

/// A row of u32 counters.
class CCounters
{
public:
    CCounters(ByteView bytes, size_t szOffset, size_t szCount) : m_bytes(Slice(bytes, szOffset))
    {
        for (size_t i = 0; i < szCount; ++i)
            m_ullSum += At(i);
    }
    float Share(size_t szIndex) const { return PercentOrZero(At(szIndex), static_cast<double>(m_ullSum)); }

private:
    unsigned int At(size_t szIndex) const { return LoadLe<uint32_t>(m_bytes, 4 * szIndex); }

    ByteView m_bytes;
    unsigned long long m_ullSum = 0;
};
} // namespace

bool CAmrSettingMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    const size_t szCount = ModeCount(payload);
    if (szCount > AMR_MODE_MAX)
        return false;
    if (!IsReportDue(PACKET_SETTING, GuTimeStamp(packet)))
        return true;
    CRecordList<AMR_Setting_STRU, AMR_MODE_MAX> records;
    for (size_t i = 0; i < szCount; ++i)
        records.Add({Mode(payload, i), Mode(payload, i), Border(payload, SETTING_HYSTERESIS, i),
                     Border(payload, SETTING_THRESHOLD, i), LowerBound(payload, i), UpperBound(payload, i)});
    SendReport(PACKET_SETTING, GuTimeStamp(packet), records.Bytes());
    return true;
}

// Shares of the first and of the second counters.
bool CAmrCodecUsageMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    const size_t szCount = ModeCount(payload);
    if (szCount > AMR_MODE_MAX)
        return false;
    if (!IsReportDue(PACKET_USAGE, GuTimeStamp(packet)))
        return true;
    const CCounters first(payload, USAGE_FIRST, szCount);
    const CCounters second(payload, USAGE_SECOND, szCount);
    CRecordList<AMR_Usage_STRU, AMR_MODE_MAX> records;
    for (size_t i = 0; i < szCount; ++i)
        records.Add({Mode(payload, i), Mode(payload, i), first.Share(i), second.Share(i)});
    SendReport(PACKET_USAGE, GuTimeStamp(packet), records.Bytes());
    return true;
}

bool CAmrCodecStatMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    Report(PACKET_STAT_SECOND, Slice(payload, 2 * STAT_BLOCK), GuTimeStamp(packet));
    Report(PACKET_STAT_FIRST, payload, GuTimeStamp(packet));
    return true;
}

// For each codec its shares in the first and in the second block.
void CAmrCodecStatMsg::Report(unsigned short usPacket, ByteView blocks, unsigned int ulTimeStamp)
{
    if (!IsReportDue(usPacket, ulTimeStamp))
        return;
    const CCounters first(blocks, 0, CODECS);
    const CCounters second(blocks, STAT_BLOCK, CODECS);
    std::array<unsigned char, CODECS * AMR_Codec_STRU::SIZE> aucReport{};
    CByteWriter writer(aucReport);
    for (size_t i = 0; i < CODECS; ++i) {
        const AMR_Codec_STRU stCodec = {static_cast<uint16_t>(i), first.Share(i), second.Share(i)};
        AMR_Codec_STRU::Fields(writer, stCodec);
    }
    SendReport(usPacket, ulTimeStamp, aucReport);
}
