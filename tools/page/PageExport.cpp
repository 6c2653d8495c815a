#include "page/PageExport.h"

#include "page/ViewJson.h"

#include <nlohmann/json.hpp>

namespace
{
/// Writes the file while the records pass.
class CCaptureExport
{
public:
    CCaptureExport(const CPacketSnapshot& snapshot, uint64_t ullFrom, std::optional<uint8_t> ue)
        : m_ullFrom(ullFrom), m_ue(ue), m_picture(snapshot.Picture()), m_stRun(snapshot.Run())
    {
    }

    void Take(const KEPT_PACKET& stPacket)
    {
        const TAP_RECORD& stRecord = stPacket.stRecord;
        if (stRecord.enKind == CPacketStore::RUN_KIND) {
            m_stRun = RunOf(stPacket.bytes);
            m_picture.Clear();
            return;
        }
        if (!m_bBegun && stRecord.ullTime < m_ullFrom) {
            m_picture.Take(stRecord, stPacket.bytes);
            return;
        }
        Begin();
        m_ullLost += stPacket.ullLost;
        if (!Passes(stRecord))
            return;
        Write(stRecord, stPacket.bytes, m_ullLost);
        m_ullLost = 0;
    }

    std::string Finish(uint64_t ullNow)
    {
        Begin();
        m_writer.End(ullNow, m_ullLost);
        return {m_vecBytes.begin(), m_vecBytes.end()};
    }

private:
    void Begin()
    {
        if (m_bBegun)
            return;
        m_bBegun = true;
        m_writer.Begin(m_stRun, "vex-page");
        m_picture.ForEach([this](const TAP_RECORD& stRecord, ByteView bytes) {
            if (Passes(stRecord))
                Write(stRecord, bytes, 0);
        });
    }

    bool Passes(const TAP_RECORD& stRecord) const
    {
        return !m_ue || stRecord.ucUe == *m_ue || stRecord.enKind == TAP_KIND::CONFIGURATION;
    }

    void Write(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost)
    {
        const bool bConfiguration = stRecord.enKind == TAP_KIND::CONFIGURATION;
        m_writer.Record(stRecord, bytes, ullLost, bConfiguration ? m_stRun.Text() : std::string());
    }

    const uint64_t m_ullFrom;
    const std::optional<uint8_t> m_ue;
    CCapturePicture m_picture;
    CAPTURE_RUN m_stRun;
    std::vector<unsigned char> m_vecBytes;
    CPcapngWriter m_writer{m_vecBytes};
    bool m_bBegun = false;
    uint64_t m_ullLost = 0;
};
} // namespace

std::string CaptureFile(const CPacketSnapshot& snapshot, uint64_t ullFrom, uint64_t ullNow, std::optional<uint8_t> ue)
{
    CCaptureExport capture(snapshot, ullFrom, ue);
    snapshot.ForEach([&](const KEPT_PACKET& stPacket) {
        capture.Take(stPacket);
        return true;
    });
    return capture.Finish(ullNow);
}

std::string PlotCsv(const std::vector<PLOT_LINE>& lines, std::span<const PLOT_POINT> points)
{
    std::string strText = "time";
    for (const PLOT_LINE& stLine : lines)
        strText += ',' + stLine.strName;
    strText += "\r\n"; // RFC 4180
    for (const PLOT_POINT& stPoint : points) {
        strText += IsoTime(stPoint.dTime);
        for (size_t i = 0; i < lines.size(); ++i) {
            strText += ',';
            if ((stPoint.ullHas >> i & 1) != 0)
                strText += PlotNumber(lines[i], stPoint.vecValues[i]).dump();
        }
        strText += "\r\n";
    }
    return strText;
}
