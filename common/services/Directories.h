// Functions for the folders of the archives and for the component's own folder.
#pragma once

#include <string>

namespace VORNAUTILITY {

// Paths are narrow (multibyte) strings of at most 512 bytes.

// Creates all directories of a full path on a drive, with access for everyone. Returns 1 on success; existing
// directories are not an error. Returns 0 if a name is not accepted (it begins or ends with ".", ends with a blank, or
// contains "," or a character that is not allowed in file names) or a directory cannot be created; directories created
// before that remain.
int CreateDirectories(const char* path);
// Creates one directory; true also if it already exists.
bool SCCreateDirectory(const char* path);
// Deletes the directory and its content, including read-only files; links are removed, not followed. Without recurse it
// stops at a subdirectory. On failure a part of the content may already be deleted.
bool DeleteDirectory(const char* path, bool recurse);
bool IsDots(const char* name);

// The folder of the component's DLL, with a trailing backslash, as registered for its ProgID; empty if it is not
// registered.
std::wstring GetComponentDirectory();

} // namespace VORNAUTILITY
