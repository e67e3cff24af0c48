// What it costs to know a file again: one that was touched is hashed, which stands beside the bare
// hash of bytes in memory; for one that was not the platform is only asked.
#include <openssl/sha.h>

#include <string>
#include <vector>

#include "base/text.h"
#include "bench/measure.h"
#include "identity/file_identity.h"
#include "identity/file_usn.h"
#include "platform/crypto.h"
#include "platform/files.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr std::size_t kFileSize = 64 << 20;
constexpr std::uint32_t kLooks = 20'000;
constexpr const wchar_t* kLargeFile = L"C:\\Program Files\\Vendor\\large.exe";
constexpr const wchar_t* kSmallFile = L"C:\\Program Files\\Vendor\\small.exe";

void MeasureTouched() {
  std::string content(kFileSize, 'x');
  for (std::size_t i = 0; i < content.size(); i += 97) content[i] = static_cast<char>(i);
  simulation::TheMachine().files.Write(kLargeFile, content);
  const std::wstring hash = IdentityFor(kLargeFile).sha256;
  platform::Sha256Digest peer{};
  const std::vector<double> taken = InTurn({
      [&] {
        MarkIdentitiesStale(L"c:\\program files\\vendor");
        Require(IdentityFor(kLargeFile).sha256 == hash);
      },
      [&] {
        SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), peer.data());
      },
  });
  Require(HexText(peer.data(), peer.size()) == hash);
  Print({"a file of 64 MiB that was touched", taken[0], "OpenSSL's hash of the bytes in memory",
         taken[1]});
}

void MeasureKnown() {
  simulation::TheMachine().files.Write(kSmallFile, "program");
  Require(IdentityFor(kSmallFile).exists);
  const double known =
      NanosecondsOfEach(kLooks, [](std::uint32_t) { Require(IdentityFor(kSmallFile).exists); });
  const double asked = NanosecondsOfEach(kLooks, [](std::uint32_t) {
    platform::FileInformation information;
    Require(platform::QueryFileInformation(kSmallFile, information) == platform::kSuccess);
    (void)FileUsn(kSmallFile);
  });
  Print({"a file that is known and unchanged", known, "asking its size, time and change number",
         asked});
}

}  // namespace
}  // namespace kestrelon

int main() {
  simulation::TheMachine();
  kestrelon::PrintSection("Identity of files", "On the simulated machine's disk, in memory.");
  kestrelon::MeasureTouched();
  kestrelon::MeasureKnown();
}
