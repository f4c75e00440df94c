// A fresh emulator on loopback per test and an AuthEngine to talk to it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "VantrelAuthEngine64/AuthEngine.h"
#include "emulator/Emulator.h"

namespace Vantrel::Auth::testing {

class EmulatorTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk); }

  void SetUp() override {
    std::string error;
    ASSERT_TRUE(emulator_.Start(&error)) << error;
    engine_ = std::make_unique<AuthEngine>();
  }

  void TearDown() override {
    engine_.reset();
    emulator_.Stop();
  }

  std::string Http(const std::string& path) const { return emulator_.HttpUrl(path); }

  // The single request the emulator saw.
  Emulation::Request OnlyRequest() const {
    std::vector<Emulation::Request> requests = emulator_.Requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? Emulation::Request() : requests.back();
  }

  Emulation::Emulator emulator_;
  std::unique_ptr<AuthEngine> engine_;
};

}  // namespace Vantrel::Auth::testing
