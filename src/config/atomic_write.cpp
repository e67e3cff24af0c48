#include "config/atomic_write.h"

#include "base/format.h"
#include "core/error_text.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

// Puts the text into an open file and onto the disk. A write that comes up short without a code
// fails with the code of success: there is none better.
bool WriteWhole(const platform::File& file, std::string_view text, platform::Code& code) {
  if (!text.empty()) {
    std::uint32_t written = 0;
    code = platform::WriteFileBytes(file, text.data(), static_cast<std::uint32_t>(text.size()),
                                    written);
    if (code != platform::kSuccess || written != text.size()) return false;
  }
  code = platform::FlushFile(file);
  return code == platform::kSuccess;
}

}  // namespace

bool AtomicWriteText(const std::wstring& path, std::string_view text, std::wstring& error) {
  const std::wstring temporary = path + L".tmp";
  platform::File file;
  platform::Code code = platform::OpenFile(temporary, platform::kGenericWrite, platform::kShareNone,
                                           platform::kCreateAlways, platform::kNormalFile, file);
  if (code != platform::kSuccess) {
    error = Format(L"cannot create %s: %s", temporary, ErrorText(code));
    return false;
  }
  // The bytes must be on the disk before the name can point at them.
  const bool whole = WriteWhole(file, text, code);
  file.Close();
  if (!whole) {
    (void)platform::RemoveFile(temporary);
    error = Format(L"cannot write %s: %s", temporary, ErrorText(code));
    return false;
  }
  code =
      platform::RenameFile(temporary, path, platform::kReplaceExisting | platform::kWriteThrough);
  if (code != platform::kSuccess) {
    (void)platform::RemoveFile(temporary);
    error = Format(L"cannot replace %s: %s", path, ErrorText(code));
    return false;
  }
  return true;
}

}  // namespace kestrelon
