#pragma once

#include "common/UniqueFd.h"

#include <optional>
#include <string>

/// A pseudo terminal for a program that expects a serial port: the other end opens its device.
struct PSEUDO_TERMINAL
{
    CUniqueFd master; // non-blocking
    std::string strName;

    /// Whether somebody has the device open. While nobody has, a wait for the master would end at once for ever.
    bool IsUsed() const;
    /// Whether there is something to read, of one who may have gone.
    bool HasInput() const;
};

/// A new one, its device raw until the other end sets what it needs. Nothing, with errno, when none is left.
std::optional<PSEUDO_TERMINAL> OpenPseudoTerminal();
