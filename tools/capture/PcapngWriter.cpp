#include "capture/PcapngWriter.h"

#include "common/Record.h"

#include <cstdio>
#include <ctime>

namespace
{
constexpr size_t ALIGN = 4;

void Put(std::vector<unsigned char>& out, ByteView bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
}
template <std::unsigned_integral T> void PutLe(std::vector<unsigned char>& out, T value)
{
    std::array<unsigned char, sizeof(T)> aucField{};
    StoreLe<T>(aucField, 0, value);
    Put(out, aucField);
}
void Pad(std::vector<unsigned char>& out, size_t szFrom)
{
    const size_t szCount = out.size() - szFrom;
    out.resize(szFrom + (szCount + ALIGN - 1) / ALIGN * ALIGN);
}

/// One block: begun by the constructor, closed with its length by the destructor.
class CBlock
{
public:
    CBlock(std::vector<unsigned char>& out, uint32_t ulType) : m_out(out), m_szStart(out.size())
    {
        PutLe(m_out, ulType);
        PutLe(m_out, uint32_t{0}); // the length, known at the end
    }
    ~CBlock()
    {
        if (m_bOptions)
            PutLe(m_out, uint32_t{PCAPNG_OPT_END});
        const auto ulLength = static_cast<uint32_t>(m_out.size() - m_szStart + sizeof(uint32_t));
        StoreLe<uint32_t>(m_out, m_szStart + sizeof(uint32_t), ulLength);
        PutLe(m_out, ulLength);
    }
    CBlock(const CBlock&) = delete;
    CBlock& operator=(const CBlock&) = delete;

    void Option(uint16_t usCode, ByteView value)
    {
        m_bOptions = true;
        value = Slice(value, 0, UINT16_MAX);
        PutLe(m_out, usCode);
        PutLe(m_out, static_cast<uint16_t>(value.size()));
        const size_t szFrom = m_out.size();
        Put(m_out, value);
        Pad(m_out, szFrom);
    }
    void Option(uint16_t usCode, const std::string& strValue) { Option(usCode, AsBytes(strValue)); }
    template <std::unsigned_integral T> void Number(uint16_t usCode, T value)
    {
        std::array<unsigned char, sizeof(T)> aucValue{};
        StoreLe<T>(aucValue, 0, value);
        Option(usCode, aucValue);
    }

private:
    std::vector<unsigned char>& m_out;
    const size_t m_szStart;
    bool m_bOptions = false;
};

void PutTime(std::vector<unsigned char>& out, uint64_t ullNs)
{
    PutLe(out, static_cast<uint32_t>(ullNs >> 32));
    PutLe(out, static_cast<uint32_t>(ullNs));
}

// Tags of the exported PDU are in network order.
constexpr std::array<unsigned char, 20> PduTags(bool bInbound)
{
    return {0, PDU_TAG_DISSECTOR, 0, 4, 'v', 'e', 'x', 0,
            0, PDU_TAG_DIRECTION, 0, 4, 0,   0,   0,   static_cast<unsigned char>(bInbound ? 1 : 0),
            0, PDU_TAG_END,       0, 0};
}

std::string InterfaceName(const TAP_RECORD& stRecord)
{
    if (stRecord.enKind == TAP_KIND::STATUS)
        return "status";
    const bool bChannel = stRecord.ucChannel < CAPTURE_CHANNEL_NAMES.size();
    const std::string strChannel = bChannel ? CAPTURE_CHANNEL_NAMES[stRecord.ucChannel] : "";
    if (stRecord.ucUe == TAP_NO_UE)
        return bChannel ? strChannel : "agent";
    return "ue" + std::to_string(stRecord.ucUe) + (bChannel ? "-" + strChannel : "");
}

void PutInterface(std::vector<unsigned char>& out, const std::string& strName)
{
    constexpr uint8_t NANOSECONDS = 9; // 10^-9 s
    CBlock block(out, PCAPNG_INTERFACE);
    PutLe(out, LINK_EXPORTED_PDU);
    PutLe(out, uint16_t{0}); // reserved
    PutLe(out, uint32_t{0}); // packets of any length
    block.Option(PCAPNG_IF_NAME, strName);
    block.Option(PCAPNG_IF_DESCRIPTION, "Vex " + strName);
    block.Number(PCAPNG_IF_TSRESOL, NANOSECONDS);
}
} // namespace

std::string CAPTURE_RUN::Text() const
{
    const auto lSeconds = static_cast<time_t>(ullAgentStart / 1'000'000'000);
    tm stTime{};
    std::array<char, 32> szTime{};
    if (gmtime_r(&lSeconds, &stTime) != nullptr)
        (void)std::strftime(szTime.data(), szTime.size(), "%Y-%m-%dT%H:%M:%SZ", &stTime);
    std::array<char, 40> szRun{};
    (void)std::snprintf(szRun.data(), szRun.size(), "%016llx%016llx", static_cast<unsigned long long>(ullRunHigh),
                        static_cast<unsigned long long>(ullRunLow));
    return std::string("run ") + szRun.data() + ", agent since " + szTime.data() + ", bench " + strBench;
}

void CPcapngWriter::Begin(const CAPTURE_RUN& stRun, const std::string& strApplication)
{
    m_mapInterfaces.clear();
    m_vecRecords.clear();
    m_ullLost = 0;
    {
        CBlock block(m_vecOut, PCAPNG_SECTION);
        PutLe(m_vecOut, PCAPNG_BYTE_ORDER);
        PutLe(m_vecOut, uint16_t{1}); // version 1.0
        PutLe(m_vecOut, uint16_t{0});
        PutLe(m_vecOut, UINT64_MAX); // length of the section isn't known
        block.Option(PCAPNG_OPT_COMMENT, stRun.Text());
        block.Option(PCAPNG_SHB_HARDWARE, "bench " + stRun.strBench);
        block.Option(PCAPNG_SHB_OS, "Linux");
        block.Option(PCAPNG_SHB_APPLICATION, strApplication);
    }
    (void)InterfaceOf({.enKind = TAP_KIND::CONFIGURATION});
}

void CPcapngWriter::Record(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost, const std::string& strComment)
{
    const uint32_t ulInterface = InterfaceOf(stRecord);
    ++m_vecRecords[ulInterface];
    m_ullLost += ullLost;
    const bool bInbound = IsInbound(stRecord.enKind);
    const auto aucTags = PduTags(bInbound);
    const auto aucHead = EncodeRecord(CAPTURE_HEAD{
        .ucKind = static_cast<uint8_t>(stRecord.enKind),
        .ucUe = stRecord.ucUe,
        .ucChannel = stRecord.ucChannel,
        .ucFlags = stRecord.ucFlags,
        .ulPort = stRecord.ulPort,
        .ulClient = stRecord.ulClient,
        .ullNumber = stRecord.ullNumber,
    });
    const auto ulLength = static_cast<uint32_t>(aucTags.size() + aucHead.size() + bytes.size());

    CBlock block(m_vecOut, PCAPNG_PACKET);
    PutLe(m_vecOut, ulInterface);
    PutTime(m_vecOut, stRecord.ullTime);
    PutLe(m_vecOut, ulLength);
    PutLe(m_vecOut, ulLength); // as captured, as it was
    const size_t szFrom = m_vecOut.size();
    Put(m_vecOut, aucTags);
    Put(m_vecOut, aucHead);
    Put(m_vecOut, bytes);
    Pad(m_vecOut, szFrom);
    block.Number(PCAPNG_EPB_FLAGS, bInbound ? uint32_t{1} : uint32_t{2});
    if (ullLost > 0) {
        block.Number(PCAPNG_EPB_DROPS, ullLost);
        block.Option(PCAPNG_OPT_COMMENT, std::to_string(ullLost) + " records lost before this one");
    }
    if (!strComment.empty())
        block.Option(PCAPNG_OPT_COMMENT, strComment);
}

void CPcapngWriter::End(uint64_t ullTime, uint64_t ullLost)
{
    m_ullLost += ullLost;
    for (uint32_t i = 0; i < m_vecRecords.size(); ++i) {
        CBlock block(m_vecOut, PCAPNG_STATISTICS);
        PutLe(m_vecOut, i);
        PutTime(m_vecOut, ullTime);
        block.Number(PCAPNG_ISB_RECEIVED, m_vecRecords[i]);
        block.Number(PCAPNG_ISB_DROPPED, i == 0 ? m_ullLost : uint64_t{0});
    }
}

uint32_t CPcapngWriter::InterfaceOf(const TAP_RECORD& stRecord)
{
    const uint8_t ucStatus = stRecord.enKind == TAP_KIND::STATUS ? 1 : 0;
    const auto ulNext = static_cast<uint32_t>(m_vecRecords.size());
    const auto [entry, bNew] = m_mapInterfaces.try_emplace({ucStatus, stRecord.ucUe, stRecord.ucChannel}, ulNext);
    if (bNew) {
        m_vecRecords.push_back(0);
        PutInterface(m_vecOut, InterfaceName(stRecord));
    }
    return entry->second;
}
