// Files opened for their resources: which are images, and what stays locked.
#include "platform/resources.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/paths.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

TEST(ResourceImage, OpensExecutablesAlone) {
  const std::wstring directory = FreshDirectory();
  const std::wstring text = directory + L"\\text.exe";
  WriteWhole(text, "no image at all");
  ResourceImage image;
  EXPECT_EQ(OpenResourceImage(text, image), 193u);
  EXPECT_EQ(OpenResourceImage(directory + L"\\none.exe", image), kFileNotFound);
  EXPECT_FALSE(image.is_open());
}

TEST(ResourceImage, KeepsWritersOutWhileItIsOpen) {
  std::wstring program;
  ASSERT_EQ(ExpandEnvironment(L"%SystemRoot%\\System32\\svchost.exe", program), kSuccess);
  const std::wstring path = FreshDirectory() + L"\\copy.exe";
  ASSERT_EQ(DuplicateFile(program, path), kSuccess);
  ResourceImage image;
  ASSERT_EQ(OpenResourceImage(path, image), kSuccess);
  std::span<const std::uint8_t> bytes;
  EXPECT_FALSE(FindRawData(image, L"KSMANIFEST", bytes)) << "nobody put it there";
  File file;
  for (const Code expected : {kSharingViolation, kSuccess}) {
    EXPECT_EQ(OpenFile(path, kGenericWrite, kShareAll, kOpenExisting, kNormalFile, file), expected);
    image.Close();
  }
}

}  // namespace
