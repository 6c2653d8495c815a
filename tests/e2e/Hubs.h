#pragma once

#include "fleet/Hub.h"
#include "support/VexProcess.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

/// Three servers of NATS with TLS as scripts/fleet-hubs configures them, with the permissions of vex-fleet init, on
/// this machine's ports 4221 to 4223. They are killed at the end of its life.
class CHubs
{
public:
    static constexpr size_t COUNT = 3;

    /// Certificates for the lab and these benches, and one for the bench "stranger", which isn't of the fleet.
    explicit CHubs(std::vector<std::string> benches);

    /// Starts all that don't run.
    void Start();
    /// Waits until there are the stream and the bucket; false when that takes more than 40 s.
    [[nodiscard]] bool Init() const;
    /// SIGKILL.
    void Kill(size_t szHub) { m_apHub.at(szHub).reset(); }
    /// The one that leads the stream; COUNT when none says so.
    size_t StreamLeader() const;

    /// --servers, --cert, --key and --ca of whoever has this certificate.
    std::vector<std::string> Options(const std::string& strName) const;
    /// The same for a connection of the test's own.
    HUB_OPTIONS HubOptions(const std::string& strName) const;
    /// Runs vex-fleet as the lab, or with another certificate, to its end.
    std::unique_ptr<CVexProcess> Fleet(std::vector<std::string> args, const std::string& strName = "lab") const;

    const CTempDir& Dir() const { return m_dir; }

private:
    CTempDir m_dir;
    std::array<std::unique_ptr<CVexProcess>, COUNT> m_apHub;
};
