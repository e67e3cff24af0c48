#include "tests/contract/scratch.h"

#include <gtest/gtest.h>

#include "platform/paths.h"

namespace contract {

using namespace kestrelon::platform;

std::wstring FreshDirectory() {
  std::wstring base;
  EXPECT_EQ(ProgramDataFolder(base), kSuccess);
  base += L"\\Kestrelon contract";
  const Code made = MakeDirectory(base);
  EXPECT_TRUE(made == kSuccess || made == kAlreadyExists) << made;
  for (int n = 1; n < 10000; ++n) {
    const std::wstring path = base + L"\\" + std::to_wstring(n);
    if (MakeDirectory(path) == kSuccess) return path;
  }
  ADD_FAILURE() << "no fresh directory";
  return base;
}

void WriteWhole(const std::wstring& path, const std::string& bytes) {
  File file;
  ASSERT_EQ(OpenFile(path, kGenericWrite, kShareNone, kCreateAlways, kNormalFile, file), kSuccess);
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  ASSERT_EQ(WriteFileBytes(file, bytes.data(), size, written), kSuccess);
  ASSERT_EQ(written, size);
}

std::string ReadWhole(const std::wstring& path) {
  File file;
  EXPECT_EQ(OpenToRead(path, file), kSuccess);
  std::string content;
  char piece[100];
  std::uint32_t read = 0;
  while (ReadFileBytes(file, piece, sizeof piece, read) == kSuccess && read > 0) {
    content.append(piece, read);
  }
  return content;
}

bool Exists(const std::wstring& path) {
  FileInformation information;
  return QueryFileInformation(path, information) == kSuccess;
}

Code OpenToRead(const std::wstring& path, File& file) {
  return OpenFile(path, kGenericRead, kShareAll, kOpenExisting, kNormalFile, file);
}

}  // namespace contract
