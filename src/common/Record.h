#pragma once

#include "common/Bytes.h"

#include <array>

// Records of a fixed size. Each has SIZE and a static Fields(io, record) that leads a reader or writer through its
// fields in the order of its bytes.

/// The bytes of a record.
template <class Record> std::array<unsigned char, Record::SIZE> EncodeRecord(const Record& stRecord)
{
    std::array<unsigned char, Record::SIZE> aucRecord{};
    CByteWriter writer(aucRecord);
    Record::Fields(writer, stRecord);
    return aucRecord;
}

/// Reads a record; false when the bytes are fewer than its size (missing fields are zero then).
template <class Record> bool DecodeRecord(ByteView bytes, Record& stRecord)
{
    CByteReader reader(bytes);
    Record::Fields(reader, stRecord);
    return reader.Ok();
}
