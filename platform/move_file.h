#pragma once

#include <string>
#include <system_error>
#include <vector>

#include "platform/error.h"

// Moving files out of the way, and deleting them when the system has been restarted. Paths are in
// UTF-8. Any thread.

inline constexpr DWORD MOVEFILE_REPLACE_EXISTING = 1;
inline constexpr DWORD MOVEFILE_DELAY_UNTIL_REBOOT = 4;

// The name of the list of files that are deleted after a restart, in the folder of each.
inline constexpr const char* kPendingDeletesName = ".pending-deletes";

// With flags 0 or MOVEFILE_REPLACE_EXISTING: gives the file `from` the name `to` on the same file
// system; a file that has that name already is replaced, or without the flag makes the move fail.
// With MOVEFILE_DELAY_UNTIL_REBOOT, `to` empty and `from` a path of anything but a folder: has it
// deleted after the next restart of the system. The list of such files is `.pending-deletes` in the
// file's own folder, a line for each: the id of the boot in which it was listed, a blank, the
// file's name; DeletePendingFiles carries it out. Nothing is changed by a failure; EINVAL for any
// other combination, and for a name with a line end, which cannot be listed.
[[nodiscard]] std::error_code MoveFileExW(const std::string& from, const std::string& to,
                                          DWORD flags);

// The id that the system gave to the boot it runs in.
[[nodiscard]] std::error_code CurrentBootId(std::string& id);

// Deletes what the list in `folder` has from other boots than `bootId`, and takes it off the list;
// a list without lines goes. What is gone already counts as deleted. Returns what went wrong, each
// as a text: a file that cannot be deleted stays listed, a line that makes no sense is dropped, and
// with an empty `bootId` nothing is done. Folders are never deleted, and nothing outside of
// `folder`.
std::vector<std::string> DeletePendingFiles(const std::string& folder, const std::string& bootId);
