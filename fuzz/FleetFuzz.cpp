#include "fleet/FleetFormat.h"
#include "fleet/FleetState.h"

#include <cstdlib>

/// Messages and states as anybody may put them on the hub. What is read as a message must be written the same again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t szSize)
{
    const ByteView bytes(pData, szSize);
    FLEET_MESSAGE stMessage;
    if (DecodeMessage(bytes, stMessage)) {
        const auto vecAgain = EncodeMessage(stMessage);
        if (!std::equal(bytes.begin(), bytes.end(), vecAgain.begin(), vecAgain.end()))
            std::abort();
    }
    const std::string strText(bytes.begin(), bytes.end());
    (void)ParseSubject(strText);
    (void)LaneOfInterface(strText);
    if (const auto state = StateFromJson(strText))
        (void)StateToJson(*state);
    return 0;
}
