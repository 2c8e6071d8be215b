#pragma once

#include <wx/string.h>

#include <cstddef>
#include <string>
#include <vector>

// The file that holds the registry, from here on. Without one the registry is empty. Before a
// second thread exists.
void UseRegistryFile(const std::string& path);

// What is wrong with that file.
struct RegistryFault {
    std::size_t line = 0;  // which is skipped; 0: the file as a whole counts as empty
    std::string text;
};

// Everything that is wrong with it now, in the order of its lines. Tells nothing in the log.
std::vector<RegistryFault> RegistryFaults();

// The registry, kept in the one UTF-8 text file that UseRegistryFile names.
//
//     ; a comment, as is a line that begins with #
//     [HKEY_LOCAL_MACHINE\Software\Maker\Product]
//     Self Protect=1
//     @=the key's default value
//
// A group for each key, whose root may also be given by its short name (HKLM), and below it a line
// for each value. Blanks around a name and its data do not count; everything else does: there are
// no quotes and no escapes. Names are taken without regard to case. A key may have several groups;
// of several values of one name the last counts. A key exists if it or a key below it has a group;
// the standard root keys always exist.
//
// A missing file is an empty registry, and so is one that cannot be read or is larger than 1 MiB,
// which is told by a warning. A line that makes no sense is skipped, and so are values below a
// group line that makes none; a warning names file and line. Nothing is told twice in one process,
// and after a hundred warnings no more come.
//
// Each operation looks at the file anew, so that it sees what an operator changed meanwhile, and
// may run on any thread; one object belongs to one thread at a time.
class wxRegKey {
  public:
    enum AccessMode { Read, Write };
    enum StdKey { HKCR, HKCU, HKLM, HKUSR, HKPD, HKCC, HKDD, HKMAX };

    // The standard root keys: HKEY_LOCAL_MACHINE and HKLM for the index HKLM. The empty string for
    // an index that is not below nStdKeys.
    static constexpr std::size_t nStdKeys = HKMAX;
    static const wxChar* GetStdKeyName(std::size_t key);
    static const wxChar* GetStdKeyShortName(std::size_t key);

    // No key; it does not exist and has nothing.
    wxRegKey() = default;
    // From a path that begins with the long or short name of a root: `HKLM\SOFTWARE\Maker`. Any
    // other path gives no key.
    explicit wxRegKey(const wxString& path) { SetName(path); }
    wxRegKey(StdKey root, const wxString& name) { SetName(root, name); }

    // As the constructors; the object is not open afterwards.
    void SetName(const wxString& path);
    void SetName(StdKey root, const wxString& name);

    // Whether the key exists and, for Write, the file can be replaced. Tells nothing.
    bool Open(AccessMode mode = Write);
    void Close() { m_isOpened = false; }
    [[nodiscard]] bool IsOpened() const { return m_isOpened; }

    // What the key has, opened or not. The empty name is that of the key's default value. A number
    // is decimal, or hexadecimal behind 0x, and fits a long. The outputs are untouched if the value
    // is missing or is not of that form.
    [[nodiscard]] bool Exists() const;
    [[nodiscard]] bool HasSubKey(const wxString& name) const;
    [[nodiscard]] bool HasValue(const wxString& name) const;
    bool QueryValue(const wxString& name, wxString& data) const;
    bool QueryValue(const wxString& name, long* data) const;

    // The line of the file in which the value stands, from 1 on; 0 if it is missing.
    [[nodiscard]] std::size_t LineOf(const wxString& name) const;

    // Removes the key and all below it, in whatever mode this one was opened. The file is replaced
    // as a whole, with its mode and owner, or stays as it is; comments and lines that make no sense
    // are kept, also those among the removed ones. True if the key does not exist afterwards, and
    // at once if it did not before. False, with a warning in the log, if the file cannot be read or
    // replaced, and for a root key and those directly below one, which are never removed. Of two
    // processes that remove something in the same moment one may bring back what the other removed.
    bool DeleteKey(const wxString& name);
    bool DeleteSelf();

  private:
    wxString m_key;  // as CanonicalRegistryKey gives it
    bool m_isOpened = false;
};
