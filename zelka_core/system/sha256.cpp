#include "zelka_core/system/sha256.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>
#include <system_error>

#include "platform/file.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kBlockSize = 0x40000;

void Require(int result) {
    if (result != 1) {
        throw std::runtime_error("the cryptographic provider has no SHA-256");
    }
}

}  // namespace

void Sha256::Closer::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

Sha256::Sha256() : m_context(EVP_MD_CTX_new()) {
    Require(m_context != nullptr ? EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) : 0);
}

void Sha256::Add(std::string_view bytes) {
    Require(EVP_DigestUpdate(m_context.get(), bytes.data(), bytes.size()));
}

std::string Sha256::Finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    Require(EVP_DigestFinal_ex(m_context.get(), digest.data(), &size));
    Require(EVP_DigestInit_ex(m_context.get(), nullptr, nullptr));  // with what it has found
    static constexpr const char* kHex = "0123456789abcdef";
    std::string text;
    text.reserve(std::size_t{size} * 2);
    for (unsigned i = 0; i < size; ++i) {
        text += kHex[digest.at(i) >> 4U];
        text += kHex[digest.at(i) & 15U];
    }
    return text;
}

std::string Sha256Of(std::string_view bytes) {
    Sha256 sum;
    sum.Add(bytes);
    return sum.Finish();
}

std::error_code Sha256OfFile(const ScopedFd& file, std::string& checksum) {
    Sha256 sum;
    std::string block;
    do {
        if (const auto error = ReadAtMost(file, kBlockSize, block)) {
            return error;
        }
        sum.Add(block);
    } while (!block.empty());
    checksum = sum.Finish();
    return {};
}

}  // namespace ZelkaCore
