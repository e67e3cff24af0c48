// A whole-file hash is spared by size, write time and change number, a second verification of the
// signature by the hash. Neither is trusted across a change: what the file was before the hash is
// taken first, and the hash is taken again after the verification.
#include "identity/file_identity.h"

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>

#include "base/guard.h"
#include "base/text.h"
#include "config/app_reference.h"
#include "identity/file_usn.h"
#include "identity/paths.h"
#include "identity/verify_trust.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/files.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

using platform::Sha256Digest;

constexpr std::uint32_t kHashPieceBytes = 0x100000;
constexpr std::size_t kMostCachedIdentities = 4096;
// How long a cached identity stands by itself. Without a change number size and time are all there
// is, and both can be put back after a write.
constexpr std::uint64_t kValidWithUsnMs = 600000;
constexpr std::uint64_t kValidWithoutUsnMs = 60000;

// What tells two states of a file apart without reading it.
struct FileStamp {
  std::uint64_t size = 0;
  std::uint64_t write_time = 0;  // 100 ns steps since 1601-01-01 UTC
  std::int64_t usn = -1;         // negative if unknown
};

struct CachedIdentity {
  FileStamp stamp;
  Sha256Digest hash{};
  std::uint64_t checked_tick = 0;
  bool stale = false;      // something happened in the file's directory
  std::wstring directory;  // parent of the key
  FileIdentity identity;
};

// One file on its way to its identity.
struct Inquiry {
  std::wstring path;
  std::wstring key;  // the path in lower case
  FileStamp stamp;   // taken before the content is read
  std::uint64_t tick = 0;
  std::uint64_t stale_marks = 0;  // StaleMarks before the stamp was taken
  Sha256Digest hash{};
};

// A leaf, never held while a file is read or verified: two threads may verify one file at the same
// time, and the later result stands.
Guard IdentityGuard("IdentityGuard", GuardRank::kLeaf);
std::unordered_map<std::wstring, CachedIdentity> IdentityCache GUARDED_BY(IdentityGuard);
// How often something was marked. An inquiry during which this moved may have read a file that
// changed behind its stamp: what it stores is stale from the beginning.
std::uint64_t StaleMarks GUARDED_BY(IdentityGuard) = 0;

bool TakeStamp(Inquiry& inquiry) {
  {
    GuardLock lock(IdentityGuard);
    inquiry.stale_marks = StaleMarks;
  }
  platform::FileInformation information;
  if (platform::QueryFileInformation(inquiry.path, information) != platform::kSuccess) return false;
  if ((information.attributes & platform::kAttributeDirectory) != 0) return false;
  inquiry.key = platform::LowerCase(inquiry.path);
  inquiry.tick = platform::TickMilliseconds();
  inquiry.stamp = {information.size, information.write_time, FileUsn(inquiry.path)};
  return true;
}

bool StillValid(const CachedIdentity& cached, const Inquiry& inquiry) {
  const FileStamp& now = inquiry.stamp;
  const FileStamp& then = cached.stamp;
  if (cached.stale || now.size != then.size || now.write_time != then.write_time) return false;
  const std::uint64_t age = inquiry.tick - cached.checked_tick;
  if (now.usn >= 0 && then.usn >= 0) return now.usn == then.usn && age < kValidWithUsnMs;
  return age < kValidWithoutUsnMs;
}

bool FindValid(const Inquiry& inquiry, FileIdentity& identity) {
  GuardLock lock(IdentityGuard);
  const auto found = IdentityCache.find(inquiry.key);
  if (found == IdentityCache.end() || !StillValid(found->second, inquiry)) return false;
  identity = found->second.identity;
  return true;
}

// A file that was merely touched keeps its identity: the signature covers the content alone.
bool RenewSameContent(const Inquiry& inquiry, FileIdentity& identity) {
  GuardLock lock(IdentityGuard);
  const auto found = IdentityCache.find(inquiry.key);
  if (found == IdentityCache.end() || found->second.hash != inquiry.hash) return false;
  found->second.stamp = inquiry.stamp;
  found->second.checked_tick = inquiry.tick;
  found->second.stale = StaleMarks != inquiry.stale_marks;
  identity = found->second.identity;
  return true;
}

void Store(const Inquiry& inquiry, const FileIdentity& identity) {
  GuardLock lock(IdentityGuard);
  if (IdentityCache.size() >= kMostCachedIdentities && !IdentityCache.contains(inquiry.key)) {
    IdentityCache.clear();
  }
  IdentityCache.insert_or_assign(
      inquiry.key,
      CachedIdentity{inquiry.stamp, inquiry.hash, inquiry.tick, StaleMarks != inquiry.stale_marks,
                     ParentDirectory(inquiry.key), identity});
}

// SHA-256 of the content. False when it can't be opened or read to its end.
bool HashFile(const std::wstring& path, Sha256Digest& digest) {
  platform::File file;
  if (platform::OpenFile(path, platform::kGenericRead, platform::kShareAll, platform::kOpenExisting,
                         platform::kSequentialScan, file) != platform::kSuccess) {
    return false;
  }
  platform::Sha256 hash;
  if (hash.Begin() != platform::kSuccess) return false;
  const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(kHashPieceBytes);
  for (;;) {
    std::uint32_t read = 0;
    if (platform::ReadFileBytes(file, buffer.get(), kHashPieceBytes, read) != platform::kSuccess) {
      return false;
    }
    if (read == 0) return hash.Finish(digest) == platform::kSuccess;
    if (hash.Add(buffer.get(), read) != platform::kSuccess) return false;
  }
}

// Verifies the file and makes sure that it was one and the same file all along.
bool VerifyHashed(const Inquiry& inquiry, FileIdentity& identity) {
  FileIdentity verified{true, false, {}, HexText(inquiry.hash.data(), inquiry.hash.size())};
  verified.signed_ = VerifyFile(inquiry.path, verified.signer);
  Sha256Digest again{};
  if (!HashFile(inquiry.path, again) || again != inquiry.hash) return false;
  identity = std::move(verified);
  return true;
}

}  // namespace

FileIdentity IdentityFor(const std::wstring& path) {
  Inquiry inquiry;
  inquiry.path = IsSystemApp(path) ? KernelImagePath() : NormalizePath(ExpandPath(path));
  if (!TakeStamp(inquiry)) return {};

  FileIdentity identity;
  if (FindValid(inquiry, identity)) return identity;
  // Stands uncached for a file that can't be read, or that changed while it was looked at.
  const FileIdentity unknown{true, false, {}, {}};
  if (!HashFile(inquiry.path, inquiry.hash)) return unknown;
  if (RenewSameContent(inquiry, identity)) return identity;
  if (!VerifyHashed(inquiry, identity)) return unknown;
  Store(inquiry, identity);
  return identity;
}

void MarkIdentitiesStale(const std::wstring& directory) {
  GuardLock lock(IdentityGuard);
  ++StaleMarks;
  for (auto& [key, cached] : IdentityCache) {
    if (cached.directory == directory) cached.stale = true;
  }
}

}  // namespace kestrelon
