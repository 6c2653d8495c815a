#include "page/PageState.h"

#include "capture/CaptureFormat.h"

namespace
{
constexpr double SAME_LOSS_MS = 10'000;
}

void PAGE_STATE::NoteLoss(const PAGE_LOSS& stLoss)
{
    for (PAGE_LOSS& stKnown : losses)
        if (stKnown.strWhat == stLoss.strWhat && stKnown.ue == stLoss.ue &&
            stLoss.dTime - stKnown.dTime < SAME_LOSS_MS) {
            stKnown.ullCount += stLoss.ullCount;
            return;
        }
    losses.push_front(stLoss);
    if (losses.size() > LOSSES_MOST)
        losses.pop_back();
}

const char* ChannelName(uint8_t ucChannel)
{
    return ucChannel < CAPTURE_CHANNEL_NAMES.size() ? CAPTURE_CHANNEL_NAMES[ucChannel] : "";
}

const char* KindName(TAP_KIND enKind)
{
    const auto szKind = static_cast<size_t>(enKind);
    return szKind < CAPTURE_KIND_NAMES.size() ? CAPTURE_KIND_NAMES[szKind] : "";
}
