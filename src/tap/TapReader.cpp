#include "tap/TapReader.h"

#include <algorithm>
#include <cstring>

CTapReader::CTapReader(std::span<const TAP_WORD> memory, uint64_t ullPosition, uint64_t ullNumber)
    : m_head(memory.first(TAP_HEAD_WORDS)),
      m_ring(memory.subspan(TAP_HEAD_WORDS)),
      m_ullPosition(ullPosition),
      m_ullNumber(ullNumber)
{
}

CTapReader::RESULT CTapReader::Next(TAP_READ& stRead)
{
    while (!m_bBroken) {
        if (m_ullEnd <= m_ullPosition) // not for each record: the mark's cache line is the writer's
            m_ullEnd = Load(TAP_END);
        if (m_ullEnd == m_ullPosition)
            return RESULT::NOTHING;
        m_bBroken = m_ullEnd < m_ullPosition;
        if (m_bBroken)
            break;
        const LOOK enLook = Copy(stRead);
        if (enLook == LOOK::VALID)
            return RESULT::RECORD;
        m_bBroken = enLook == LOOK::BROKEN || !Restart();
    }
    return RESULT::BROKEN;
}

/// Copies the record at the position and moves behind it.
CTapReader::LOOK CTapReader::Copy(TAP_READ& stRead)
{
    size_t szIndex = m_ullPosition % m_ring.size();
    const uint64_t ullFirst = TakeWord(szIndex);
    const uint64_t ullBytes = ullFirst & UINT32_MAX;
    const uint64_t ullWords = TapRecordWords(ullBytes);
    const uint64_t ullThere = m_ullEnd - m_ullPosition;
    if (ullThere > m_ring.size() || ullThere < ullWords) // neither with a record that is there
        return Check(LOOK::BROKEN);
    const uint64_t ullNumber = TakeWord(szIndex);
    const uint64_t ullTime = TakeWord(szIndex);
    const uint64_t ullPlaces = TakeWord(szIndex);
    stRead.stRecord = {.enKind = static_cast<TAP_KIND>(ullFirst >> 32 & 0xFF),
                       .ucUe = static_cast<uint8_t>(ullFirst >> 40),
                       .ucChannel = static_cast<uint8_t>(ullFirst >> 48),
                       .ucFlags = static_cast<uint8_t>(ullFirst >> 56),
                       .ulPort = static_cast<uint32_t>(ullPlaces),
                       .ulClient = static_cast<uint32_t>(ullPlaces >> 32),
                       .ullNumber = ullNumber,
                       .ullTime = ullTime};
    m_vecBytes.resize((ullWords - TAP_RECORD_WORDS) * TAP_WORD_SIZE);
    CopyWords(szIndex);
    if (const LOOK enLook = Check(ullNumber < m_ullNumber ? LOOK::BROKEN : LOOK::VALID); enLook != LOOK::VALID)
        return enLook;
    stRead.bytes = ByteView(m_vecBytes).first(ullBytes);
    stRead.ullLost = ullNumber - m_ullNumber;
    m_ullLost += stRead.ullLost;
    m_ullNumber = ullNumber + 1;
    m_ullPosition += ullWords;
    return LOOK::VALID;
}

/// Whether the record at the position was there until now, and then the other.
CTapReader::LOOK CTapReader::Check(LOOK enOtherwise) const
{
    return Load(TAP_BEGIN) > m_ullPosition ? LOOK::OVERRUN : enOtherwise;
}

/// False when the agent's marks can't be right: then the reader would go back.
bool CTapReader::Restart()
{
    const uint64_t ullRestart = Load(TAP_RESTART);
    if (ullRestart <= m_ullPosition)
        return false;
    m_ullPosition = ullRestart;
    return true;
}

/// Fills the bytes with the words from the index on, which go on at the ring's begin.
void CTapReader::CopyWords(size_t szIndex)
{
    for (ByteSpan bytes = m_vecBytes; !bytes.empty(); szIndex = 0) {
        const auto words = m_ring.subspan(szIndex, std::min(bytes.size() / TAP_WORD_SIZE, m_ring.size() - szIndex));
        unsigned char* pTo = bytes.data();
        for (const TAP_WORD& word : words) {
            const uint64_t ullWord = word.load(std::memory_order_acquire);
            std::memcpy(pTo, &ullWord, TAP_WORD_SIZE);
            pTo += TAP_WORD_SIZE;
        }
        bytes = bytes.subspan(words.size() * TAP_WORD_SIZE);
    }
}

uint64_t CTapReader::TakeWord(size_t& szIndex) const
{
    const uint64_t ullWord = m_ring[szIndex].load(std::memory_order_acquire);
    szIndex = szIndex + 1 == m_ring.size() ? 0 : szIndex + 1;
    return ullWord;
}

double CTapReader::Behind() const
{
    return static_cast<double>(Load(TAP_END) - m_ullPosition) / static_cast<double>(m_ring.size());
}
