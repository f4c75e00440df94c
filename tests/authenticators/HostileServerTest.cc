// Servers that answer as no real one would. Each case ends, in bounded time and
// memory, with the result the rules give for what arrived. bench/ measures the
// figures; the bounds here are loose, so that a sanitizer build keeps them.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "support/HostileBodies.h"
#include "support/OnlineTest.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Response;

// Loose: a plain build needs a few per cent of this for the largest case.
constexpr double kSecondsBound = 60;
constexpr size_t kPeakBound = size_t{3} * 1024 * kMegabyte;
constexpr size_t kHuge = 64 * kMegabyte;

const std::string kRstrOpen = "<t:RequestSecurityTokenResponse xmlns:t=\"urn:trust\">";
const std::string kRstrClose = "</t:RequestSecurityTokenResponse>";
const std::string kToken = "t=EwBgAk6hB&amp;p=";
const std::string kTokenRstr = kRstrOpen + "<wsse:BinarySecurityToken Id=\"Compact0\">" + kToken +
                               "</wsse:BinarySecurityToken>" + kRstrClose;
const std::string kClaims = kRstrOpen + "<a>claims</a>" + kRstrClose;
const std::string kNul(1, '\0');
const std::string kNoRstr = "|No RSTR token found in HTTP response.";
const std::string kToRealm = "/sites/a/_forms/default.aspx?wa=wsignin1.0";
const std::string kForSite = " for the site /sites/a";

// The sign-in a case runs, and what it reports having got:
enum Flow {
  kAdfs,       // the RSTR held, "|", and the detail (none when the transfer failed: libcurl's text)
  kOffice365,  // the binary token, and whether the token request named the site as realm
  kOnline,     // where the token went
  kForms,      // the FedAuth value
};

struct Served {
  std::vector<Response> answers;  // one for each request, in order
  std::string got;
  std::string credential_rstr = "";  // kOffice365: a credential made from this, not a password
};

using Base = const std::string&;  // the emulator's URL

struct HostileCase {
  const char* name;
  Flow flow;
  AuthResult result;
  size_t requests;
  bool may_refuse;  // libcurl may refuse the response outright: a send failure
  std::function<Served(Base base)> serve;
};
void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

Response NoRedirect() { return Response::Text(200, "no redirect"); }  // for the realm probe
Response Soap(const std::string& body) { return Response::Text(200, body, "application/soap+xml"); }
Response Xml(const std::string& body) { return Response::Text(200, body, "text/xml"); }
Response SignedIn() { return Response::Redirect(302, "/").SetCookie("FedAuth=f; path=/"); }
Response Cut(Response response) {
  response.close_after_body_bytes = 1000;
  return response;
}

const HostileCase kCases[] = {
    // Bodies of 64 MB with what is searched for behind or across them.
    {"RstrBehindAndAcrossSixtyFourMegabytes", kAdfs, kAuthResultOk, 1, false, [](Base) {
       std::string rstr = kRstrOpen + Filler(kHuge / 2) +
                          "<saml:Assertion MajorVersion=\"1\" AssertionID=\"_a\">claims</saml:Assertion>" + kRstrClose;
       return Served{{Soap(Filler(kHuge / 2) + rstr)}, rstr + "|"}; }},
    {"BinaryTokenBehindSixtyFourMegabytes", kOffice365, kAuthResultOk, 2, false, [](Base) {
       return Served{{NoRedirect(), Soap(Filler(kHuge) + kTokenRstr)}, kToken + kForSite}; }},
    {"SiteAndWebBehindSixtyFourMegabytes", kOnline, kAuthResultOk, 3, false, [](Base base) {
       return Served{{NoRedirect(), Xml(Filler(kHuge) + "<strSite>" + base + "/sites/top</strSite><strWeb>w</strWeb>"),
                      SignedIn()}, "/sites/top/_forms/default.aspx?wa=wsignin1.0"}; }},
    // A sign-in by cookie doesn't read the body; a huge one costs it only memory.
    {"FormsIgnoreSixtyFourMegabytes", kForms, kAuthResultOk, 1, false, [](Base) {
       return Served{{Xml(Filler(kHuge)).SetCookie("FedAuth=a; path=/")}, "a"}; }},

    // Elements that open and never close. Without a strSite the token goes to the
    // realm itself; a token response whose token never closes has no token.
    {"UnclosedRstrOpenings", kAdfs, kAuthResultAuthFailed, 1, false, [](Base) {
       return Served{{Xml(Repeat("<t:RequestSecurityTokenResponse", 100000) + "</t:Other>")}, kNoRstr}; }},
    {"UnclosedRstrElements", kAdfs, kAuthResultAuthFailed, 1, false, [](Base) {
       return Served{{Xml(Repeat(kRstrOpen, 100000) + "</t:Other>")}, kNoRstr}; }},
    {"UnclosedBinaryTokens", kOffice365, kAuthResultBposNotSupported, 2, false, [](Base) {
       return Served{{NoRedirect(), Soap(kRstrOpen + Repeat("<wsse:BinarySecurityToken>t=", 100000) + kRstrClose)},
                     kForSite}; }},
    {"UnclosedStrSites", kOnline, kAuthResultOk, 3, false, [](Base) {
       return Served{{NoRedirect(), Xml(Repeat("<strSite>", 100000)), SignedIn()}, kToRealm}; }},
    // An RSTR lands in the next envelope, which is masked before it is logged;
    // masking used to backtrack over each unclosed tag for minutes, or throw.
    {"AssertionFullOfPasswordTags", kOffice365, kAuthResultOk, 2, false, [](Base) {
       return Served{{NoRedirect(), Soap(kTokenRstr)}, kToken + kForSite,
                     kRstrOpen + "<saml:Assertion AssertionID=\"_a\">" + Repeat("<password>", 100000) +
                         "</saml:Assertion>" + kRstrClose}; }},

    // Floods of lines. libcurl keeps only the first cookies of a response; the
    // one that counts comes first, as a site would send it.
    {"TenThousandHeaderLines", kForms, kAuthResultOk, 1, false, [](Base) {
       Response response = Xml("<LoginResult/>");
       for (int i = 0; i < 10000; ++i) response.AddHeader("X-Filler-" + std::to_string(i), "value");
       return Served{{response.SetCookie("FedAuth=h; path=/")}, "h"}; }},
    {"FiveThousandCookies", kForms, kAuthResultOk, 1, false, [](Base) {
       Response response = Xml("<LoginResult/>").SetCookie("FedAuth=c; path=/");
       for (int i = 0; i < 5000; ++i) response.SetCookie("c" + std::to_string(i) + "=v; path=/");
       return Served{{response}, "c"}; }},

    // A NUL ends the text searched; nothing behind one in a header line is taken.
    {"NulBehindTheRstr", kAdfs, kAuthResultOk, 1, false, [](Base) {
       return Served{{Soap(kClaims + kNul + "<t:RequestSecurityTokenResponse>x" + kRstrClose)}, kClaims + "|"}; }},
    {"NulInsideTheRstr", kAdfs, kAuthResultAuthFailed, 1, false, [](Base) {
       return Served{{Soap(kRstrOpen + "<a>cl" + kNul + "aims</a>" + kRstrClose)}, kNoRstr}; }},
    {"NulBeforeTheRstr", kAdfs, kAuthResultAuthFailed, 1, false, [](Base) {
       return Served{{Soap(kNul + Filler(kMegabyte) + kClaims)}, kNoRstr}; }},
    {"NulInHeaderLines", kForms, kAuthResultOk, 1, true, [](Base) {
       Response response = Xml("<LoginResult/>").AddHeaderLine("X-Note: a" + kNul + "b");
       return Served{{response.SetCookie("FedAuth=v" + kNul + "w; path=/")}, "v"}; }},
    {"NulInTheRedirect", kOffice365, kAuthResultOk, 2, false, [](Base) {
       return Served{{Response::Redirect(302, "/x?wreply=" + kNul + "https%3a%2f%2fevil"), Soap(kTokenRstr)},
                     kToken + kForSite}; }},

    // A loop ends after the most redirects allowed; a Location too long for
    // libcurl fails the probe, which only means there is no redirect.
    {"RedirectLoop", kOffice365, kAuthResultOk, 11, false, [](Base base) {
       std::vector<Response> answers(10, Response::Redirect(302, base + "/sites/a"));
       answers.push_back(Soap(kTokenRstr));
       return Served{answers, kToken + kForSite}; }},
    {"MegabyteLocation", kOffice365, kAuthResultOk, 2, false, [](Base) {
       return Served{{Response::Redirect(302, "/next?wreply=" + Repeat("https%3a%2f%2fx", kMegabyte / 15)),
                      Soap(kTokenRstr)}, kToken + kForSite}; }},

    // Connections that die mid-body: nothing of what arrived is taken, and
    // GetSiteAndWeb, being advice, names no other target.
    {"ClosedMidRstr", kAdfs, kAuthResultSendFailed, 1, false, [](Base) {
       return Served{{Cut(Soap(kTokenRstr + Filler(kMegabyte)))}, "|"}; }},
    {"ClosedMidGetSiteAndWeb", kOnline, kAuthResultOk, 3, false, [](Base base) {
       return Served{{NoRedirect(), Cut(Xml(Filler(kMegabyte) + "<strSite>" + base + "/elsewhere</strSite>")), SignedIn()},
                     kToRealm}; }},
};

class HostileServerTest : public EmulatorTest, public ::testing::WithParamInterface<HostileCase> {
 protected:
  std::string Run(Flow flow, const std::string& credential_rstr, AuthResult* result) {
    const std::string site = Http("/sites/a");
    CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(kTokenRstr));
    auto last_post = [this] {
      const std::vector<Emulation::Request> all = emulator_.Requests();
      auto post = std::find_if(all.rbegin(), all.rend(), [](const Emulation::Request& r) { return r.method == "POST"; });
      return post != all.rend() ? *post : Emulation::Request();
    };
    switch (flow) {
      case kAdfs: {
        Adfs* adfs = engine_->Adfs();
        *result = adfs->AuthenticateByUser(Http("/").c_str(), "urn:x", "user", "secret");
        return RstrOf(*adfs) + "|" + (*result == kAuthResultSendFailed ? "" : Detail(*adfs));
      }
      case kOffice365: {
        Office365* office365 = engine_->Office365();
        office365->SetServer(Http("").c_str());
        CredentialPtr credential(credential_rstr.empty()
                                     ? CredentialFactory::CreateBasicUsernameCredential("user", "secret")
                                     : CredentialFactory::CreateCredentialFromRstr(credential_rstr));
        *result = office365->Authenticate(site.c_str(), credential.get());
        const bool for_site = last_post().body.find("<a:Address>" + site + "</a:Address>") != std::string::npos;
        return Fetch([&](char* b, size_t* n) { office365->GetBinarySecurityToken(b, n); }) +
               (for_site ? kForSite : " for another realm");
      }
      case kOnline:
        *result = engine_->SharePointOffice365()->Authenticate(site.c_str(), token.get());
        return last_post().target;
      case kForms: {
        SharePointFba* fba = engine_->SharePointFba();
        *result = fba->Authenticate(site.c_str(), "user", "secret");
        return fba->GetFedAuthCookie() != nullptr ? fba->GetFedAuthCookie()->GetValue() : "";
      }
    }
    return "?";
  }
};

TEST_P(HostileServerTest, EndsInBoundedTimeAndMemoryWithWhatArrived) {
  const HostileCase& c = GetParam();
  Served served = c.serve(Http(""));
  for (Response& answer : served.answers) emulator_.Enqueue(std::move(answer));
  AuthResult result = kAuthResultInternalError;
  std::string got;
  Cost cost = Measure([&] { got = Run(c.flow, served.credential_rstr, &result); });
  EXPECT_LT(cost.seconds, kSecondsBound);
  if (cost.peak_bytes != 0) { EXPECT_LT(cost.peak_bytes, kPeakBound); }
  if (c.may_refuse && result == kAuthResultSendFailed) return;
  EXPECT_EQ(result, c.result);
  EXPECT_TRUE(got == served.got) << got.size() << " bytes: " << got.substr(0, 200);  // not all of 64 MB
  EXPECT_EQ(emulator_.Requests().size(), c.requests);
}

INSTANTIATE_TEST_SUITE_P(Servers, HostileServerTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<HostileCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace Vantrel::Auth::testing
