#include "hotplug/Listener.h"

#include "common/OwnedFile.h"

#include <array>
#include <cinttypes>
#include <string>

namespace
{
constexpr unsigned int LISTENING = 0x0A; // the kernel's TCP_LISTEN

struct LISTEN_ROW
{
    uint32_t ulAddress = 0; // as in memory, so in network order
    unsigned int uiPort = 0;
    uint64_t ullNumber = 0;
};

/// False for a row of another kind.
bool ReadRow(const std::string& strLine, LISTEN_ROW& stRow)
{
    // sl, local address, remote address, state, queues, timer, retransmits, user, time-out, inode
    unsigned int uiState = 0;
    return sscanf(strLine.c_str(), " %*u: %8" SCNx32 ":%4x %*8x:%*4x %2x %*x:%*x %*x:%*x %*x %*u %*u %20" SCNu64,
                  &stRow.ulAddress, &stRow.uiPort, &uiState, &stRow.ullNumber) == 4 &&
           uiState == LISTENING;
}

/// Looks at row after row; a socket of exactly this address goes before one of all addresses.
class CListenerSearch
{
public:
    explicit CListenerSearch(const sockaddr_in& stAddress) : m_stAddress(stAddress) {}

    void Look(const std::string& strLine)
    {
        LISTEN_ROW stRow;
        if (!ReadRow(strLine, stRow) || stRow.uiPort != ntohs(m_stAddress.sin_port))
            return;
        if (stRow.ulAddress == m_stAddress.sin_addr.s_addr)
            m_ullExact = stRow.ullNumber;
        else if (stRow.ulAddress == htonl(INADDR_ANY))
            m_ullAny = stRow.ullNumber;
    }
    uint64_t Found() const { return m_ullExact != 0 ? m_ullExact : m_ullAny; }

private:
    const sockaddr_in m_stAddress;
    uint64_t m_ullExact = 0;
    uint64_t m_ullAny = 0;
};
} // namespace

uint64_t FindListener(std::string_view table, const sockaddr_in& stAddress)
{
    CListenerSearch search(stAddress);
    while (!table.empty()) {
        const std::string_view line = table.substr(0, table.find('\n'));
        table.remove_prefix(std::min(line.size() + 1, table.size()));
        search.Look(std::string(line));
    }
    return search.Found();
}

uint64_t FindListener(const sockaddr_in& stAddress)
{
    const OwnedFile file(fopen("/proc/self/net/tcp", "re"));
    CListenerSearch search(stAddress);
    std::array<char, 256> acLine{}; // a row has 150 characters
    while (file && search.Found() == 0 && fgets(acLine.data(), acLine.size(), file.get()) != nullptr)
        search.Look(acLine.data());
    return search.Found();
}
