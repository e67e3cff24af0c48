// A directory of its own for each case, on whichever machine the suite runs.
#pragma once

#include <string>

#include "platform/files.h"

namespace contract {

// Makes an empty directory and gives its path, without a closing backslash. Fails the case when it
// can't be made.
std::wstring FreshDirectory();

// Writes a whole new file; fails the case on any failure.
void WriteWhole(const std::wstring& path, const std::string& bytes);

// The whole content of a file; fails the case on any failure.
std::string ReadWhole(const std::wstring& path);

bool Exists(const std::wstring& path);

// Opens an existing file to read, sharing everything.
kestrelon::platform::Code OpenToRead(const std::wstring& path, kestrelon::platform::File& file);

}  // namespace contract
