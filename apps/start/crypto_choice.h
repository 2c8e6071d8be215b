#pragma once

#include <wx/string.h>

#include <cstddef>

namespace ZelkaCore {
class CDom;
}  // namespace ZelkaCore

// Which cryptographic provider OpenSSL is to work with, with nothing loaded.

struct CryptoChoice {
    bool isFips = false;
    wxString lib;               // the folder of OpenSSL's modules
    wxString configuration;     // of OpenSSL; need not exist without FIPS
    wxString missingFile;       // that FIPS cannot do without; empty: none is
    wxString complaint;         // about that
    wxString doubt;             // about the registry's policy, which is ignored; empty: none
    std::size_t doubtLine = 0;  // of the registry file
};

// Decided by the configuration that is in the store, and the registry or the system behind it.
CryptoChoice ChooseCryptoProvider(const ZelkaCore::CDom& dom);
