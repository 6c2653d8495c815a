#include "capture/CapturePicture.h"

#include "common/Record.h"

#include <algorithm>

void CCapturePicture::Clear()
{
    m_configuration.reset();
    m_mapEvents.clear();
    m_ulPictures = 0;
}

/// The agent makes one picture after the other, each with the configuration first. The first one is ours.
bool CCapturePicture::IsForOthers(const TAP_RECORD& stRecord)
{
    if ((stRecord.ucFlags & TAP_REPLAYED) == 0)
        return false;
    if (stRecord.enKind == TAP_KIND::CONFIGURATION)
        ++m_ulPictures;
    return m_ulPictures > 1;
}

void CCapturePicture::Take(const TAP_RECORD& stRecord, ByteView bytes)
{
    if (stRecord.enKind == TAP_KIND::CONFIGURATION) {
        if (!m_configuration)
            m_configuration.emplace();
        Keep(*m_configuration, stRecord, bytes);
    }
    if (stRecord.enKind != TAP_KIND::PORT_EVENT)
        return;
    const auto ulEvent = LoadLe<uint32_t>(bytes, 0);
    const bool bClient = ulEvent == static_cast<uint32_t>(TAP_EVENT::CLIENT);
    TAP_CLIENT_EVENT stClient;
    if (bClient && DecodeRecord(bytes, stClient) && stClient.ucConnected == 0) {
        // It may have bound to a UE since it came.
        std::erase_if(m_mapEvents, [&](const auto& entry) {
            return std::get<0>(entry.first) == ulEvent && std::get<3>(entry.first) == stRecord.ulClient;
        });
        return;
    }
    // What a picture said of the channel's past is over with its next event.
    if (ulEvent == static_cast<uint32_t>(TAP_EVENT::CHANNEL))
        m_mapEvents.erase({static_cast<uint32_t>(TAP_EVENT::SINCE), stRecord.ucUe, stRecord.ucChannel, 0});
    const KEY key{ulEvent, stRecord.ucUe, stRecord.ucChannel, bClient ? stRecord.ulClient : 0};
    Keep(m_mapEvents[key], stRecord, bytes);
}

void CCapturePicture::ForEach(const std::function<void(const TAP_RECORD&, ByteView)>& call) const
{
    std::vector<const ENTRY*> entries;
    for (const auto& [key, stEntry] : m_mapEvents)
        entries.push_back(&stEntry);
    std::ranges::sort(entries, {}, [](const ENTRY* pEntry) { return pEntry->stRecord.ullNumber; });
    if (m_configuration)
        entries.insert(entries.begin(), &*m_configuration);
    for (const ENTRY* const pEntry : entries) {
        TAP_RECORD stRecord = pEntry->stRecord;
        stRecord.ucFlags |= TAP_REPLAYED;
        call(stRecord, pEntry->vecBytes);
    }
}

void CCapturePicture::Keep(ENTRY& stEntry, const TAP_RECORD& stRecord, ByteView bytes)
{
    stEntry.stRecord = stRecord;
    stEntry.vecBytes.assign(bytes.begin(), bytes.end());
}
