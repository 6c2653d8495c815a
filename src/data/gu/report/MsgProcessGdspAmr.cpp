#include "data/gu/report/MsgProcessGdspAmr.h"

#include "data/gu/base/Percent.h"
#include "data/gu/report/ReportOperation.h"

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
constexpr size_t SETTING_ENTRY_SIZE = 16;
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
constexpr size_t USAGE_ENTRY_SIZE = 12;

// Statistics: four blocks of eight u32 counters, two for each report.
constexpr size_t CODECS = 8;
constexpr size_t STAT_BLOCK = CODECS * 4;
constexpr size_t STAT_ENTRY_SIZE = 12;

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

// u32 count, then for each mode u16 mode, u16 mode again, u16 hysteresis, u16 threshold, float lower and upper bound.
bool CAmrSettingMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    const size_t szCount = ModeCount(payload);
    if (szCount > AMR_MODE_MAX)
        return false;
    if (!IsReportDue(PACKET_SETTING, GuTimeStamp(packet)))
        return true;
    std::array<unsigned char, 4 + AMR_MODE_MAX * SETTING_ENTRY_SIZE> aucReport{};
    CByteWriter writer(aucReport);
    writer.Field(static_cast<uint32_t>(szCount));
    for (size_t i = 0; i < szCount; ++i) {
        writer.Field(uint16_t{Mode(payload, i)});
        writer.Field(uint16_t{Mode(payload, i)});
        writer.Field(uint16_t{Border(payload, SETTING_HYSTERESIS, i)});
        writer.Field(uint16_t{Border(payload, SETTING_THRESHOLD, i)});
        writer.Field(LowerBound(payload, i));
        writer.Field(UpperBound(payload, i));
    }
    SendReport(PACKET_SETTING, GuTimeStamp(packet), Slice(ByteView(aucReport), 0, 4 + szCount * SETTING_ENTRY_SIZE));
    return true;
}

// u32 count, then for each mode u16 mode, u16 mode again, float share of the first and of the second counters.
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
    std::array<unsigned char, 4 + AMR_MODE_MAX * USAGE_ENTRY_SIZE> aucReport{};
    CByteWriter writer(aucReport);
    writer.Field(static_cast<uint32_t>(szCount));
    for (size_t i = 0; i < szCount; ++i) {
        writer.Field(uint16_t{Mode(payload, i)});
        writer.Field(uint16_t{Mode(payload, i)});
        writer.Field(first.Share(i));
        writer.Field(second.Share(i));
    }
    SendReport(PACKET_USAGE, GuTimeStamp(packet), Slice(ByteView(aucReport), 0, 4 + szCount * USAGE_ENTRY_SIZE));
    return true;
}

bool CAmrCodecStatMsg::ProcessInd(ByteView packet)
{
    const ByteView payload = GuPayload(packet);
    Report(PACKET_STAT_SECOND, Slice(payload, 2 * STAT_BLOCK), GuTimeStamp(packet));
    Report(PACKET_STAT_FIRST, payload, GuTimeStamp(packet));
    return true;
}

// For each codec u16 index, u16 0, float share in the first and in the second block.
void CAmrCodecStatMsg::Report(unsigned short usPacket, ByteView blocks, unsigned int ulTimeStamp)
{
    if (!IsReportDue(usPacket, ulTimeStamp))
        return;
    const CCounters first(blocks, 0, CODECS);
    const CCounters second(blocks, STAT_BLOCK, CODECS);
    std::array<unsigned char, CODECS * STAT_ENTRY_SIZE> aucReport{};
    CByteWriter writer(aucReport);
    for (size_t i = 0; i < CODECS; ++i) {
        writer.Field(static_cast<uint16_t>(i));
        writer.Gap(2);
        writer.Field(first.Share(i));
        writer.Field(second.Share(i));
    }
    SendReport(usPacket, ulTimeStamp, aucReport);
}
