#include "zelka_core/archive/unzip.h"

#include <wx/datetime.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/tree_writer.h"
#include "zelka_core/archive/entry_writer.h"
#include "zelka_core/archive/package_check.h"
#include "zelka_core/archive/zip_archive.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// For folders that carry no permissions, as in archives from other systems.
constexpr unsigned kFolderPermissions = 0755;

// Without a separator at the end.
std::string AbsolutePath(const wxFileName& name) {
    wxFileName absolute(name);
    (void)absolute.MakeAbsolute();
    std::string path = ToUtf8(absolute.GetFullPath());
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

wxZipEntry ViewOf(const ZipEntry& entry) {
    wxZipEntry view(FromUtf8(entry.name), wxDateTime(entry.modified),
                    static_cast<wxFileOffset>(entry.size));
    view.SetSystemMadeBy(entry.system);
    view.SetExternalAttributes(entry.attributes);
    view.SetMethod(entry.method);
    return view;
}

// One walk over one archive.
class Extraction {
  public:
    using Complain = std::function<void(const std::string& fault)>;

    Extraction(const wxFileName& archive, const wxFileName& folder, const UnzipOptions& options,
               Complain complain)
        : m_options(options),
          m_complain(std::move(complain)),
          m_archivePath(AbsolutePath(archive)),
          m_folderPath(AbsolutePath(folder)) {}

    // Everything that is judged before the callback is asked.
    bool Prepare() {
        std::string fault;
        FileStream* const content = m_options.content;
        if (!(content != nullptr ? m_archive.Open(std::move(*content), fault)
                                 : m_archive.Open(m_archivePath, fault))) {
            return Fail(fault);
        }
        if (m_options.opened != nullptr && content == nullptr) {
            *m_options.opened = m_archive.Version();
        }
        if (!CheckPackage(m_archive.Entries(), m_paths, fault)) {
            return Fail(fault);
        }
        if (const auto error = m_writer.Open(m_folderPath, kTemporaryPrefix)) {
            return Fail("cannot be unpacked into '" + m_folderPath + "': " + error.message());
        }
        for (const std::string& reserved : m_options.reserved) {
            m_writer.Tree().Reserve(reserved);
        }
        return CheckPlaces() && AskObserver();
    }

    // The walk as far as it can be taken without writing anything.
    bool Judge() {
        if (m_options.removes) {
            return true;
        }
        const auto& entries = m_archive.Entries();
        return HasRoom() && std::all_of(entries.begin(), entries.end(), [this](const auto& entry) {
                   return entry.IsFolder() || IsIntact(entry);
               });
    }

    bool Walk(UnzipCallback callback, void* userData) {
        bool succeeded = true;
        bool accepted = false;
        for (std::size_t i = 0; succeeded && i < m_paths.size(); ++i) {
            if (Entry(i).IsFolder()) {
                m_waitingFolders.push_back(i);
            } else if (m_paths[i] != m_options.passedOver && Ask(i, callback, userData)) {
                succeeded = (accepted || (HasRoom() && Begin())) && MakeFolders() && Write(i);
                accepted = true;
            }
        }
        succeeded = succeeded && (!accepted || MakeFolders());
        // Also after a failure: what was whole before it stays.
        return Commit() && succeeded;
    }

  private:
    [[nodiscard]] const ZipEntry& Entry(std::size_t index) const {
        return m_archive.Entries()[index];
    }

    [[nodiscard]] bool Fail(const std::string& fault) const {
        m_complain(fault);
        return false;
    }

    [[nodiscard]] bool IsIntact(const ZipEntry& entry) {
        std::string reason;
        const auto ignore = [this](std::string_view) {
            Progress();
            return true;
        };
        return m_archive.Read(entry, ignore, reason) || Fail(EntryFault(entry, reason));
    }

    [[nodiscard]] bool FailEntry(std::size_t index, const std::string& reason) const {
        return Fail(EntryFault(Entry(index), reason));
    }

    bool CheckPlaces() {
        m_places = m_paths;
        for (std::size_t i = 0; i < m_paths.size(); ++i) {
            Progress();
            if (!CheckPlace(i, m_places[i])) {
                return false;
            }
        }
        std::string fault;
        return m_places == m_paths || CheckClashes(m_archive.Entries(), m_places, fault) ||
               Fail(fault);
    }

    bool CheckPlace(std::size_t index, std::string& place) {
        const bool isFolder = Entry(index).IsFolder();
        FolderTree& tree = m_writer.Tree();
        if (tree.HasManyOpen()) {
            tree.Forget();
        }
        FolderTree::Kind kind{};
        const auto error = tree.Look(m_paths[index] + (isFolder ? "/" : ""), kind, place);
        if (error == std::errc::not_a_directory) {
            return m_options.removes || FailEntry(index, "needs a folder where there is a file");
        }
        if (error) {
            return FailEntry(index, "cannot be put in its place: " + error.message());
        }
        return m_options.removes || isFolder || kind != FolderTree::Kind::kFolder ||
               FailEntry(index, "is a file where there is a folder");
    }

    bool AskObserver() {
        std::string fault;
        UnzipObserver* const observer = m_options.observer;
        if (observer != nullptr && !observer->OnJudged(m_archive, m_places, fault)) {
            return Fail(fault);
        }
        if (observer != nullptr && observer->WantsChecksums()) {
            m_entries.SetObserver(observer);
        }
        return true;
    }

    [[nodiscard]] bool HasRoom() const {
        const TreeWriter::Room left = m_writer.RoomLeft();
        const DeclaredRoom needed = RoomFor(m_archive.Entries(), left.blockSize);
        const auto fits = [&](std::uint64_t need, std::uint64_t have, const char* what) {
            return need <= have ||
                   Fail("needs " + std::to_string(need) + what + " in '" + m_folderPath +
                        "', which has " + std::to_string(have) + " to give");
        };
        return fits(needed.bytes, left.bytes, " bytes") && fits(needed.files, left.files, " files");
    }

    [[nodiscard]] bool Begin() const {
        std::string fault;
        return m_options.observer == nullptr || m_options.observer->OnBegin(fault) || Fail(fault);
    }

    void Progress() const {
        if (m_options.progress != nullptr) {
            m_options.progress();
        }
    }

    bool Ask(std::size_t index, UnzipCallback callback, void* userData) const {
        const wxZipEntry view = ViewOf(Entry(index));
        const wxString target = FromUtf8(m_folderPath + "/" + m_paths[index]);
        return callback(userData, &view, &target);
    }

    bool MakeFolders() {
        for (const std::size_t index : m_waitingFolders) {
            if (m_paths[index].empty()) {
                continue;
            }
            Progress();
            const unsigned own = Entry(index).Permissions();
            // The owner's rights stay, or nothing could be put into it.
            const unsigned permissions = own == 0 ? kFolderPermissions : own | 0700U;
            if (const auto error = m_writer.MakeFolder(m_paths[index], permissions)) {
                return FailEntry(index, "the folder cannot be made: " + error.message());
            }
            if (m_writer.IsBatchFull() && !Commit()) {
                return false;
            }
        }
        m_waitingFolders.clear();
        return true;
    }

    bool Write(std::size_t index) {
        std::string reason;
        if (!m_entries.Write(Entry(index), m_paths[index], m_places[index], reason)) {
            return FailEntry(index, reason);
        }
        return !m_writer.IsBatchFull() || Commit();
    }

    bool Commit() {
        std::string path;
        const auto error = m_entries.Commit(path);
        const std::string place = path.empty() ? "'" + m_folderPath + "'" : "entry '" + path + "':";
        return !error || Fail(place + " cannot be written: " + error.message());
    }

    const UnzipOptions& m_options;
    const Complain m_complain;
    const std::string m_archivePath;
    const std::string m_folderPath;

    ZipArchive m_archive;
    EntryWriter m_entries{m_archive, m_options.progress};
    TreeWriter& m_writer = m_entries.Writer();
    std::vector<std::string> m_paths;           // of the entries, below the folder
    std::vector<std::string> m_places;          // the same with links followed
    std::vector<std::size_t> m_waitingFolders;  // entries of folders that are not made yet
};

}  // namespace

bool Unzip(const wxFileName& archive, const wxFileName& folder, UnzipCallback callback,
           void* userData, const UnzipOptions& options) {
    const auto tell = [&](const std::string& fault) {
        wxLogError("%s: %s", FromUtf8(AbsolutePath(archive)), FromUtf8(fault));
    };
    try {
        Extraction extraction(archive, folder, options, tell);
        return extraction.Prepare() && extraction.Walk(callback, userData);
    } catch (const std::exception& error) {  // there was no memory
        wxLogError("%s: %s", archive.GetFullPath(), error.what());
        return false;
    }
}

bool CheckUnzip(const wxFileName& archive, const wxFileName& folder, const UnzipOptions& options,
                std::string& fault) {
    try {
        Extraction extraction(archive, folder, options,
                              [&](const std::string& found) { fault = found; });
        return extraction.Prepare() && extraction.Judge();
    } catch (const std::exception& error) {  // there was no memory
        fault = error.what();
        return false;
    }
}

bool RemoveTemporaryFiles(const wxFileName& folder) {
    const std::string path = AbsolutePath(folder);
    const auto error = RemoveTemporaryFilesBelow(path, kTemporaryPrefix);
    if (error) {
        wxLogWarning("Temporary files in '%s' cannot be removed: %s", FromUtf8(path),
                     FromUtf8(error.message()));
    }
    return !error;
}

}  // namespace ZelkaCore
