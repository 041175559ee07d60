// The folders of the archives, and the component's own.
#pragma once

#include <string>

namespace VORNAUTILITY {

// Paths are narrow (multibyte) strings of at most 512 bytes.

// Creates every directory along the path, open to everyone. 1 on success, 0 where a piece begins or ends with ".",
// holds a "," or a character that no file name has, or cannot be created. An existing directory is no error.
int CreateDirectories(const char* path);
// Creates one directory; true also where it exists already.
bool SCCreateDirectory(const char* path);
// Deletes the directory and what is in it, read-only files included; without recurse it stops at a subdirectory.
bool DeleteDirectory(const char* path, bool recurse);
bool IsDots(const char* name);

// The folder of the component's own file, with the backslash at its end, found by its ProgID in the registry; empty
// where it is not registered.
std::wstring GetComponentDirectory();

} // namespace VORNAUTILITY
