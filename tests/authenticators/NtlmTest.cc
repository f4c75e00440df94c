// Ntlm holds a place in the interface; its sign-in must not disturb anything.
#include <gtest/gtest.h>

#include <string>

#include "Ntlm.h"
#include "support/Authenticators.h"
#include "support/FakeNetworkControl.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::Detail;
using testing::FakeNetworkControl;

// Leaves a detail text behind, as an earlier failed attempt would.
class NtlmWithHistory : public Ntlm {
 public:
  using Ntlm::Ntlm;
  void FailSomething() { IsEmpty(nullptr); }
};

TEST(NtlmTest, AuthenticateSucceedsWithoutTouchingAnything) {
  FakeNetworkControl transport;
  NtlmWithHistory ntlm(&transport);
  ntlm.FailSomething();
  ASSERT_EQ(Detail(ntlm), "Input is an empty or null string.");

  char* out = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(ntlm.Authenticate("a", "b", "c", &out), kAuthResultOk);
  EXPECT_EQ(ntlm.Authenticate(nullptr, nullptr, nullptr, nullptr), kAuthResultOk);
  EXPECT_EQ(out, reinterpret_cast<char*>(0x1));
  EXPECT_EQ(Detail(ntlm), "Input is an empty or null string.");
  EXPECT_TRUE(transport.sent().empty());

  Ntlm without_transport(nullptr);
  EXPECT_EQ(without_transport.Authenticate(nullptr, nullptr, nullptr, nullptr), kAuthResultOk);

  // It has no endpoint of its own.
  char buffer[8] = "x";
  size_t size = sizeof(buffer);
  without_transport.GetServiceEndpoint(buffer, &size);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(without_transport.GetSslVersion(), kSslVersionDefault);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
