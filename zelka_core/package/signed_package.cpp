#include "zelka_core/package/signed_package.h"

#include <ctime>
#include <system_error>
#include <utility>

#include "platform/error.h"
#include "platform/private_file.h"
#include "platform/tree_writer.h"
#include "zelka_core/archive/shown_name.h"
#include "zelka_core/package/package_signature.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kCopiedAtOnce = 0x100000;
constexpr const char* kCopyName = "/.zelka-unzip-package";
constexpr const char* kNoTemporaryPrefix = "";

std::error_code OpenFile(FolderTree& folder, const std::string& name, ScopedFd& file) {
    const std::error_code error = folder.OpenFile(name, file);
    return error == std::errc::too_many_symbolic_link_levels ? PlatformError::kNotRegularFile
                                                             : error;
}

// Each of the following tells why it failed, fit to follow the package's name.

std::string ReadSignature(FolderTree& folder, const std::string& name, std::string& signature,
                          FileVersion& version) {
    ScopedFd file;
    std::error_code error = OpenFile(folder, name, file);
    if (error == std::errc::no_such_file_or_directory) {
        return "is not signed: there is no '" + ToUtf8(ShownName(FromUtf8(name))) + "' beside it";
    }
    error = error ? error : ReadAtMost(file, kLargestSignature + 1, signature);
    if (error) {
        return "its signature cannot be read: " + error.message();
    }
    version = VersionOf(file);
    return signature.size() > kLargestSignature ? "its signature is larger than 1 MiB" : "";
}

// A package with what is beside it.
struct Candidate {
    ScopedFd file;
    std::string signature;
    SignedPackage package;
};

std::string Open(FolderTree& folder, const std::string& name, const TrustFolder& trust,
                 Candidate& candidate) {
    if (const auto error = OpenFile(folder, name, candidate.file)) {
        return "cannot be opened: " + error.message();
    }
    candidate.package.package = VersionOf(candidate.file);
    return !trust.Fault().empty() ? trust.Fault()
                                  : ReadSignature(folder, name + kSignatureEnding,
                                                  candidate.signature, candidate.package.signature);
}

std::string LookForRoom(const std::string& folder, std::uint64_t size) {
    TreeWriter writer;
    if (const auto error = writer.Open(folder, kNoTemporaryPrefix)) {
        return "cannot be copied into '" + folder + "': " + error.message();
    }
    const TreeWriter::Room left = writer.RoomLeft();
    const std::uint64_t blocks = size / left.blockSize + 1;
    return left.files > 0 && blocks <= left.bytes / left.blockSize
               ? ""
               : "needs " + std::to_string(size) + " bytes for a copy in '" + folder +
                     "', which has " + std::to_string(left.bytes) + " to give";
}

// The size is that of the file when it was opened.
std::string Copy(const ScopedFd& file, std::uint64_t size, const std::string& folder,
                 void (*progress)(), FileStream& copy) {
    std::uint64_t copied = 0;
    std::string block;
    std::error_code error = MakeNamelessFile(folder + kCopyName, copy);
    do {
        error = error ? error : ReadAtMost(file, kCopiedAtOnce, block);
        if (!error && std::fwrite(block.data(), 1, block.size(), copy.get()) != block.size()) {
            error = LastSystemError();
        }
        copied += block.size();
        if (progress != nullptr) {
            progress();
        }
    } while (!error && !block.empty() && copied <= size);
    if (!error && std::fflush(copy.get()) != 0) {
        error = LastSystemError();
    }
    if (error) {
        return "cannot be copied into '" + folder + "': " + error.message();
    }
    return copied == size ? "" : "is being written to";
}

}  // namespace

bool OpenSignedPackage(FolderTree& folder, const std::string& name, const std::string& workFolder,
                       const TrustFolder& trust, void (*progress)(), SignedPackage& opened,
                       std::string& fault) {
    Candidate candidate;
    std::string reason = Open(folder, name, trust, candidate);
    SignedPackage& found = candidate.package;
    const auto size = static_cast<std::uint64_t>(found.package.size);
    if (reason.empty()) {
        reason = LookForRoom(workFolder, size);
    }
    if (reason.empty()) {
        reason = Copy(candidate.file, size, workFolder, progress, found.content);
    }
    if (!reason.empty()) {
        fault = reason;
        return false;
    }
    if (!CheckSignature(found.content.get(), candidate.signature, trust, std::time(nullptr),
                        progress, found.signer, fault)) {
        return false;
    }
    opened = std::move(found);
    return true;
}

bool CheckSignedPackage(FolderTree& folder, const std::string& name, const TrustFolder& trust,
                        std::string& fault) {
    Candidate candidate;
    const std::string reason = Open(folder, name, trust, candidate);
    if (!reason.empty()) {
        fault = reason;
        return false;
    }
    FileStream content;
    if (const auto error = StreamOf(std::move(candidate.file), "rb", content)) {
        fault = "cannot be opened: " + error.message();
        return false;
    }
    std::string signer;
    return CheckSignature(content.get(), candidate.signature, trust, std::time(nullptr), nullptr,
                          signer, fault);
}

}  // namespace ZelkaCore
