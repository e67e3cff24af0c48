#include "simulation/bench/policy_file.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <utility>

#include "base/format.h"

namespace simulation {
namespace {

using kestrelon::Format;
using kestrelon::platform::kSuccess;

constexpr auto kGatheringTime = std::chrono::milliseconds(200);

class OwnedFile {
 public:
  explicit OwnedFile(HANDLE handle) : handle_(handle) {}
  ~OwnedFile() {
    if (valid()) CloseHandle(handle_);
  }
  OwnedFile(const OwnedFile&) = delete;
  OwnedFile& operator=(const OwnedFile&) = delete;
  bool valid() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

Code ReadWholeFile(const std::wstring& path, Bytes& bytes) {
  const OwnedFile file(
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file.valid()) return GetLastError();
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file.get(), &size)) return GetLastError();
  bytes.resize(static_cast<std::size_t>(size.QuadPart));
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD got = 0;
    const auto rest = static_cast<DWORD>(bytes.size() - done);
    if (!ReadFile(file.get(), bytes.data() + done, rest, &got, nullptr)) return GetLastError();
    if (got == 0) return ERROR_HANDLE_EOF;
    done += got;
  }
  return kSuccess;
}

Code WriteWholeFile(const std::wstring& path, const Bytes& bytes) {
  const OwnedFile file(
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  if (!file.valid()) return GetLastError();
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD written = 0;
    const auto rest = static_cast<DWORD>(bytes.size() - done);
    if (!WriteFile(file.get(), bytes.data() + done, rest, &written, nullptr)) {
      return GetLastError();
    }
    done += written;
  }
  return kSuccess;
}

}  // namespace

PolicyFile::PolicyFile(Engine& engine, std::wstring path)
    : engine_(engine), path_(std::move(path)), saver_([this] { SaveWhenAsked(); }) {}

bool PolicyFile::Load(std::wstring& error) {
  Bytes bytes;
  const Code code = ReadWholeFile(path_, bytes);
  if (code == ERROR_FILE_NOT_FOUND) return true;
  if (code != kSuccess) {
    error = Format(L"cannot read %s: error %u", path_, code);
    return false;
  }
  if (!engine_.LoadPersistent(bytes)) {
    error = Format(L"%s does not hold a policy of this engine", path_);
    return false;
  }
  const std::lock_guard lock(save_mutex_);
  saved_ = std::move(bytes);
  return true;
}

Code PolicyFile::Save() {
  const std::lock_guard lock(save_mutex_);
  Bytes bytes = engine_.SavePersistent();
  if (bytes == saved_) return kSuccess;
  const std::wstring fresh = path_ + L".new";
  if (const Code code = WriteWholeFile(fresh, bytes)) return code;
  if (!MoveFileExW(fresh.c_str(), path_.c_str(), MOVEFILE_REPLACE_EXISTING)) return GetLastError();
  saved_ = std::move(bytes);
  return kSuccess;
}

void PolicyFile::SaveSoon() {
  const std::lock_guard lock(wish_mutex_);
  wished_ = true;
  wish_.notify_one();
}

void PolicyFile::SaveWhenAsked() {
  for (;;) {
    {
      std::unique_lock lock(wish_mutex_);
      wish_.wait(lock, [this] { return wished_; });
      wished_ = false;
    }
    // Without the mutex: whoever asks meanwhile is served by this save or has the next one.
    std::this_thread::sleep_for(kGatheringTime);
    if (const Code code = Save()) {
      std::fwprintf(stderr, L"BFE: saving the policy failed: error %u\n", code);
    }
  }
}

}  // namespace simulation
