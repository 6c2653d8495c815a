#pragma once

#include "common/Bytes.h"
#include "data/RecordLayout.h"

#include <nlohmann/json_fwd.hpp>

/// The one decoder of all records: the fields by name. Fields beyond the end read as zero; items that don't begin
/// within the bytes are left out, and "truncated" says so when anything was missing.
nlohmann::ordered_json Decode(const RECORD_LAYOUT& stLayout, ByteView bytes);
