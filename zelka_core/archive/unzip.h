#pragma once

class wxFileName;
class wxString;
class wxZipEntry;

namespace ZelkaCore {

// Asked about each file of an archive: true to have it written to `targetPath`, an absolute path,
// false to pass it over. The entry shows name, time, size, method, attributes and permissions; it
// lasts for the call. A refusal ends nothing and is no failure. No exception may leave it.
using UnzipCallback = bool (*)(void* userData, const wxZipEntry* entry, const wxString* targetPath);

// Walks a ZIP archive in its own order, asks `callback` about each file, and writes the accepted
// ones below `folder`, which exists, over what is there; missing folders are made. The permission
// bits are the archive's, without setuid, setgid and sticky; the owner is this process, the time
// now.
//
// The archive counts as hostile. Before the callback is asked for the first time, the whole
// directory is checked (CheckPackage in package_check.h), and that no path leads through a symbolic
// link below `folder`; before the first write, that all declared sizes fit on the disk. Whatever
// fails there leaves everything untouched.
//
// A folder entry makes its folder and is not handed to the callback. Folders come with the first
// accepted file: an archive whose every file is refused, or that holds no file, writes nothing.
//
// Every target is at all times the old file or the new one, whole, also after a crash or a power
// cut. An accepted file may come into place only after the callback was asked about later ones, but
// before Unzip returns.
//
// True when the walk reached the end. False, with an error in the log that names archive, entry and
// reason, if the archive is refused or an entry is damaged or cannot be written; the files accepted
// before that entry are then in place, those behind it are not. Memory does not grow with the size
// of an entry.
bool Unzip(const wxFileName& archive, const wxFileName& folder, UnzipCallback callback,
           void* userData);

// Removes what a process that was killed during Unzip has left in `folder` or below it: files whose
// names begin with ".zelka-unzip-". For the next start. Does nothing while an Unzip into the same
// folder runs. What cannot be removed is told by a warning and stays; then false.
bool RemoveTemporaryFiles(const wxFileName& folder);

}  // namespace ZelkaCore
