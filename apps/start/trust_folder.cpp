#include "apps/start/trust_folder.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/file.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLargestFile = 1'048'576;  // bytes

struct BioFreer {
    void operator()(BIO* bio) const { (void)BIO_free(bio); }
};

// What OpenSSL said last, which is forgotten with that.
std::string LastReason() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    std::string text = reason != nullptr ? reason : "unknown reason";
    ERR_clear_error();
    return text;
}

bool IsAtEndOfPem() {
    const unsigned long error = ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

// Empty if others have no right to write, or the reason.
std::string WriteFault(const fs::path& path) {
    std::error_code error;
    const fs::perms others = fs::perms::group_write | fs::perms::others_write;
    const auto status = fs::status(path, error);
    return !error && (status.permissions() & others) != fs::perms::none
               ? "others than its owner may write to it"
               : "";
}

class Reader {
  public:
    void TakeFile(const std::string& file) {
        ScopedFd opened;
        std::string content;
        auto error = OpenRegularFile(file, opened);
        error = error ? error : ReadAtMost(opened, kLargestFile, content);
        if (error) {
            return Blame(file, error.message());
        }
        if (const std::string fault = WriteFault(file); !fault.empty()) {
            return Blame(file, fault);
        }
        const std::unique_ptr<BIO, BioFreer> bio(
            BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
        ERR_clear_error();
        if (!TakePem(file, bio.get()) && !TakeDer(file, content)) {
            Blame(file, "holds no certificate");
        }
    }

    void Blame(const std::string& file, const std::string& text) {
        m_read.faults.push_back({file, text});
    }

    TrustFolder Take() { return std::move(m_read); }

  private:
    // False if there is nothing of that form.
    bool TakePem(const std::string& file, BIO* bio) {
        bool isAny = false;
        while (X509* certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr)) {
            m_read.certificates.push_back({file, CertificatePtr(certificate)});
            isAny = true;
        }
        if (!IsAtEndOfPem()) {
            Blame(file, "holds a certificate that cannot be read: " + LastReason());
            isAny = true;
        }
        ERR_clear_error();
        return isAny;
    }

    bool TakeDer(const std::string& file, const std::string& content) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(content.data());
        X509* certificate = d2i_X509(nullptr, &bytes, static_cast<long>(content.size()));
        ERR_clear_error();
        if (certificate != nullptr) {
            m_read.certificates.push_back({file, CertificatePtr(certificate)});
        }
        return certificate != nullptr;
    }

    TrustFolder m_read;
};

}  // namespace

void CertificateFreer::operator()(x509_st* certificate) const {
    X509_free(certificate);
}

TrustFolder ReadTrustFolder(const std::string& folder) {
    Reader reader;
    std::error_code error;
    std::vector<std::string> files;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (!entry->path().filename().string().starts_with('.') && !entry->is_directory(ignored)) {
            files.push_back(entry->path().string());
        }
    }
    if (error == std::errc::no_such_file_or_directory) {
        return {};
    }
    if (error) {
        reader.Blame(folder, error.message());
    } else if (const std::string fault = WriteFault(folder); !fault.empty()) {
        reader.Blame(folder, fault);
    }
    std::sort(files.begin(), files.end());
    for (const std::string& file : files) {
        reader.TakeFile(file);
    }
    return reader.Take();
}
