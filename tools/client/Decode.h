#pragma once

#include "common/Bytes.h"

#include <nlohmann/json_fwd.hpp>
#include <span>

// Layouts of records as data, and the one decoder for all of them.

enum FIELD_TYPE : uint8_t
{
    U8,
    U16,
    I16,
    U32,
    I32,
    U64,
    F32,
    TEXT,  // usCount bytes, ends at the first NUL
    BYTES, // usCount bytes, shown as hexadecimal digits
};

struct FIELD_ROW
{
    const char* pszName;
    uint16_t usOffset; // from the start of the record
    FIELD_TYPE enType;
    uint16_t usCount = 1; // fields in a row; more than one make a list
};

struct RECORD_LAYOUT;

/// Records that follow the fixed part of another, one behind the other. Groups of a record follow each other too.
struct GROUP_ROW
{
    const char* pszName;
    const RECORD_LAYOUT* pstItem;
    uint16_t usFixedCount;      // records, or 0: their number stands in the fixed part
    uint16_t usCountOffset = 0; // where it stands there
    FIELD_TYPE enCountType = U32;
};

struct RECORD_LAYOUT
{
    const char* pszName; // for people; null for the items of a group
    uint16_t usSize;     // bytes of the fixed part
    std::span<const FIELD_ROW> fields;
    std::span<const GROUP_ROW> groups = {};
};

/// The fields of a record by name. Fields beyond the end read as zero; items that don't begin within the bytes are
/// left out, and "truncated" says so when anything was missing.
nlohmann::ordered_json Decode(const RECORD_LAYOUT& stLayout, ByteView bytes);
