#include "wireshark/FieldTables.h"

#include "agent/StatusRecords.h"
#include "capture/CaptureFormat.h"
#include "client/Reports.h"
#include "common/Config.h"
#include "data/DiagPacket.h"
#include "data/NvWrite.h"
#include "data/gu/GUDataProcess.h"
#include "data/gu/base/GuPacket.h"
#include "tap/TapEvents.h"
#include "wireshark/LuaTables.h"

#include <sstream>

namespace
{
constexpr const char* CHANNELS = "channels"; // names of values

void WriteNames(std::ostream& out)
{
    const std::pair<const char*, std::span<const NAME_ROW>> tables[] = {{"ids", IdNames()},
                                                                        {"results", ResultNames()},
                                                                        {"types", PacketTypeNames()},
                                                                        {"kinds", IndicationKindNames()},
                                                                        {"modes", SystemModeNames()}};
    for (const auto& [pszName, rows] : tables)
        out << "T." << pszName << " = " << LuaNames(rows) << "\n";
}

template <size_t N> std::vector<NAME_ROW> Rows(const std::array<const char*, N>& names)
{
    std::vector<NAME_ROW> rows;
    for (uint32_t i = 0; i < N; ++i)
        if (*names[i] != '\0')
            rows.push_back({i, names[i]});
    return rows;
}

void WriteCaptureNames(std::ostream& out)
{
    std::vector<NAME_ROW> channels = Rows(CAPTURE_CHANNEL_NAMES);
    channels.push_back({TAP_NO_CHANNEL, "none"});
    out << "T.channels = " << LuaNames(channels) << "\n";
    out << "T.directions = " << LuaNames(Rows(CAPTURE_KIND_NAMES)) << "\n";
    constexpr NAME_ROW CATEGORIES[] = {
        {GU_CATEGORY_TRACE, "trace"},
        {GU_CATEGORY_OTA, "ota"},
        {GU_CATEGORY_TRANS, "trans"},
        {GU_CATEGORY_QUERY, "query"},
        {GU_CATEGORY_OTA + GU_CATEGORY_MODEM_1, "ota, modem 1"},
        {GU_CATEGORY_TRANS + GU_CATEGORY_MODEM_1, "trans, modem 1"},
        {GU_CATEGORY_QUERY + GU_CATEGORY_MODEM_1, "query, modem 1"},
    };
    out << "T.categories = " << LuaNames(CATEGORIES) << "\n";
}

/// The fields of a record whose field list is a function.
template <class Record, class Fields> CFieldNotes NotesBy(Fields fields, std::initializer_list<SHOWN_FIELD> names)
{
    CFieldNotes notes(names);
    Record stRecord;
    fields(notes, stRecord);
    return notes;
}

void WriteHeads(std::ostream& out)
{
    out << "T.head = "
        << LuaPlaces(NotesOf<CAPTURE_HEAD>(
               {{"version"}, {"direction"}, {"ue"}, {"channel"}, {"flags"}, {"port"}, {"client"}, {"number"}}))
        << "\n";
    out << "T.request = "
        << LuaPlaces(NotesBy<DIAG_PACKET_REQ_STRU>([](auto& io, auto& st) { ReqHead(io, st); },
                                                   {{"id"}, {"type"}, {"length"}}))
        << "\n";
    out << "T.ack = "
        << LuaPlaces(NotesBy<DIAG_PACKET_ACK_STRU>([](auto& io, auto& st) { AckHead(io, st); },
                                                   {{"id"}, {"rc"}, {"timestamp"}, {"type"}, {"length"}}))
        << "\n";
    out << "T.status = " << LuaPlaces(NotesOf<STATUS_HEAD_STRU>({{"kind"}, {"length"}})) << "\n";
}

struct PLACE
{
    const char* pszName;
    size_t szOffset;
    size_t szBytes;
};

void WritePlaces(std::ostream& out, const char* pszTable, size_t szSize, std::initializer_list<PLACE> places)
{
    out << "T." << pszTable << " = {size = " << szSize;
    for (const PLACE& stPlace : places)
        out << ", " << stPlace.pszName << " = {" << stPlace.szOffset << ", " << stPlace.szBytes << "}";
    out << "}\n";
}

void WriteGu(std::ostream& out)
{
    WritePlaces(out, "gu_from_ue", GU_PAYLOAD,
                {{"category", GU_CATEGORY, 1},
                 {"ssid", GU_SSID, 1},
                 {"length", GU_PACKET_LEN, 2},
                 {"sn", GU_SN, 4},
                 {"timestamp", GU_TIME_STAMP, 4},
                 {"id", GU_MSG_ID, 2}});
    WritePlaces(out, "gu_query", GU_PAYLOAD,
                {{"category", GU_CATEGORY, 1},
                 {"ssid", GU_SSID, 1},
                 {"length", GU_PACKET_LEN, 2},
                 {"id", GU_QUERY_MSG_ID, 2},
                 {"value", GU_QUERY_VALUE, 4}});
    WritePlaces(out, "gu_to_ue", GU_REQ_PARAMS,
                {{"category", GU_CATEGORY, 1},
                 {"ssid", GU_SSID, 1},
                 {"length", GU_PACKET_LEN, 2},
                 {"sender_pid", GU_REQ_SENDER_PID, 4},
                 {"receiver_pid", GU_REQ_RECEIVER_PID, 4},
                 {"param_length", GU_REQ_PARAM_LEN, 4},
                 {"id", GU_REQ_MSG_ID, 4}});
    out << "T.gu = {length_base = " << GU_LEN_OFFSET_BASE << ", min_packet = " << GU_MIN_PACKET
        << ", modem_1 = " << static_cast<unsigned int>(GU_CATEGORY_MODEM_1)
        << ", query = " << static_cast<unsigned int>(GU_CATEGORY_QUERY)
        << ", trans = " << static_cast<unsigned int>(GU_CATEGORY_TRANS) << ", om_start = " << OM_FRAME_START
        << ", om_end = " << OM_FRAME_END << "}\n";
}

constexpr SHOWN_FIELD EVENT_FIELD = {"event", "events"};

void AddEvents(CLayoutTables& layouts, std::ostream& out)
{
    layouts.Add("event_channel", "channel",
                NotesOf<TAP_CHANNEL_EVENT>({EVENT_FIELD, {"attached"}, {"confirmed"}, {"name"}, {"group"}}));
    layouts.Add("event_ue", "UE confirmed", NotesOf<TAP_UE_EVENT>({EVENT_FIELD, {"imei"}, {"version"}}));
    layouts.Add("event_client", "client", NotesOf<TAP_CLIENT_EVENT>({EVENT_FIELD, {"connected"}, {"address"}}));
    layouts.Add("event_since", "since",
                NotesOf<TAP_SINCE_EVENT>({EVENT_FIELD, {"state_ns"}, {"bound_ns"}, {"connected_ns"}}));
    layouts.Add("event_log", "log", NotesOf<TAP_LOG_EVENT>({EVENT_FIELD, {"file"}}));
    constexpr std::pair<TAP_EVENT, const char*> NAMES[] = {{TAP_EVENT::CHANNEL, "channel"},
                                                           {TAP_EVENT::UE, "ue"},
                                                           {TAP_EVENT::CLIENT, "client"},
                                                           {TAP_EVENT::SINCE, "since"},
                                                           {TAP_EVENT::LOG, "log"}};
    out << "T.events = {";
    for (const auto& [enEvent, pszName] : NAMES)
        out << '[' << static_cast<uint32_t>(enEvent) << "] = \"" << pszName << "\", ";
    out << "}\n";
}

struct STATUS_ROW
{
    uint8_t ucKind;
    const char* pszName; // of the layout, behind "status_"
    const char* pszTitle;
    CFieldNotes notes;
};
template <class Record>
STATUS_ROW Status(const char* pszName, const char* pszTitle, std::initializer_list<SHOWN_FIELD> names)
{
    return {Record::MSG_ID, pszName, pszTitle, NotesOf<Record>(names)};
}

void AddStatus(CLayoutTables& layouts, std::ostream& out)
{
    const STATUS_ROW rows[] = {
        Status<SerialPortConnect>("attached", "port attached", {{"group"}, {"port"}, {"channel", CHANNELS}}),
        Status<SerialPortDisconnect>("detached", "port detached", {{"port"}}),
        Status<UEConnect>("ue", "UE confirmed", {{"state"}, {"group"}, {"imei"}, {"version"}}),
        Status<ClientConnect>("bound", "client bound", {{"port"}, {"channel", CHANNELS}, {"address"}}),
        Status<ClientDisconnect>("unbound", "client unbound", {{"port"}, {"channel", CHANNELS}}),
        Status<SerialPortTransfer>("transfer", "transfer report",
                                   {{"channel", CHANNELS}, {"port"}, {"read_bytes"}, {"written_bytes"}}),
        Status<AgentVer>("version", "agent version", {{"major"}, {"minor"}, {"patch"}}),
    };
    out << "T.status_kinds = {";
    for (const STATUS_ROW& stRow : rows)
        out << "[" << static_cast<unsigned int>(stRow.ucKind) << "] = " << LuaText(stRow.pszTitle) << ", ";
    out << "}\nT.status_layouts = {";
    for (const STATUS_ROW& stRow : rows) {
        const std::string strLayout = std::string("status_") + stRow.pszName;
        layouts.Add(strLayout, stRow.pszTitle, stRow.notes);
        out << "[" << static_cast<unsigned int>(stRow.ucKind) << "] = " << LuaText(strLayout) << ", ";
    }
    out << "}\n";
}

/// A record of one word.
CFieldNotes Word(SHOWN_FIELD stField)
{
    CFieldNotes notes({stField});
    notes.Field(uint32_t{});
    return notes;
}

/// Parameters of requests, the head of a DPI message, the payload of confirms.
void AddParams(CLayoutTables& layouts, std::ostream& out)
{
    layouts.Add("bind", "bind", Word({"port"}));
    layouts.Add("confirm", "confirm", Word({"result", "results"}));
    layouts.Add("nv_write", "NV write",
                NotesBy<NV_WRITE_STRU>([](auto& io, auto& st) { NvWriteFields(io, st); }, {{"nv_id"},
                                                                                           {"item_count"},
                                                                                           {"item_offset"},
                                                                                           {"bit_mode"},
                                                                                           {"field_size"},
                                                                                           {"bit_low"},
                                                                                           {"bit_high"},
                                                                                           {"item_value"}}));
    layouts.Add("dpi", "DPI head",
                NotesBy<DIAG_OSA_HEADER>([](auto& io, auto& st) { OsaHead(io, st); },
                                         {{"sender_pid"}, {"receiver_pid"}, {"length"}, {"id"}, {"command_low"}}));
    out << "T.params = {[" << AGENT_CMD_BIND << "] = \"bind\", [" << UE_CMD_NV_WRITE << "] = \"nv_write\"}\n";
}

// Parameters of report requests, as ReportParams writes them; the name of their layout by PARAM_FORM.
// clang-format off
constexpr FIELD_ROW PERIOD_FIELDS[] = {{"switch", 0, U8}, {"period_ms", 2, U16}};
constexpr FIELD_ROW CELL_FIELDS[] = {{"switch", 0, U8}, {"mode", 1, U8}, {"period_ms", 2, U16}};
constexpr FIELD_ROW BLER_FIELDS[] = {{"switch", 0, U16}, {"period_ms", 2, U16}};
constexpr FIELD_ROW SWITCH_FIELDS[] = {{"switch", 0, U8}};
constexpr FIELD_ROW WORD_FIELDS[] = {{"switch", 0, U32}};
constexpr RECORD_LAYOUT PARAM_LAYOUTS[] = {
    {"period params", 4, PERIOD_FIELDS},
    {"cell params",   4, CELL_FIELDS},
    {"bler params",   4, BLER_FIELDS},
    {"switch params", 4, SWITCH_FIELDS},
    {"word params",   4, WORD_FIELDS},
    {"once params",   4, {}},
    {"query params",  4, {}},
};
// clang-format on
static_assert(std::size(PARAM_LAYOUTS) == PARAM_QUERY + 1);

/// Every id of the reports, with its part in them. Where two reports have an id, the first one keeps it.
class CReportIds
{
public:
    explicit CReportIds(CLayoutTables& layouts) : m_layouts(layouts) {}

    void Add(const REPORT_ID& stId)
    {
        const REPORT_ROW& stRow = *stId.pstRow;
        const bool bQuery = stRow.usInd == 0;
        Put(stId.Req(), stRow, "request", &PARAM_LAYOUTS[stRow.enForm], stId.Cnf());
        Put(stId.Cnf(), stRow, "confirm", bQuery ? stRow.pstLayout : nullptr);
        if (!bQuery)
            Put(stId.Ind(), stRow, "report", stRow.pstLayout);
    }
    void Write(std::ostream& out) const
    {
        out << "T.reports = {\n";
        for (const auto& [usId, strText] : m_mapText)
            out << "  [" << usId << "] = " << strText << ",\n";
        out << "}\n";
    }

private:
    void Put(uint16_t usId, const REPORT_ROW& stRow, const char* pszRole, const RECORD_LAYOUT* pstLayout,
             uint16_t usAnswer = 0)
    {
        std::ostringstream text;
        text << "{name = " << LuaText(stRow.pszName) << ", role = " << LuaText(pszRole);
        if (pstLayout != nullptr)
            text << ", layout = " << LuaText(m_layouts.Add(*pstLayout));
        else if (std::string_view(pszRole) == "confirm")
            text << ", layout = \"confirm\"";
        if (usAnswer != 0)
            text << ", answer = " << usAnswer;
        m_mapText.try_emplace(usId, text.str() + "}");
    }

    CLayoutTables& m_layouts;
    std::map<uint16_t, std::string> m_mapText;
};

void AddReports(CLayoutTables& layouts, std::ostream& out)
{
    CReportIds ids(layouts);
    for (const auto rows : {GuReports(), StatReports()})
        for (const REPORT_ROW& stRow : rows) {
            ids.Add({&stRow, 0});
            if (stRow.usModemStep != 0)
                ids.Add({&stRow, 1});
        }
    ids.Write(out);
}

void AddAnswers(CLayoutTables& layouts, std::ostream& out)
{
    out << "T.answers = {";
    for (const ANSWER_ROW& stRow : AnswerLayouts())
        out << "[" << stRow.ulCmdId << "] = " << LuaText(layouts.Add(*stRow.pstLayout)) << ", ";
    out << "}\nT.measurements = {";
    for (const MEASUREMENT_ROW& stRow : MeasurementLayouts())
        out << "[" << stRow.szLen << "] = " << LuaText(layouts.Add(*stRow.pstLayout)) << ", ";
    out << "}\nT.message = " << LuaText(layouts.Add(MessageLayout())) << "\n";
}

/// Numbers that the dissector needs by name.
void WriteConstants(std::ostream& out)
{
    const FILTER_CFG_STRU stLayout;
    out << "T.flags = {replayed = " << unsigned{TAP_REPLAYED} << ", cut = " << unsigned{TAP_CUT}
        << ", text = " << unsigned{TAP_TEXT} << "}\n";
    out << "T.data_tags = {[" << unsigned{stLayout.ucDataTagFirst} << "] = true, ["
        << unsigned{stLayout.ucDataTagSecond} << "] = true}\n";
    out << "T.version = " << unsigned{CAPTURE_HEAD::VERSION} << "\n";
    out << "T.none = " << unsigned{TAP_NO_UE} << "\n";
    out << "T.agent_type = " << unsigned{PKT_TYPE_AGENT} << "\n";
    out << "T.at_ids = {[" << AGENT_CMD_AT << "] = true, [" << AGENT_CMD_AT_IND << "] = true}\n";
    out << "T.manager_module = " << (UE_CMD_HOST_CONNECT >> 16 & 0xFF) << "\n";
    out << "T.switch_id = " << UE_CMD_USER_PLANE_SWITCH << "\n";
    out << "T.connect = {request = " << UE_CMD_HOST_CONNECT << ", confirm = " << UE_CMD_HOST_CONNECT_CNF << "}\n";
    out << "T.nv_ids = {[" << UE_CMD_NV_READ << "] = true, [" << UE_CMD_NV_WRITE << "] = true}\n";
}
} // namespace

void WriteFieldTables(std::ostream& out)
{
    CLayoutTables layouts;
    WriteNames(out);
    WriteCaptureNames(out);
    WriteHeads(out);
    WriteGu(out);
    WriteConstants(out);
    AddEvents(layouts, out);
    AddStatus(layouts, out);
    AddParams(layouts, out);
    AddReports(layouts, out);
    AddAnswers(layouts, out);
    out << "T.layouts = ";
    layouts.Write(out);
    out << "\n";
}
