// What every authenticator shares, with a scripted transport: options copied
// into each request, the checks of input and of missing objects, how a
// response code is judged, and null pointers wherever a host could pass one.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>

#include "VantrelAuthEngine.h"
#include "support/Authenticators.h"
#include "support/FakeNetworkControl.h"
#include "support/LogCapture.h"

namespace Vantrel::Auth::testing {
namespace {

const std::string kRstr = "<t:RequestSecurityTokenResponse><wsse:BinarySecurityToken>t=x</wsse:BinarySecurityToken>"
                          "</t:RequestSecurityTokenResponse>";

// Answers every request alike: `status` with a FedAuth cookie and a token
// response, so that whatever the status lets through succeeds.
FakeNetworkControl::Script Answer(int status) {
  return [status](NetworkResult* result) {
    result->SetResponseCode(status);
    Cookie cookie;
    cookie.SetName("FedAuth");
    cookie.SetValue("v");
    result->AddCookie(&cookie);
    result->AppendBody(kRstr.data(), kRstr.size());
    return kAuthResultOk;
  };
}

TEST(AuthBaseTest, EachAttemptCopiesTheOptionsAndGlobalSettingsAfresh) {
  ScopedLogCapture log(kLogLevelDebug);
  FakeNetworkControl transport;
  SharePointFba fba(&transport);
  fba.SetCaFile("/etc/ca.pem");
  fba.EnableSslVerifyHost(false);
  fba.SetSslVersion(kSslVersionTls1);
  AuthEngineConfig::SetProxy("http://proxy.test:3128");
  ASSERT_EQ(fba.Authenticate("https://h/s", "u", "p"), kAuthResultAuthFailed);
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetProxy(nullptr);
  fba.SetCaFile("");
  fba.EnableSslVerifyHost(true);
  fba.EnableSslVerifyCert(false);
  ASSERT_EQ(fba.Authenticate("http://h/s", "u", "p"), kAuthResultAuthFailed);

  ASSERT_EQ(transport.sent().size(), 2u);
  const SentRequest &first = transport.sent()[0], &second = transport.sent()[1];
  EXPECT_EQ(std::make_tuple(first.ssl_used, first.verify_cert, first.verify_host, first.verbose, first.ssl_version,
                            first.ca_file, first.proxy),
            std::make_tuple(true, true, false, true, kSslVersionTls1, std::string("/etc/ca.pem"),
                            std::string("http://proxy.test:3128")));
  EXPECT_EQ(std::make_tuple(second.ssl_used, second.verify_cert, second.verify_host, second.verbose, second.ca_file,
                            second.proxy),
            std::make_tuple(false, false, true, false, std::string(""), std::string("<null>")));
}

// In each sign-in's own order, before any request; what the last attempt
// left (a cookie, an RSTR) is gone. Entry lines format the nulls too.
TEST(AuthBaseTest, InputIsCheckedBeforeAnyRequest) {
  ScopedLogCapture log(kLogLevelDebug);
  FakeNetworkControl transport(Answer(200));
  SharePointFba fba(&transport);
  Adfs adfs(&transport);
  SharePointAdfs trust(&transport);
  SharePointOffice365 online(&transport);
  std::unique_ptr<ICredential> user(CredentialFactory::CreateBasicUsernameCredential("u", "p"));
  std::unique_ptr<ICredential> token(CredentialFactory::CreateCredentialFromRstr(kRstr));
  auto cookie = [](const Cookie* c) { return std::string(c != nullptr ? c->GetValue() : ""); };
  auto left = [&](const AuthBase* a) {  // what the last attempt left: a cookie, an RSTR
    if (a == &adfs) return RstrOf(adfs);
    if (a == &fba) return cookie(fba.GetFedAuthCookie());
    if (a == &trust) return cookie(trust.GetFedAuthCookie());
    return cookie(online.GetFedAuthCookie()) + cookie(online.GetRtfaCookie());
  };
  const char* const u = "u";
  const std::string kNull = "At least one of the required input string is null.";
  const std::string kEmpty = "Input is an empty or null string.", kScheme = "Only http or https is supported. URL: ";
  const struct { const AuthBase* who; std::function<AuthResult()> call; std::string detail; } rows[] = {
      {&fba, [&] { return fba.Authenticate(nullptr, nullptr, nullptr); }, kNull},
      {&fba, [&] { return fba.Authenticate("http://h/s", u, nullptr); }, kNull},
      {&fba, [&] { return fba.Authenticate(nullptr, u, u); }, kEmpty},
      {&fba, [&] { return fba.Authenticate("", u, u); }, kEmpty},
      {&fba, [&] { return fba.Authenticate("ftp://h/s", u, u); }, kScheme + "ftp://h/s"},
      {&fba, [&] { return fba.Authenticate("HTTPS://h/s", u, u); }, kScheme + "HTTPS://h/s"},
      {&adfs, [&] { return adfs.Authenticate(nullptr, "urn:r", user.get()); }, kNull},
      {&adfs, [&] { return adfs.Authenticate("", "", nullptr); }, kNull},
      {&adfs, [&] { return adfs.AuthenticateByUser("http://h", "urn:r", nullptr, u); }, kNull},
      {&adfs, [&] { return adfs.AuthenticateByUser("http://h", "urn:r", u, nullptr); }, kNull},
      {&adfs, [&] { return adfs.Authenticate("", "", user.get()); }, "URL for the ADFS 2.0 server provided is an empty string."},
      {&adfs, [&] { return adfs.Authenticate("http://h", "", user.get()); }, "The home realm (URI) provided is an empty string."},
      {&adfs, [&] { return adfs.Authenticate("HTTPS://sts.test", "urn:r", user.get()); }, kScheme + "HTTPS://sts.test"},
      {&trust, [&] { return trust.AuthenticateByRstr(nullptr, "r"); }, kEmpty},
      {&trust, [&] { return trust.AuthenticateByRstr("", "r"); }, kEmpty},
      {&trust, [&] { return trust.AuthenticateByRstr("http://h/s", nullptr); }, kEmpty},
      {&trust, [&] { return trust.AuthenticateByRstr("http://h/s", ""); }, kEmpty},
      {&trust, [&] { return trust.AuthenticateByRstr("ftp://h/a.aspx?q", "r"); }, kScheme + "ftp://h/a.aspx?q"},
      {&online, [&] { return online.Authenticate(nullptr, nullptr); }, kEmpty},
  };
  for (const auto& row : rows) {
    for (AuthResult primed : {fba.Authenticate("http://h/s", u, u), adfs.AuthenticateByUser("http://h", "urn:r", u, u),
                              trust.AuthenticateByRstr("http://h/s", "r"), online.Authenticate("http://h/s", token.get())}) {
      ASSERT_EQ(primed, kAuthResultOk);
    }
    ASSERT_NE(left(row.who), "");
    const size_t sent = transport.sent().size();
    EXPECT_EQ(row.call(), kAuthResultInvalidInput) << row.detail;
    EXPECT_EQ(Detail(*row.who), row.detail);
    EXPECT_EQ(left(row.who), "") << row.detail;
    EXPECT_EQ(transport.sent().size(), sent) << row.detail;
  }
}

// No status at all, and 400 to 599, are HTTP errors; a redirect and the codes
// around that range go on. A missing object or a failed transfer ends it.
TEST(AuthBaseTest, MissingObjectsTransportFailuresAndResponseCodes) {
  constexpr int kNoTransport = -1, kTransportFails = -2;
  const char kNoHandle[] = "Null handle encountered.  This might be caused by network initialization not called prior to use.";
  const struct { int status; AuthResult result; std::string detail; } rows[] = {
      {kNoTransport, kAuthResultInternalError, "Null pointer(s) detected."},
      {kTransportFails, kAuthResultInternalError, kNoHandle},
      {0, kAuthResultHttpError, "Unexpected HTTP response code.  Response code: 0"},
      {400, kAuthResultHttpError, "HTTP error reported.  Response code: 400"},
      {599, kAuthResultHttpError, "HTTP error reported.  Response code: 599"},
      {200, kAuthResultOk, ""}, {302, kAuthResultOk, ""}, {399, kAuthResultOk, ""}, {600, kAuthResultOk, ""},
  };
  std::unique_ptr<ICredential> token(CredentialFactory::CreateCredentialFromRstr(kRstr));
  // Each sign-in, run on a transport; what it left as detail.
  const std::function<AuthResult(INetworkControl*, std::string*)> attempts[] = {
      [](INetworkControl* n, std::string* d) { SharePointFba a(n); AuthResult r = a.Authenticate("http://h/s", "u", "p"); *d = Detail(a); return r; },
      [](INetworkControl* n, std::string* d) { Adfs a(n); AuthResult r = a.AuthenticateByUser("http://h", "urn:r", "u", "p"); *d = Detail(a); return r; },
      [](INetworkControl* n, std::string* d) { SharePointAdfs a(n); AuthResult r = a.AuthenticateByRstr("http://h/s", "r"); *d = Detail(a); return r; },
      [&](INetworkControl* n, std::string* d) { SharePointOffice365 a(n); AuthResult r = a.Authenticate("https://h/s", token.get()); *d = Detail(a); return r; },
  };
  for (const auto& row : rows) {
    FakeNetworkControl transport(row.status != kTransportFails ? Answer(row.status) : [&](NetworkResult* result) {
      result->SetErrorMsg(kNoHandle);
      return kAuthResultInternalError;
    });
    for (const auto& attempt : attempts) {
      std::string detail;
      EXPECT_EQ(attempt(row.status == kNoTransport ? nullptr : &transport, &detail), row.result) << row.status;
      EXPECT_EQ(detail, row.detail) << row.status;
    }
  }
  SharePointOffice365AuthNamespace kind = kAuthNamespaceFederated;
  std::string url = "kept";
  EXPECT_EQ(SharePointOffice365(nullptr).GetAuthTarget("a@b.c", kind, url), kAuthResultInternalError);
  EXPECT_EQ(url, "kept");
}

// Ntlm holds a place in the interface: it succeeds and touches nothing.
TEST(AuthBaseTest, NtlmSucceedsWithoutTouchingAnything) {
  FakeNetworkControl transport;
  Ntlm ntlm(&transport);
  char* out = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(ntlm.Authenticate("a", "b", "c", &out), kAuthResultOk);
  EXPECT_EQ(Ntlm(nullptr).Authenticate(nullptr, nullptr, nullptr, nullptr), kAuthResultOk);
  EXPECT_EQ(out, reinterpret_cast<char*>(0x1));
  EXPECT_TRUE(transport.sent().empty());
}

}  // namespace
}  // namespace Vantrel::Auth::testing
