#pragma once

#include <wx/string.h>

// Other processes: finding, stopping and running them. Any thread. A process id is an unsigned long
// as pid files and messages have it; 0 is none.

namespace ZelkaCore {

// The process id in a pid file: a decimal number, with blanks or line ends around it at most. 0 if
// the file cannot be read, is no regular file, or holds anything else, such as a number that no
// process can have. Reads 64 bytes at most.
unsigned long ReadPidFile(const wxString& path);

// The command line of a running process: the path of its executable as the system knows it, links
// resolved and never quoted, then each argument behind a blank, as it is. The path is right also
// when the process was started by another name or rewrote its title. For an executable that was
// deleted or replaced it is the path that the file had. Empty if there is none to be had: no such
// process, one that has ended, a thread of the system, or one that this user may not inspect. Only
// the first 64 KiB of the arguments are told.
wxString GetCommandLineW(unsigned long pid);

// Stops a process and returns true once it is gone: ended, even if its parent has not collected it
// yet, or not there in the first place. A child of this process is collected, so that nobody else
// can ask for its exit status afterwards.
// The process is asked to end first (SIGTERM; a halted one is continued) and has `patience`
// milliseconds for it, ten seconds if that is negative. Then it is killed (SIGKILL), and gets the
// same ten seconds at most to vanish. False, with a warning in the log that says why, if it is
// still there, if this user may not stop it, or if `pid` is 0, 1, this process or no process id.
bool KillProcess(unsigned long pid, int patience);

// Runs a program and waits, without limit, for it to end. `program` is a path and is not searched
// for. `arguments` is split at blanks and tabs; a part between double quotes keeps them ("" alone
// is an empty argument), and every other character stands for itself, a backslash too. The program
// gets the environment and the current folder of this process, an empty standard input, the signal
// settings of a fresh process, and no other descriptor than its outputs. True if it ran to its end,
// whatever it thinks of the outcome: `exitCode` is its exit status, or 128 plus the signal that
// ended it, `output` receives its standard output and `errors` its standard error, the first MiB of
// each; what is dropped is told by a warning. What a process that it leaves behind writes after its
// end is not waited for. False, with a warning in the log that says why, if it could not be started
// or waited for; `output`, `exitCode` and `errors` are untouched then.
bool Execute(const wxString& program, const wxString& arguments, wxString& output,
             unsigned long& exitCode, wxString& errors);

}  // namespace ZelkaCore
