#pragma once

#include "common/Types.h"
#include "e2e/Tshark.h"

#include <gtest/gtest.h>

// Records with their bytes in view, and what tshark must show of them.

using Fields = std::vector<std::pair<const char*, const char*>>; // "-": the packet doesn't have the field

inline TAP_RECORD FromUe(uint8_t ucUe, uint8_t ucChannel)
{
    return {.enKind = TAP_KIND::UE_TO_AGENT, .ucUe = ucUe, .ucChannel = ucChannel, .ulPort = 101};
}
inline TAP_RECORD ToUe(uint8_t ucUe, uint8_t ucChannel)
{
    return {.enKind = TAP_KIND::AGENT_TO_UE, .ucUe = ucUe, .ucChannel = ucChannel, .ulPort = 101};
}
inline TAP_RECORD FromClient(uint8_t ucChannel, uint32_t ulClient = 5, uint8_t ucFlags = 0)
{
    return {.enKind = TAP_KIND::CLIENT_TO_AGENT,
            .ucUe = 3,
            .ucChannel = ucChannel,
            .ucFlags = ucFlags,
            .ulPort = 101,
            .ulClient = ulClient};
}
inline TAP_RECORD ToClient(uint8_t ucChannel, uint32_t ulClient = 5)
{
    return {
        .enKind = TAP_KIND::AGENT_TO_CLIENT, .ucUe = 3, .ucChannel = ucChannel, .ulPort = 101, .ulClient = ulClient};
}
inline const TAP_RECORD STATUS{.enKind = TAP_KIND::STATUS};
inline const TAP_RECORD CONFIG{.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_REPLAYED};
inline const TAP_RECORD EVENT{.enKind = TAP_KIND::PORT_EVENT, .ucUe = 3, .ucChannel = CHANNEL_AT, .ulPort = 104};

inline Bytes Text(const std::string& strText, size_t szSize = 0)
{
    Bytes bytes(AsBytes(strText));
    bytes.resize(std::max(szSize, strText.size()));
    return bytes;
}

/// A file of records and what each of them must show.
class Wireshark : public testing::Test
{
protected:
    unsigned int Expect(const TAP_RECORD& stRecord, const Bytes& bytes, const Fields& fields)
    {
        m_expected.push_back(fields);
        return m_tshark.Add(stRecord, bytes);
    }
    void Check()
    {
        const std::vector<DISSECTED> packets = m_tshark.Packets();
        ASSERT_EQ(packets.size(), m_expected.size());
        for (size_t i = 0; i < packets.size(); ++i)
            for (const auto& [pszField, pszValue] : m_expected[i])
                EXPECT_EQ(Values(packets[i], pszField), pszValue) << pszField << " of frame " << i + 1;
    }

    CTshark m_tshark;
    std::vector<Fields> m_expected;
};
