// Files opened for their resources: which are images, and what stays locked.
#include "platform/resources.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/paths.h"
#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

TEST(ResourceImage, OpensExecutablesAloneAndKeepsTheirWritersOut) {
  const std::wstring path = FreshDirectory() + L"\\program.exe";
  ResourceImage image;
  EXPECT_EQ(OpenResourceImage(path, image), kFileNotFound);
  WriteWhole(path, "no image at all");
  EXPECT_EQ(OpenResourceImage(path, image), 193u);
  std::wstring program;
  ASSERT_EQ(ExpandEnvironment(L"%SystemRoot%\\System32\\svchost.exe", program), kSuccess);
  ASSERT_EQ(DuplicateFile(program, path), kSuccess);
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
