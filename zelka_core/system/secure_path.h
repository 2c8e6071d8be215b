#pragma once

#include <wx/string.h>

// Closing files and folders to everyone but the running user. Any thread.

namespace ZelkaCore {

// Whether `path` is a folder with mode 0700 or a regular file with mode 0600 (octal, exactly) that
// belongs to the user this process runs as. A symbolic link is neither, whatever it leads to.
bool IsSecuredFileOrDirectory(const wxString& path);

// Makes the running user the owner of the folder or regular file and sets its mode to 0700 or 0600.
// A symbolic link as the last part of `path` is never followed. With `recursive`, everything below
// a folder is treated the same, the folder first, so that nobody else can interfere with the rest;
// symbolic links below it are left as they are. What cannot be secured is told by one warning each
// that names it and the reason, and the rest is secured all the same.
void SecureFileOrDirectory(const wxString& path, bool recursive);

}  // namespace ZelkaCore
