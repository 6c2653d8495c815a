#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A fleet as its one file describes it (JSON, docs/fleet.md).
struct LAB_FILE
{
    std::vector<std::string> benches; // names of the benches, which are those of their certificates
    std::vector<std::string> lab;     // names of the certificates that may read everything and ask the benches
    int nReplicas = 3;                // servers that hold each message: 1, 3 or 5
    uint64_t ullMaxBytes = 0;         // of the stream on each server; the oldest messages go. 0: no limit
    uint64_t ullMaxAge = 0;           // seconds; older messages go. 0: no limit
};

/// Trusts nothing. False, with what is wrong.
bool ParseLabFile(const std::string& strText, LAB_FILE& stLab, std::string& strError);

/// The permissions for the servers' configurations: a block "authorization" with one user for each name, which is known
/// by its certificate (verify_and_map). A bench can publish to its own subjects only, and hear only what is for it.
std::string PermissionsText(const LAB_FILE& stLab);
