#include "capture/PcapngReader.h"

#include "common/Record.h"

#include <algorithm>
#include <optional>

namespace
{
constexpr size_t MAX_BLOCK = 256 * 1024 * 1024; // an eighth of the largest ring is half of it
constexpr size_t READ_PIECE = 64 * 1024;        // a length that the file doesn't hold costs no memory
constexpr size_t PACKET_HEAD = 20;

constexpr size_t Padded(size_t szCount)
{
    return (szCount + 3) / 4 * 4;
}

/// The next option, or none at their end; moves the view behind it.
struct OPTION
{
    uint16_t usCode = 0;
    ByteView value;
};
std::optional<OPTION> NextOption(ByteView& options)
{
    constexpr size_t HEAD = 4;
    if (options.size() < HEAD || LoadLe<uint16_t>(options, 0) == PCAPNG_OPT_END)
        return std::nullopt;
    const size_t szLength = LoadLe<uint16_t>(options, 2);
    const OPTION stOption{LoadLe<uint16_t>(options, 0), Slice(options, HEAD, szLength)};
    options = Slice(options, HEAD + Padded(szLength));
    return stOption;
}

/// Ns of a tick of 10^-n s; 0 for units that no program of ours writes.
uint64_t NsPerTick(uint8_t ucResolution)
{
    constexpr uint8_t NANOSECONDS = 9;
    uint64_t ullNs = ucResolution <= NANOSECONDS ? 1 : 0;
    for (uint8_t uc = ucResolution; uc < NANOSECONDS; ++uc)
        ullNs *= 10;
    return ullNs;
}

/// Passes the tags of an exported PDU; false when it isn't for our dissector.
bool TakePduTags(ByteView& packet)
{
    constexpr size_t HEAD = 4;
    bool bOurs = false;
    while (packet.size() >= HEAD) {
        const auto ulTag = static_cast<unsigned int>(packet[0] << 8 | packet[1]);
        const size_t szLength = static_cast<size_t>(packet[2] << 8 | packet[3]);
        const ByteView value = Slice(packet, HEAD, szLength);
        packet = Slice(packet, HEAD + szLength);
        if (ulTag == PDU_TAG_END)
            return bOurs;
        if (ulTag == PDU_TAG_DISSECTOR)
            bOurs = FixedText(value) == PDU_DISSECTOR;
    }
    return false;
}
} // namespace

CPcapngReader::RESULT CPcapngReader::Next(CAPTURED_RECORD& stRecord)
{
    while (m_enEnd == RESULT::RECORD) {
        uint32_t ulType = 0;
        if (const RESULT enResult = ReadBlock(ulType); enResult != RESULT::RECORD)
            return enResult;
        if (ulType == PCAPNG_INTERFACE)
            TakeInterface();
        if (ulType == PCAPNG_PACKET && TakePacket(stRecord))
            return RESULT::RECORD;
    }
    return m_enEnd;
}

/// The next block's body, in m_vecBlock. A section header, whose byte order must be known for its length, is taken
/// here.
CPcapngReader::RESULT CPcapngReader::ReadBlock(uint32_t& ulType)
{
    constexpr size_t HEAD = 8;
    std::array<unsigned char, HEAD> aucHead{};
    const size_t szRead = m_pSource->Read(aucHead);
    if (szRead == 0 && m_pSource->Error().empty())
        return m_bSection ? Ended(RESULT::END, "") : Ended(RESULT::BAD, "not a pcapng file");
    if (szRead < HEAD)
        return Ended(RESULT::CUT, "the file ends within a block");
    ulType = LoadLe<uint32_t>(aucHead, 0);
    const uint32_t ulLength = LoadLe<uint32_t>(aucHead, 4);
    if (!m_bSection && ulType != PCAPNG_SECTION)
        return Ended(RESULT::BAD, "not a pcapng file");
    if (ulLength < PCAPNG_BLOCK_FRAME || ulLength % 4 != 0 || ulLength > MAX_BLOCK)
        return Ended(RESULT::BAD, "a block has a wrong length, or the file is big-endian");
    const size_t szBody = ulLength - PCAPNG_BLOCK_FRAME;
    std::array<unsigned char, 4> aucTail{};
    if (!ReadBody(szBody) || m_pSource->Read(aucTail) < aucTail.size())
        return Ended(RESULT::CUT, "the file ends within a block");
    if (LoadLe<uint32_t>(aucTail, 0) != ulLength)
        return Ended(RESULT::BAD, "the two lengths of a block differ");
    return ulType == PCAPNG_SECTION ? TakeSection() : RESULT::RECORD;
}

bool CPcapngReader::ReadBody(size_t szCount)
{
    m_vecBlock.clear();
    while (m_vecBlock.size() < szCount) {
        const size_t szFrom = m_vecBlock.size();
        const size_t szPiece = std::min(szCount - szFrom, READ_PIECE);
        m_vecBlock.resize(szFrom + szPiece);
        if (m_pSource->Read(ByteSpan(m_vecBlock).subspan(szFrom)) < szPiece)
            return false;
    }
    return true;
}

CPcapngReader::RESULT CPcapngReader::Ended(RESULT enResult, const std::string& strError)
{
    const std::string strSource = m_pSource->Error();
    m_strError = strSource.empty() ? strError : strSource;
    m_enEnd = enResult;
    return enResult;
}

CPcapngReader::RESULT CPcapngReader::TakeSection()
{
    constexpr size_t OPTIONS = 16;
    if (LoadLe<uint32_t>(m_vecBlock, 0) != PCAPNG_BYTE_ORDER)
        return Ended(RESULT::BAD, "the file is big-endian");
    if (LoadLe<uint16_t>(m_vecBlock, 4) != 1)
        return Ended(RESULT::BAD, "the file is of another version of pcapng");
    m_bSection = true;
    m_vecInterfaces.clear();
    m_strSection.clear();
    ByteView options = Slice(ByteView(m_vecBlock), OPTIONS);
    while (const auto option = NextOption(options))
        if (option->usCode == PCAPNG_OPT_COMMENT)
            m_strSection.assign(option->value.begin(), option->value.end());
    return RESULT::RECORD;
}

void CPcapngReader::TakeInterface()
{
    constexpr size_t OPTIONS = 8;
    constexpr uint8_t MICROSECONDS = 6; // where nothing is said
    uint8_t ucResolution = MICROSECONDS;
    ByteView options = Slice(ByteView(m_vecBlock), OPTIONS);
    while (const auto option = NextOption(options))
        if (option->usCode == PCAPNG_IF_TSRESOL)
            ucResolution = LoadLe<uint8_t>(option->value, 0);
    m_vecInterfaces.push_back({LoadLe<uint16_t>(m_vecBlock, 0) == LINK_EXPORTED_PDU, NsPerTick(ucResolution)});
}

bool CPcapngReader::TakePacket(CAPTURED_RECORD& stRecord) const
{
    const uint32_t ulInterface = LoadLe<uint32_t>(m_vecBlock, 0);
    if (ulInterface >= m_vecInterfaces.size())
        return false;
    const INTERFACE& stInterface = m_vecInterfaces[ulInterface];
    return stInterface.bOurs && stInterface.ullNsPerTick != 0 &&
           DecodePacket(m_vecBlock, stInterface.ullNsPerTick, stRecord);
}

bool DecodePacket(ByteView body, uint64_t ullNsPerTick, CAPTURED_RECORD& stRecord)
{
    const size_t szLength = LoadLe<uint32_t>(body, 12);
    if (body.size() < PACKET_HEAD || szLength > body.size() - PACKET_HEAD)
        return false;
    ByteView packet = body.subspan(PACKET_HEAD, szLength);
    CAPTURE_HEAD stHead;
    if (!TakePduTags(packet) || !DecodeRecord(packet, stHead) || stHead.ucVersion != CAPTURE_HEAD::VERSION)
        return false;
    const uint64_t ullTicks = uint64_t{LoadLe<uint32_t>(body, 4)} << 32 | LoadLe<uint32_t>(body, 8);
    stRecord = {{static_cast<TAP_KIND>(stHead.ucKind), stHead.ucUe, stHead.ucChannel, stHead.ucFlags, stHead.ulPort,
                 stHead.ulClient, stHead.ullNumber, ullTicks * ullNsPerTick},
                packet.subspan(CAPTURE_HEAD::SIZE),
                0,
                ""};
    ByteView options = Slice(body, PACKET_HEAD + Padded(szLength));
    while (const auto option = NextOption(options)) {
        if (option->usCode == PCAPNG_EPB_DROPS)
            stRecord.ullLost = LoadLe<uint64_t>(option->value, 0);
        if (option->usCode == PCAPNG_OPT_COMMENT)
            stRecord.strComment.assign(option->value.begin(), option->value.end());
    }
    return true;
}

CPcapngReader::RESULT ReadCaptureFile(const std::string& strPath,
                                      const std::function<void(const CAPTURED_RECORD&)>& onRecord,
                                      std::string& strError)
{
    auto pSource = OpenCaptureSource(strPath, strError);
    if (!pSource)
        return CPcapngReader::RESULT::BAD;
    CPcapngReader reader(std::move(pSource));
    CAPTURED_RECORD stRecord;
    CPcapngReader::RESULT enResult{};
    while ((enResult = reader.Next(stRecord)) == CPcapngReader::RESULT::RECORD)
        onRecord(stRecord);
    if (enResult == CPcapngReader::RESULT::BAD)
        strError = strPath + ": " + reader.Error();
    return enResult;
}
