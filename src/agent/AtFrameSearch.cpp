#include "agent/AtFrameSearch.h"

#include <algorithm>

namespace
{
using Start = std::array<unsigned char, CAtFrameSearch::START_LEN>;

constexpr Start StartOf(unsigned int ulCmdId)
{
    Start start = {LEAD_BYTE, LEAD_BYTE};
    StoreLe<uint32_t>(start, LEAD_LEN, ulCmdId);
    return start;
}

// The commands of the channel.
constexpr std::array<Start, 3> FRAME_STARTS = {StartOf(AGENT_CMD_AT), StartOf(AGENT_CMD_BIND),
                                               StartOf(AGENT_CMD_UNBIND)};

/// Whether a frame may start with these bytes; none at all are fine.
bool MayStartFrame(ByteView bytes)
{
    return std::ranges::any_of(FRAME_STARTS, [&](const Start& start) {
        return std::ranges::equal(bytes, Slice(ByteView(start), 0, bytes.size()));
    });
}
} // namespace

ByteView CAtFrameSearch::Take(unsigned char ucByte, bool bIsText, std::vector<unsigned char>& text)
{
    Release(ucByte, text);
    m_aucHeld[m_szHeld] = ucByte;
    m_abIsText[m_szHeld++] = bIsText;
    if (!MayStartFrame(Held()))
        ReleaseFirst(text); // it stands alone
    if (m_szHeld < START_LEN)
        return {};
    m_szHeld = 0;
    return m_aucHeld;
}

void CAtFrameSearch::Release(unsigned char ucNext, std::vector<unsigned char>& text)
{
    for (; m_szHeld > 0; ReleaseFirst(text)) {
        m_aucHeld[m_szHeld] = ucNext; // there is room: a whole start isn't held
        if (MayStartFrame(Slice(ByteView(m_aucHeld), 0, m_szHeld + 1)))
            return;
    }
}

void CAtFrameSearch::ReleaseFirst(std::vector<unsigned char>& text)
{
    if (m_abIsText.front())
        text.push_back(m_aucHeld.front());
    std::rotate(m_aucHeld.begin(), m_aucHeld.begin() + 1, m_aucHeld.end());
    std::rotate(m_abIsText.begin(), m_abIsText.begin() + 1, m_abIsText.end());
    --m_szHeld;
}
