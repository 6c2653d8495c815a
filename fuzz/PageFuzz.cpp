#include "page/PageModel.h"

#include "common/Bytes.h"

#include <cstdlib>

// A hostile tap behind the page: the input is a row of records, each with four bytes of head (kind, UE, channel and
// flags, half the length) and its bytes. What the page makes of them is asked in every view.

namespace
{
constexpr size_t HEAD = 4;
constexpr uint64_t MS = 1'000'000;
constexpr uint64_t START = 1'700'000'000'000 * MS;

TAP_RECORD RecordOf(ByteView head, uint64_t ullNumber)
{
    TAP_RECORD stRecord;
    stRecord.enKind = static_cast<TAP_KIND>(head[0] & 0x0F); // some kinds that there aren't
    stRecord.ucUe = static_cast<uint8_t>(head[1] & 0x1F);    // some beyond the slots
    stRecord.ucChannel = static_cast<uint8_t>(head[2] & 0x07);
    stRecord.ucFlags = static_cast<uint8_t>(head[2] >> 4);
    stRecord.ulPort = head[1];
    stRecord.ulClient = head[0] >> 4;
    stRecord.ullNumber = ullNumber;
    stRecord.ullTime = START + ullNumber * MS;
    return stRecord;
}

void Feed(CPageModel& model, ByteView data)
{
    for (uint64_t ullNumber = 0; data.size() >= HEAD; ++ullNumber) {
        const TAP_RECORD stRecord = RecordOf(data, ullNumber);
        const ByteView bytes = Slice(data, HEAD, 2 * size_t{data[3]});
        model.Take(stRecord, bytes, stRecord.ucFlags >> 3);
        data = Slice(data, HEAD + bytes.size());
    }
}

void Ask(IPageViews& views, const PAGE_QUERY& stQuery)
{
    const auto answer = views.Get(stQuery);
    if (!answer || (answer->nStatus != 200 && answer->nStatus != 404))
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen)
{
    CPageModel model({.szPacketBytes = 64 * 1024});
    model.BeginRun({});
    Feed(model, {pData, szLen});
    model.OnSecond(START);
    for (const char* pszUe : {"0", "3", "15"}) {
        Ask(model, {"/api/modem", {{"ue", pszUe}}});
        (void)model.Tick({"/api/events", {{"view", "modem"}, {"ue", pszUe}}});
    }
    Ask(model, {"/api/overview", {}});
    Ask(model, {"/api/packets", {}});
    for (const char* pszNumber : {"1", "2", "3", "4"})
        Ask(model, {"/api/packet", {{"number", pszNumber}}});
    Ask(model, {"/api/plot", {{"ue", "3"}, {"plot", "stat/tbs"}}});
    Ask(model, {"/api/export.csv", {{"ue", "3"}, {"plot", "stat/cqi"}}});
    Ask(model, {"/api/export.pcapng", {{"minutes", "1"}}});
    Ask(model, {"/metrics", {}});
    model.EndRun();
    return 0;
}
