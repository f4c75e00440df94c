// Which response answers a request: the precedence that tests and endpoint
// families rely on when they layer routes and canned responses.
#include "emulator/router.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace Vantrel {
namespace Emulation {
namespace {

Request Make(std::string method, std::string target, std::string host) {
  Request request;
  request.method = std::move(method);
  request.target = std::move(target);
  request.version = "HTTP/1.1";
  request.header_lines = {"Host: " + host};
  request.DerivePathAndQuery();
  return request;
}

Handler Says(std::string word) {
  return [word](const Request&) { return Response::Text(200, word); };
}

TEST(RouterTest, MostSpecificRouteWins) {
  Router router;
  router.Add("", "", "/", Says("root"));
  router.Add("", "", "/_vti_bin", Says("any host"));
  router.Add("", "Site.Example", "/", Says("named host"));
  router.Add("POST", "", "/_vti_bin/Authentication.asmx", Says("first"));
  router.Add("POST", "", "/_vti_bin/authentication.asmx", Says("latest"));

  EXPECT_EQ(router.Dispatch(Make("GET", "/_vti_bin/x", "other:80")).body, "any host");
  EXPECT_EQ(router.Dispatch(Make("GET", "/_vti_bin/x", "site.example:443")).body, "named host");
  EXPECT_EQ(router.Dispatch(Make("POST", "/_VTI_BIN/authentication.asmx?x", "other")).body, "latest");
  EXPECT_EQ(router.Dispatch(Make("GET", "/_vti_bin/authentication.asmx", "other")).body, "any host");
  EXPECT_EQ(router.Dispatch(Make("GET", "/_vti_binary", "other")).body, "root");
}

TEST(RouterTest, QueueComesFirstThenRoutesThenNotFound) {
  Router router;
  RouteId id = router.Add("GET", "", "/a", Says("route"));
  router.Enqueue(Response::Text(503, "queued"));

  EXPECT_EQ(router.Dispatch(Make("GET", "/a", "h")).status, 503);
  EXPECT_EQ(router.Dispatch(Make("GET", "/a", "h")).body, "route");
  router.Remove(id);
  Response missing = router.Dispatch(Make("GET", "/a%2Fb", "h"));
  EXPECT_EQ(missing.status, 404);
  EXPECT_EQ(missing.body, "emulator: no route for GET h/a/b\n");
}

TEST(RouterTest, ThrowingHandlerBecomesServerError) {
  Router router;
  router.Add("", "", "", [](const Request&) -> Response { throw std::runtime_error("boom"); });
  Response response = router.Dispatch(Make("GET", "/", "h"));
  EXPECT_EQ(response.status, 500);
  EXPECT_NE(response.body.find("boom"), std::string::npos);
}

}  // namespace
}  // namespace Emulation
}  // namespace Vantrel
