// Who signed a file, if its signature holds. Only revocation data that is already on the machine
// counts: no verification touches the network. All functions may take seconds; any thread.
#pragma once

#include <functional>
#include <string>

#include "platform/codes.h"
#include "platform/trust.h"

namespace kestrelon {

// One verification of some signature under a given treatment of revocation; gives the signer.
using TrustCheck = std::function<platform::Code(const platform::TrustPass&, std::wstring& signer)>;

// Runs a check with revocation of the whole chain, and once more without when the first pass failed
// only because no revocation data was at hand. True when the signature holds and its signer has a
// name; `signer` is unchanged otherwise.
[[nodiscard]] bool VerifyTrust(const TrustCheck& check, std::wstring& signer);

// Verifies the embedded signature or, failing that, a catalog's: of each kind of hash, the first
// catalog that holds the file's counts.
[[nodiscard]] bool VerifyFile(const std::wstring& path, std::wstring& signer);

}  // namespace kestrelon
