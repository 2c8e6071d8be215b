#pragma once

#include <string>

#include "platform/file.h"
#include "platform/folder_tree.h"
#include "zelka_core/package/trust_folder.h"

namespace ZelkaCore {

// A package whose signature was found good.
struct SignedPackage {
    FileStream content;     // what was judged: a copy that nobody else can change
    FileVersion package;    // of the package's own file
    FileVersion signature;  // of the signature's
    std::string signer;
};

// Copies the package `name` of the folder into `workFolder`, as a file without a name, and judges
// the copy (CheckSignature). `progress`, if it is not null, is called again and again meanwhile.
// What the disk has to keep for others it keeps (TreeWriter::RoomLeft).
//
// True fills `opened`. False puts the reason into `fault`, fit to follow the package's name.
bool OpenSignedPackage(FolderTree& folder, const std::string& name, const std::string& workFolder,
                       const TrustFolder& trust, void (*progress)(), SignedPackage& opened,
                       std::string& fault);

// The same judgement of the package's own file, without a copy: of use where nothing is unpacked.
bool CheckSignedPackage(FolderTree& folder, const std::string& name, const TrustFolder& trust,
                        std::string& fault);

}  // namespace ZelkaCore
