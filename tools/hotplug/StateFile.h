#pragma once

#include "common/UniqueFd.h"
#include "hotplug/Numbers.h"

#include <string>

/// The numbers of modems on the disk.
class CStateFile
{
public:
    explicit CStateFile(std::string strPath) : m_strPath(std::move(strPath)) {}

    /// Keeps other runs of the program off the file while this object lives. False, with the reason, when another one
    /// has it; true too where no lock can be made, as Save will tell.
    bool Lock(std::string& strError);

    /// What the file holds; no numbers without a file. What can't be read is told in strError and begun anew.
    CNumbers Load(std::string& strError);
    /// Writes the numbers when the file doesn't hold them. False, with the reason, when it can't.
    bool Save(const CNumbers& numbers, std::string& strError);

private:
    const std::string m_strPath;
    CUniqueFd m_lock;
    CNumbers m_saved;
};
