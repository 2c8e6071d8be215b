#pragma once

#include <string>
#include <vector>

#include "platform/file.h"
#include "platform/folder_tree.h"

class wxFileName;
class wxString;
class wxZipEntry;

namespace ZelkaCore {

class ZipArchive;

// Asked about each file of an archive: true to have it written to `targetPath`, an absolute path,
// false to pass it over. The entry shows name, time, size, method, attributes and permissions; it
// lasts for the call. A refusal ends nothing and is no failure. No exception may leave it.
using UnzipCallback = bool (*)(void* userData, const wxZipEntry* entry, const wxString* targetPath);

// Looks on while an archive is unpacked. No exception but std::exception leaves it; one is the
// unpacking's failure.
class UnzipObserver {
  public:
    virtual ~UnzipObserver() = default;

    // Everything has been judged, and nothing is asked for or written yet. `places` are the paths
    // of the entries below the folder, without links, in the order of the directory. False, with
    // the reason in `fault`, refuses the archive.
    virtual bool OnJudged(ZipArchive& archive, const std::vector<std::string>& places,
                          std::string& fault) = 0;
    // The first file is about to be written. False as before.
    virtual bool OnBegin(std::string& fault) = 0;
    // Asked once everything was judged: whether OnFile is of interest.
    [[nodiscard]] virtual bool WantsChecksums() const = 0;
    // A file is written, and comes into its place when Unzip commits it.
    virtual void OnFile(const std::string& place, const std::string& sha256, unsigned mode) = 0;
};

struct UnzipOptions {
    // The archive lists what the callback deletes, and refuses to have written: then it is no fault
    // that a folder is where an entry has a file, or a file where it needs a folder.
    bool removes = false;
    // Files and folders, as absolute paths, that no entry may touch, nor anything below them.
    std::vector<std::string> reserved = {};
    // Called again and again while there is something to do, also from inside a long entry.
    void (*progress)() = nullptr;
    // Receives the version of the archive that was opened.
    FileVersion* opened = nullptr;
    // Where the bytes of the archive are if they are not to be read from its path: taken, and then
    // `opened` is left alone.
    FileStream* content = nullptr;
    // The path of an entry that is neither asked about nor written.
    std::string passedOver = {};
    UnzipObserver* observer = nullptr;
};

// Walks a ZIP archive in its own order, asks `callback` about each file, and writes the accepted
// ones below `folder`, which exists, over what is there; missing folders are made. The permission
// bits are the archive's, without setuid, setgid and sticky; an entry that carries none gets those
// of the file that it replaces, or 0644, and a folder 0755. The owner is this process, the time
// now.
//
// The archive counts as hostile. Before the callback is asked for the first time, the whole
// directory is checked (CheckPackage in package_check.h), and every way to an entry: a symbolic
// link on it has to stay below `folder`, no file may be where a folder is needed, and no folder
// where a file is to be. Before the first write it is checked that everything has room on the disk
// with some to spare (TreeWriter::RoomLeft). Whatever fails there leaves everything untouched.
//
// A folder entry makes its folder and is not handed to the callback. Folders come with the first
// accepted file: an archive whose every file is refused, or that holds no file, writes nothing.
//
// Every target is at all times the old file or the new one, whole, also after a crash or a power
// cut. An accepted file may come into place only after the callback was asked about later ones, but
// before Unzip returns.
//
// A folder that was missing comes with all its files at once; it is a failure if others have put
// something into its place meanwhile.
//
// True when the walk reached the end. False, with an error in the log that names archive, entry and
// reason, if the archive is refused, an entry is damaged or cannot be written, or memory runs out;
// the files accepted before that entry are then in place, those behind it are not. Memory does not
// grow with the size of an entry.
bool Unzip(const wxFileName& archive, const wxFileName& folder, UnzipCallback callback,
           void* userData, const UnzipOptions& options = {});

// Whether Unzip would come to the archive's end if it were called now with a callback that accepts
// every file, or none with `removes`, and every write succeeded. Writes nothing. If not, `fault`
// says why, fit to follow the archive's name.
bool CheckUnzip(const wxFileName& archive, const wxFileName& folder, const UnzipOptions& options,
                std::string& fault);

// Removes what a process that was killed during Unzip has left in `folder` or below it: files whose
// names begin with ".zelka-unzip-", and folders, with all that is in them. For the next start,
// while no Unzip into the same folder runs. What cannot be removed is told by a warning and stays;
// then false.
bool RemoveTemporaryFiles(const wxFileName& folder);

}  // namespace ZelkaCore
