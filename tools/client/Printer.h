#pragma once

#include "client/Connection.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

using nlohmann::ordered_json;

/// What is printed of a packet beside its head.
struct PACKET_NOTE
{
    const char* pszEvent;         // "ack", "indication", "unsolicited": first word and JSON field "event"
    std::string strName;          // of the id or report; may be empty
    const char* pszRcName = "rc"; // what the ulRc field means here: "rc", "ack_field" or "sn"
    std::string strTypeName = {}; // of the low byte of usPktType
    ordered_json decoded = {};    // null when the layout isn't known
    bool bHexDump = true;         // text form: a dump of the payload
    size_t szListItems = 8;       // text form: records shown of each list
};

/// Writes what a command has to say, as text for people or as one JSON object a line.
class CPrinter
{
public:
    CPrinter(bool bJson, std::ostream& out) : m_bJson(bJson), m_out(out) {}

    bool IsJson() const { return m_bJson; }
    /// The object in JSON mode, the text (with its line ends) otherwise.
    void Print(const ordered_json& object, const std::string& strText);
    void Packet(const PACKET& stPacket, const PACKET_NOTE& stNote);
    /// Call before waiting: output is buffered while packets keep coming.
    void Flush() { m_out.flush(); }

private:
    bool m_bJson;
    std::ostream& m_out;
};

/// "0000  41 54 0D ..  |AT.|" lines, each behind the indent.
std::string HexDump(ByteView bytes, const std::string& strIndent);
/// "name=value" lines of a decoded record; lists of records one item a line, the first szListItems of each.
std::string DecodedText(const ordered_json& decoded, const std::string& strIndent, size_t szListItems);
/// UE clock ticks as seconds.
double StampSeconds(uint64_t ullTimeStamp);
