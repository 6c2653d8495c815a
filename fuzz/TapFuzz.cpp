#include "tap/TapReader.h"

#include <cstdlib>
#include <cstring>

// A hostile tap: the input is the memory, its first three words the marks, and what a reader finds there must lie
// inside it. The marks change once while it reads, as those of a writer do.

namespace
{
constexpr size_t MARKS = 3; // of the head only these are read
constexpr size_t MOST_RECORDS = 1000;

uint64_t WordAt(ByteView data, size_t szIndex)
{
    return LoadLe<uint64_t>(data, szIndex * TAP_WORD_SIZE);
}

void SetMarks(std::vector<TAP_WORD>& words, ByteView data)
{
    words[TAP_END] = WordAt(data, 0);
    words[TAP_BEGIN] = WordAt(data, 1);
    words[TAP_RESTART] = WordAt(data, 2);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen)
{
    const ByteView data(pData, szLen);
    const size_t szWords = szLen / TAP_WORD_SIZE;
    if (szWords < 2 * MARKS + 1)
        return 0;
    std::vector<TAP_WORD> words(TAP_HEAD_WORDS + szWords - 2 * MARKS);
    for (size_t i = 2 * MARKS; i < szWords; ++i)
        words[TAP_HEAD_WORDS + i - 2 * MARKS] = WordAt(data, i);
    SetMarks(words, data);
    CTapReader reader(words, 0, 0);
    TAP_READ stRead;
    uint64_t ullRead = 0;
    for (size_t i = 0; i < MOST_RECORDS && reader.Next(stRead) == CTapReader::RESULT::RECORD; ++i) {
        ++ullRead;
        if (stRead.bytes.size() > words.size() * TAP_WORD_SIZE ||
            ullRead + reader.LostRecords() != stRead.stRecord.ullNumber + 1)
            std::abort();
        if (i == MOST_RECORDS / 2)
            SetMarks(words, data.subspan(MARKS * TAP_WORD_SIZE));
    }
    return 0;
}
