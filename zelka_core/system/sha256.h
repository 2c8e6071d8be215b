#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/scoped_fd.h"

struct evp_md_ctx_st;

namespace ZelkaCore {

// The SHA-256 checksum of bytes that come in pieces, by the cryptographic provider in use. Throws
// std::runtime_error where that has no SHA-256.
class Sha256 {
  public:
    Sha256();

    void Add(std::string_view bytes);

    // The checksum of all that was added, as 64 lower-case digits. Begins anew.
    std::string Finish();

  private:
    struct Closer {
        void operator()(evp_md_ctx_st* context) const;
    };

    std::unique_ptr<evp_md_ctx_st, Closer> m_context;
};

// That of bytes that are all there.
std::string Sha256Of(std::string_view bytes);

// The checksum of the file from its beginning; errors are those of reading.
std::error_code Sha256OfFile(const ScopedFd& file, std::string& checksum);

}  // namespace ZelkaCore
