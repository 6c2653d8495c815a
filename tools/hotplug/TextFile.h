#pragma once

#include <optional>
#include <string>

/// The whole file, of 1 MiB at most; none when it can't be read, strError says why, as
/// does errno.
std::optional<std::string> ReadTextFile(const std::string& strPath, std::string& strError);

/// Puts the text in the place of the file: whoever looks, even after a power cut, finds the old text or the new one.
/// False when that fails, strError says why.
[[nodiscard]] bool ReplaceTextFile(const std::string& strPath, const std::string& strText, std::string& strError);
