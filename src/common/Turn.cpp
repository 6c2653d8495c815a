#include "common/Turn.h"

#include "common/Debug.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace
{
constexpr std::chrono::milliseconds LONG_TURN(20);

struct LOOP_STATE
{
    const char* pszName;
    std::atomic<int64_t> llLongestUs{0};
};
std::array<LOOP_STATE, 5> g_astLoop = {{// by LOOP
                                        {"clients"},
                                        {"agent messages"},
                                        {"serial read"},
                                        {"serial write"},
                                        {"device monitor"}}};

double Ms(int64_t llUs)
{
    return static_cast<double>(llUs) / 1000;
}
} // namespace

CTurn::~CTurn()
{
    const auto took = std::chrono::steady_clock::now() - m_Begin;
    const int64_t llUs = std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    LOOP_STATE& stLoop = g_astLoop[static_cast<size_t>(m_enLoop)];
    int64_t llLongestUs = stLoop.llLongestUs;
    while (llUs > llLongestUs && !stLoop.llLongestUs.compare_exchange_weak(llLongestUs, llUs)) {
    }
    if (took > LONG_TURN)
        CDebug::Instance()->PrintInfo("The loop for %s took %.1f ms for a turn", stLoop.pszName, Ms(llUs));
}

void CTurn::LogLongest()
{
    std::string strText;
    for (const LOOP_STATE& stLoop : g_astLoop) {
        char szItem[64];
        (void)snprintf(szItem, sizeof(szItem), "%s%s %.1f ms", strText.empty() ? "" : ", ", stLoop.pszName,
                       Ms(stLoop.llLongestUs));
        strText += szItem;
    }
    CDebug::Instance()->PrintInfo("Longest turns: %s", strText.c_str());
}
