#include "uesim/LteMessages.h"

#include "common/Bytes.h"
#include "data/DiagPacket.h"

#include <algorithm>
#include <bit>

namespace
{
using Payload = std::vector<unsigned char>;

// Heads that the classes have in front of the part that clients get.
constexpr size_t L23_HEAD = 16; // air, IMS and layer messages
constexpr size_t L23_ID = 12;
constexpr size_t USER_HEAD = 8;
constexpr size_t USER_ID = 4;
constexpr size_t EVENT_ID = 4;
constexpr size_t EVENT_SIZE = 16;
constexpr size_t DPI_HEAD = 40; // DIAG_OSA_HEADER
constexpr size_t DPI_ID = 20;

// Ids that clients see, one range a class.
constexpr uint32_t AIR_IDS = 0x00450001;
constexpr uint32_t LAYER_IDS = 0x00430001;
constexpr uint32_t EVENT_IDS = 0x00440010;
constexpr uint32_t IMS_IDS = 0x00460001;
constexpr uint32_t USER_IDS = 0x00470001;
constexpr uint32_t DPI_CLIENT_ID = 0x00410001;
constexpr uint32_t OTHER_ID = 0x10010234;
constexpr uint32_t TDS_DSP_ID = 0x70000001;
constexpr uint32_t MODULE_ID = 0x0100;
constexpr uint32_t LAYER_DEFAULT = 0xFFFFFFFF; // row of the strip table for ids without their own

constexpr uint32_t DROPPED_IDS[] = {UE_IND_DROPPED_1,   UE_IND_DROPPED_2, UE_IND_DROPPED_3,
                                    UE_IND_LOGGED_ONLY, 0x40000001,       0x60000001};

// A measurement's own payload, behind the layer head: a kind and what the record takes over from offset 28 on.
constexpr size_t MEAS_KIND = 26;
constexpr size_t MEAS_DATA = 28;
constexpr size_t MEAS_SIZE = MEAS_DATA + 1092;
constexpr uint16_t MEAS_IDLE_TRIGGER = 31; // goes out at most once a time-out, so it carries no number

/// Printable text with a flag and an escape in every 64 bytes, so that stuffing has its share of work.
Payload Pattern(size_t szSize)
{
    Payload payload(szSize);
    for (size_t i = 0; i < szSize; ++i)
        payload[i] = static_cast<unsigned char>(i % 64 == 31 ? 0x7E : i % 64 == 63 ? 0x7D : 'A' + i % 26);
    return payload;
}

void Put32(Payload& payload, size_t szOffset, uint32_t ulValue)
{
    StoreLe<uint32_t>(payload, szOffset, ulValue);
}
void Put16(Payload& payload, size_t szOffset, unsigned int ulValue)
{
    StoreLe<uint16_t>(payload, szOffset, static_cast<uint16_t>(ulValue));
}

class CMaker
{
public:
    CMaker(const CConfig& config, const UESIM_OPTIONS& stOptions) : m_config(config), m_stOptions(stOptions) {}

    LTE_MESSAGES Make()
    {
        MakeDsp();
        MakeAir(LTE_CLASS_AIR, UE_IND_AIR, AIR_IDS);
        MakeAir(LTE_CLASS_IMS, UE_IND_IMS, IMS_IDS);
        MakeLayer();
        MakeEvent();
        MakeUser();
        MakeMeas();
        MakeTds();
        MakeDropped();
        MakeDpi();
        MakeOther();
        return std::move(m_messages);
    }

private:
    bool PassesL1(uint32_t ulId) const { return !m_config.GetL1ExcludeIndMap()->Find(ulId).value_or(true); }
    bool PassesL23(uint32_t ulId) const { return !m_config.GetL3ExcludeIndMap()->Find(ulId).value_or(false); }

    void Add(LTE_CLASS enClass, LTE_MESSAGE stMessage) { m_messages[enClass].push_back(std::move(stMessage)); }

    Payload Sized(size_t szHead) const
    {
        const size_t szMin = szHead + sizeof(uint32_t); // room for the number
        return Pattern(std::max<size_t>(m_stOptions.ulLteSize, szMin));
    }

    /// Payload of an air, IMS or layer message.
    static Payload WithL23Head(Payload payload, uint32_t ulModule, uint32_t ulDirection, uint32_t ulId)
    {
        Put32(payload, 0, ulModule);
        Put32(payload, 4, ulDirection);
        Put32(payload, 8, 0);
        Put32(payload, L23_ID, ulId);
        return payload;
    }

    void MakeDsp()
    {
        for (const uint32_t ulId : {m_stOptions.ulLteDspId, m_stOptions.ulLteDspId + 1, TDS_DSP_ID})
            Add(LTE_CLASS_DSP, {ulId, Sized(0), 0, 4, PassesL1(ulId)});
    }

    void MakeAir(LTE_CLASS enClass, uint32_t ulWireId, uint32_t ulIds)
    {
        for (uint32_t i = 0; i < 2; ++i)
            Add(enClass,
                {ulWireId, WithL23Head(Sized(L23_HEAD), MODULE_ID, i, ulIds + i), L23_HEAD, 4, PassesL23(ulIds + i)});
    }

    size_t StripOf(uint32_t ulId) const
    {
        const auto& strips = *m_config.GetLayerMsgCfg();
        const auto pOwn = strips.find(ulId);
        const auto pRow = pOwn != strips.end() ? pOwn : strips.find(LAYER_DEFAULT);
        return pRow != strips.end() ? pRow->second & 0xFFFF : 0;
    }

    void MakeLayer()
    {
        for (const uint32_t ulId : {LAYER_IDS, LAYER_IDS + 0x1F}) {
            const size_t szHead = L23_HEAD + StripOf(ulId);
            Add(LTE_CLASS_LAYER,
                {UE_IND_LAYER, WithL23Head(Sized(szHead), MODULE_ID, 0, ulId), szHead, 4, PassesL23(ulId)});
        }
    }

    void MakeEvent()
    {
        for (uint32_t ulId = EVENT_IDS; ulId < EVENT_IDS + 3; ++ulId) {
            Payload payload = Pattern(EVENT_SIZE);
            Put32(payload, EVENT_ID, ulId);
            Add(LTE_CLASS_EVENT, {UE_IND_EVENT, std::move(payload), 0, 0, PassesL23(ulId)});
        }
    }

    void MakeUser()
    {
        for (uint32_t ulId = USER_IDS; ulId < USER_IDS + 2; ++ulId) {
            Payload payload = Sized(USER_HEAD);
            Put32(payload, USER_ID, ulId);
            Add(LTE_CLASS_USER, {UE_IND_USER_PLANE, std::move(payload), USER_HEAD, 4, PassesL23(ulId)});
        }
    }

    /// Connected, and idle of the kinds 33, 32 and 31. The number lies where the record's data start.
    void MakeMeas()
    {
        std::array<unsigned int, 2> aulIds{};
        m_config.GetCellMeas(aulIds.data());
        static constexpr struct
        {
            size_t szId;
            uint16_t usKind;
        } KINDS[] = {{0, 30}, {1, 33}, {1, 32}, {1, MEAS_IDLE_TRIGGER}};
        if (aulIds[0] == 0 || aulIds[1] == 0)
            return;
        for (const auto& stKind : KINDS) {
            Payload payload = WithL23Head(Pattern(L23_HEAD + MEAS_SIZE), MODULE_ID, 0, aulIds[stKind.szId]);
            Put16(payload, L23_HEAD + MEAS_KIND, stKind.usKind);
            Add(LTE_CLASS_MEAS, {UE_IND_LAYER, std::move(payload), L23_HEAD + MEAS_DATA, 4,
                                 stKind.usKind != MEAS_IDLE_TRIGGER && PassesL23(aulIds[0])});
        }
    }

    /// One form of Cmac measurement has a sum and a count a cell, the others levels. The number is the channel of the
    /// first cell.
    static Payload CmacSums()
    {
        constexpr unsigned int CELLS = 6;
        Payload body(MEAS_DATA + 36 * CELLS, 0);
        body[26] = CELLS;
        for (unsigned int i = 0; i < CELLS; ++i) {
            const size_t szCell = 28 + 36 * i;
            Put16(body, szCell, 10054 + 8 * i);
            body[szCell + 2] = static_cast<unsigned char>(20 + i); // cell code: this byte times 4 and the next
            body[szCell + 3] = static_cast<unsigned char>(i % 4);
            body[szCell + 4] = 10; // samples
            StoreLe<uint64_t>(body, szCell + 8, std::bit_cast<uint64_t>(250.0 + 15.5 * i));
        }
        return body;
    }

    static Payload CmacLevels()
    {
        constexpr unsigned int CELLS = 5;
        Payload body(282 + CELLS, 0);
        body[24] = CELLS;
        for (unsigned int i = 0; i < CELLS; ++i) {
            Put16(body, 26 + 4 * i, 10054 + 8 * i);
            body[28 + 4 * i] = static_cast<unsigned char>(30 + i);
            body[29 + 4 * i] = static_cast<unsigned char>(i % 4);
            body[282 + i] = static_cast<unsigned char>(40 + 3 * i);
        }
        return body;
    }

    /// Records that are plain lists of 16-bit values: values that grow, so that a wrong place shows.
    static Payload Words(size_t szSize)
    {
        Payload body(szSize, 0);
        for (size_t i = MEAS_DATA; i + 1 < szSize; i += 2)
            Put16(body, i, static_cast<unsigned int>(i));
        return body;
    }

    void MakeTds()
    {
        constexpr size_t LT_SIZE = 36 + 260 * 3 + 8 * 32;
        constexpr size_t TL_SIZE = 40 + 264 * 2 + 8 * 32;
        constexpr size_t GT_SIZE = 32 + 8 * 32;
        constexpr size_t TG_SIZE = 40 + 136 * 8 + 4 * 32;
        const std::vector<Payload> bodies = {CmacSums(),     CmacLevels(),   CmacLevels(),   Words(LT_SIZE),
                                             Words(LT_SIZE), Words(TL_SIZE), Words(TL_SIZE), Words(GT_SIZE),
                                             Words(TG_SIZE), Words(LT_SIZE), Words(LT_SIZE)};
        const auto& ids = *m_config.GetTdsCombMsg();
        for (size_t i = 0; i < std::min(ids.size(), bodies.size()); ++i) {
            Payload payload(L23_HEAD, 0);
            payload.insert(payload.end(), bodies[i].begin(), bodies[i].end());
            const size_t szNumberAt = L23_HEAD + (i == 1 || i == 2 ? 26 : MEAS_DATA);
            Add(LTE_CLASS_TDS, {UE_IND_LAYER, WithL23Head(std::move(payload), MODULE_ID, 0, ids[i]), szNumberAt, 2,
                                PassesL23(ids[i])});
        }
    }

    void MakeDropped()
    {
        for (const uint32_t ulId : DROPPED_IDS)
            Add(LTE_CLASS_DROPPED, {ulId, Sized(0), 0, 0, false});
    }

    void MakeDpi()
    {
        const auto& ranges = *m_config.GetDphFilterRangeList();
        if (!m_config.GetDphFilterEnable() || ranges.empty())
            return;
        Payload payload = Sized(DPI_HEAD);
        Put32(payload, DPI_ID, DPI_CLIENT_ID);
        Add(LTE_CLASS_DPI, {ranges.front().ulLow, std::move(payload), DPI_HEAD, 4, true});
    }

    void MakeOther() { Add(LTE_CLASS_OTHER, {OTHER_ID, Sized(0), 0, 4, PassesL23(OTHER_ID & 0xFFFF)}); }

    const CConfig& m_config;
    const UESIM_OPTIONS& m_stOptions;
    LTE_MESSAGES m_messages;
};
} // namespace

LTE_MESSAGES MakeLteMessages(const CConfig& config, const UESIM_OPTIONS& stOptions)
{
    return CMaker(config, stOptions).Make();
}
