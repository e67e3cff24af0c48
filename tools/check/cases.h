// What the cases of the real executable begin with.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/service_host.h"
#include "tools/check/computer.h"
#include "tools/check/product.h"

namespace kestrelon::check {

// The service is installed and runs; the cases of one area share it.
class InstalledService : public testing::Test {
 protected:
  void SetUp() override {
    if (ServiceState() == platform::kServiceRunning) return;
    std::string output;
    ASSERT_EQ(RunProduct(L"--install", output), 0) << output;
    ASSERT_TRUE(Ask(kStatus).Get("ok").boolean()) << ServiceLog();
  }

  static constexpr const char* kStatus = R"({"cmd":"status"})";
};

// Nothing of the product is on the computer, before the case and after it.
class BareComputer : public testing::Test {
 protected:
  void SetUp() override { RemoveProduct(); }
  void TearDown() override { RemoveProduct(); }
};

// The keys of filters in an order of their own, by which two moments can be compared.
inline std::vector<Guid> KeysOf(const std::vector<platform::Filter>& filters) {
  std::vector<Guid> keys;
  for (const platform::Filter& filter : filters) keys.push_back(filter.key);
  std::ranges::sort(keys);
  return keys;
}

}  // namespace kestrelon::check
