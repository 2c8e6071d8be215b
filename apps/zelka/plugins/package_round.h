#pragma once

#include <wx/string.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/folder_tree.h"
#include "platform/lock_file.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/package/package_installation.h"
#include "zelka_core/package/package_settlement.h"
#include "zelka_core/package/signed_package.h"
#include "zelka_core/package/trust_folder.h"
#include "zelka_core/store/agent_event_codes.h"

class wxFileName;

namespace ZelkaCore {
class CAgentEvent;
class CDom;
}  // namespace ZelkaCore

// What installation and removal share.

// How a package ended, as the codes of the agent events that tell of it.
enum class PackageOutcome {
    kInstalled = ZelkaCore::kEventPackageInstalled,
    kNotInstalled = ZelkaCore::kEventPackageNotInstalled,
    kRemoved = ZelkaCore::kEventPackageRemoved,
    kNotRemoved = ZelkaCore::kEventPackageNotRemoved
};

// One round of packages over the program's folder: one agent at a time has one, and what it does
// reaches files through the folder's descriptors. Not for more than one thread.
class PackageRound {
  public:
    // Waits until no other agent has a round in the folder, which the log tells. In a folder where
    // no lock can be had, such as one that this user may not write to, it goes on without.
    explicit PackageRound(ZelkaCore::CDom& dom);

    // Whether other agents wait until this object goes.
    [[nodiscard]] bool IsAlone() const { return m_lock.IsTaken(); }

    // Takes back what an earlier round has not finished, and packages whose trial has failed.
    void Settle();

    // Whether packages are on trial. False also if that cannot be told, which the log does.
    bool HasTrials();

    // ZelkaCore::Unzip over the folder, with nothing of the agent's own touched. A package with a
    // manifest is judged, put on record, and taken back if it fails (PackageInstallation). Where
    // packages have to be signed one is read from a copy that was judged (OpenSignedPackage).
    bool Unpack(const wxFileName& package, ZelkaCore::UnzipCallback callback, void* userData);
    // The same for a package whose callback deletes, and so takes files from their owners. False
    // also if a file could not be deleted.
    bool Remove(const wxFileName& package, ZelkaCore::UnzipCallback callback, void* userData);

    // Deletes the file at the target path of an entry, from inside a callback. What is gone already
    // is no trouble, and a folder stays; that a file cannot be deleted stands in the log.
    void DeleteTarget(const wxString& target);

    // What becomes of the package that was unpacked or removed last, and of its signature. One that
    // was replaced by another meanwhile stays. The log tells what fails.
    void MarkAsDone(const wxFileName& package);
    void DeletePackage(const wxFileName& package);

  private:
    [[nodiscard]] bool Admit(const wxFileName& package);
    bool Walk(const wxFileName& package, bool removes, ZelkaCore::UnzipCallback callback,
              void* userData, ZelkaCore::UnzipObserver* observer);
    static bool ReportLeft(const wxString& path, std::error_code error);

    const wxString m_folder;
    const std::string m_workFolder;
    const ZelkaCore::PackageHost m_host;
    const ZelkaCore::TrustFolder m_trust;
    std::vector<std::string> m_reserved;
    LockFile m_lock;
    FolderTree m_tree;
    FileVersion m_opened;                // the package that was opened last
    ZelkaCore::SignedPackage m_signed;   // the same, if it had to be signed
    bool m_allDeleted = true;            // what it names
    std::vector<std::string> m_deleted;  // of that, without links
    std::optional<ZelkaCore::PackageSettlement> m_settlement;
};

// Deletes a file or a link. What is gone already is no trouble, and a folder stays; that something
// cannot be deleted stands in the log.
void DeleteFile(const wxString& path);

// Tells the log and the service manager which package of how many is being worked on, counted from
// 1: "installing 3 of 12: Feature-RELAY-1.0".
void ReportPackage(const wxString& verb, std::size_t number, std::size_t count,
                   const wxFileName& package);

// Fills what the event of a package says before its outcome: type, name and path, as
// ZelkaCore::ShownName, and the time now.
void BeginEvent(ZelkaCore::CAgentEvent& event, const wxFileName& package);

// Adds the outcome: code and severity.
void EndEvent(ZelkaCore::CAgentEvent& event, PackageOutcome outcome);

// Whether the package's file can be read; a warning tells if not.
bool IsPackageReadable(const wxFileName& package);

// Whether the package has gone since it was listed: somebody else has dealt with it.
bool IsGone(const wxFileName& package);
