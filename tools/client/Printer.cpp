#include "client/Printer.h"

#include "client/Names.h"
#include "client/Parse.h"

#include <array>
#include <cstdio>

namespace
{
constexpr double UE_CLOCK_HZ = 32768.0;
constexpr size_t DUMP_WIDTH = 16;
constexpr size_t LINE_WIDTH = 110;

template <class... Args> std::string Format(const char* pszFormat, Args... args)
{
    std::array<char, 256> szText{};
    (void)std::snprintf(szText.data(), szText.size(), pszFormat, args...);
    return szText.data();
}

std::string ScalarText(const ordered_json& value)
{
    if (value.is_string())
        return '"' + value.get<std::string>() + '"';
    if (value.is_number_float())
        return Format("%.6g", value.get<double>());
    return value.dump();
}

bool IsRecordList(const ordered_json& value)
{
    return value.is_array() && !value.empty() && value[0].is_object();
}

std::string ValueText(const ordered_json& value)
{
    if (!value.is_array())
        return ScalarText(value);
    std::string strText;
    for (const auto& item : value)
        strText += (strText.empty() ? "" : " ") + ScalarText(item);
    return '[' + strText + ']';
}

/// The plain fields of a record behind a title, wrapped; empty when there are neither.
std::string FieldLines(const ordered_json& record, const std::string& strIndent, const std::string& strTitle)
{
    std::string strText;
    std::string strLine = strTitle;
    for (const auto& [strName, value] : record.items()) {
        if (IsRecordList(value))
            continue;
        const std::string strField = strName + '=' + ValueText(value);
        if (!strLine.empty() && strIndent.size() + strLine.size() + strField.size() > LINE_WIDTH) {
            strText += strIndent + strLine + '\n';
            strLine = "  " + strField;
        } else {
            strLine += (strLine.empty() ? "" : "  ") + strField;
        }
    }
    return strLine.empty() ? strText : strText + strIndent + strLine + '\n';
}

/// A record's own fields, then the records of its lists, each on a line of its own.
std::string RecordText(const ordered_json& record, const std::string& strIndent, const std::string& strTitle,
                       size_t szListItems)
{
    std::string strText = FieldLines(record, strIndent, strTitle);
    for (const auto& [strName, value] : record.items()) {
        if (!IsRecordList(value))
            continue;
        const std::string strInner = strIndent + "  ";
        for (size_t i = 0; i < std::min(szListItems, value.size()); ++i)
            strText += RecordText(value[i], strInner, Format("%s[%zu]", strName.c_str(), i), szListItems);
        if (value.size() > szListItems)
            strText += Format("%s%s: %zu in all\n", strInner.c_str(), strName.c_str(), value.size());
    }
    return strText;
}

ordered_json PacketObject(const PACKET& stPacket, const PACKET_NOTE& stNote)
{
    const DIAG_PACKET_ACK_STRU& stHead = stPacket.stHead;
    const bool bResult = std::string(stNote.pszRcName) == "rc";
    ordered_json object = {{"event", stNote.pszEvent},
                           {"id", stHead.ulCmdId},
                           {"id_hex", HexId(stHead.ulCmdId)},
                           {"name", stNote.strName},
                           {stNote.pszRcName, stHead.ulRc}};
    if (bResult)
        object["rc_name"] = ResultName(stHead.ulRc);
    object["stamp"] = stHead.ullTimeStamp;
    object["type"] = stHead.usPktType & 0xFF;
    object["type_name"] = stNote.strTypeName;
    object["mode"] = (stHead.usPktType >> 8) & 0xF;
    object["reserved"] = stHead.usPktType >> 12;
    object["len"] = stHead.usLen;
    if (!stNote.decoded.is_null())
        object["decoded"] = stNote.decoded;
    object["data"] = HexDigits(stPacket.payload);
    return object;
}

std::string PacketText(const PACKET& stPacket, const PACKET_NOTE& stNote)
{
    const DIAG_PACKET_ACK_STRU& stHead = stPacket.stHead;
    const bool bResult = std::string(stNote.pszRcName) == "rc";
    std::string strText = std::string(stNote.pszEvent) + ' ' + HexId(stHead.ulCmdId);
    if (!stNote.strName.empty())
        strText += ' ' + stNote.strName;
    strText += Format("  type %u", stHead.usPktType & 0xFFU);
    if (!stNote.strTypeName.empty())
        strText += ' ' + stNote.strTypeName;
    if (const std::string strMode = SystemModeName(stHead.usPktType); !strMode.empty())
        strText += "  mode " + strMode;
    strText += std::string("  ") + stNote.pszRcName + ' ';
    strText += bResult ? ResultText(stHead.ulRc) : std::to_string(stHead.ulRc);
    strText += Format("  stamp %llu (%.3f s)", static_cast<unsigned long long>(stHead.ullTimeStamp),
                      StampSeconds(stHead.ullTimeStamp));
    strText += Format("  %u bytes\n", static_cast<unsigned int>(stHead.usLen));
    if (!stNote.decoded.is_null())
        strText += DecodedText(stNote.decoded, "    ", stNote.szListItems);
    if (stNote.bHexDump)
        strText += HexDump(stPacket.payload, "    ");
    return strText;
}
} // namespace

void CPrinter::Print(const ordered_json& object, const std::string& strText)
{
    if (m_bJson) // text from the wire may be anything: what isn't UTF-8 is replaced
        m_out << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << '\n';
    else
        m_out << strText;
}

void CPrinter::Packet(const PACKET& stPacket, const PACKET_NOTE& stNote)
{
    if (m_bJson)
        Print(PacketObject(stPacket, stNote), "");
    else
        Print({}, PacketText(stPacket, stNote));
}

std::string HexDump(ByteView bytes, const std::string& strIndent)
{
    std::string strDump;
    for (size_t szAt = 0; szAt < bytes.size(); szAt += DUMP_WIDTH) {
        std::string strHex;
        std::string strChars;
        for (const unsigned char ucByte : Slice(bytes, szAt, DUMP_WIDTH)) {
            strHex += Format("%02X ", static_cast<unsigned int>(ucByte));
            strChars += ucByte >= 0x20 && ucByte < 0x7F ? static_cast<char>(ucByte) : '.';
        }
        strHex.resize(DUMP_WIDTH * 3, ' ');
        strDump += Format("%s%04zX  %s |%s|\n", strIndent.c_str(), szAt, strHex.c_str(), strChars.c_str());
    }
    return strDump;
}

std::string DecodedText(const ordered_json& decoded, const std::string& strIndent, size_t szListItems)
{
    return RecordText(decoded, strIndent, "", szListItems);
}

double StampSeconds(uint64_t ullTimeStamp)
{
    return static_cast<double>(ullTimeStamp) / UE_CLOCK_HZ;
}
