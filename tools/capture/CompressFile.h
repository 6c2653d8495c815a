#pragma once

#include <string>

/// Puts a file's bytes into one zstd frame, with a checksum, at its name with COMPRESSED_SUFFIX, and deletes the file.
/// The other name appears when all of it is on the disk. False, with what is wrong: then the file is as it was.
bool CompressFile(const std::string& strPath, std::string& strError);
