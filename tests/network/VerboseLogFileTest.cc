// The verbose log file at its predictable name: what the transport finds
// planted there, and two transports that share the name.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VantrelAuthEngine.h"
#include "emulator/Emulator.h"
#include "network/NetworkControlLibcurl.h"

namespace Vantrel::Auth::testing {
namespace {

std::string Read(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
mode_t Mode(const std::string& path) {
  struct stat info = {};
  return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}
// A file holding "earlier text"; false if it can't be given `mode` and `owner`.
bool PlantFile(const std::string& path, mode_t mode, uid_t owner = getuid()) {
  std::ofstream(path) << "earlier text";
  return chmod(path.c_str(), mode) == 0 && chown(path.c_str(), owner, owner) == 0;
}

class VerboseLogFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(emulator_.Start());
    old_umask_ = umask(0);  // modes are then the library's own choice
    ASSERT_NE(mkdtemp(dir_), nullptr);
    AuthEngineConfig::SetLoggerCallback(&Collect);
    AuthEngineConfig::SetLogLevel(kLogLevelDebug);
    AuthEngineConfig::SetTempLogDir(dir_);
  }
  void TearDown() override {
    AuthEngineConfig::SetTempLogDir(nullptr);
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
    AuthEngineConfig::SetLoggerCallback(nullptr);
    umask(old_umask_);
    EXPECT_EQ(rmdir(dir_), 0) << "left behind in " << dir_;
  }

  AuthResult Get(NetworkControlLibcurl* transport, const std::string& path, const std::string& padding = "") {
    NetworkConfig config;
    config.SetVerbose(true);
    if (!padding.empty()) config.AddHeader("X-Padding", padding.c_str());
    config.SetUrl(emulator_.HttpUrl(path).c_str());
    NetworkResult result;
    return transport->Exec(&config, &result);
  }
  // Two transports of one name: made anew when a second turned between them.
  static void MakeTwoOfOneName(std::unique_ptr<NetworkControlLibcurl>* first, std::unique_ptr<NetworkControlLibcurl>* second) {
    do {
      *first = std::make_unique<NetworkControlLibcurl>();
      *second = std::make_unique<NetworkControlLibcurl>();
    } while (std::string((*first)->GetCurlLogFile()) != (*second)->GetCurlLogFile());
  }

  // Keeps each capture's lines, joined with "|".
  static void Collect(VantrelAuthLogLevel, const char* text) {
    const std::string line = text, where = "NetworkControlLibcurl::SendRequest: ";
    if (line == where + "libcurl verbose output END.") inside_ = false;
    if (inside_) captures_.back() += line + "|";
    if (line == where + "libcurl verbose output BEGIN .....") {
      captures_.emplace_back("|");
      inside_ = true;
    }
    if (line == where + "Executing request ... " && on_executing_) std::exchange(on_executing_, nullptr)();
  }
  static inline std::vector<std::string> captures_;
  static inline bool inside_ = false;
  // Run once, inside the next request, while its log file is open.
  static inline std::function<void()> on_executing_;

  Emulation::Emulator emulator_;
  char dir_[32] = "/tmp/vantrel-verbose-XXXXXX";
  mode_t old_umask_ = 0;
};

// Whatever stands at the name is used only when it is a private file of ours;
// anything else is left exactly as it was, and the request goes on uncaptured.
TEST_F(VerboseLogFileTest, OnlyAPrivateFileOfOursAtTheNameIsWritten) {
  const std::string target = std::string(dir_) + "/target";
  const struct Row {
    const char* what;
    std::function<bool(const std::string& name)> plant;  // false: can't be planted here
    bool captured;
  } rows[] = {
      {"nothing", [](const std::string&) { return true; }, true},
      {"an earlier capture's file", [](const std::string& name) { return PlantFile(name, 0600); }, true},
      {"a link to a file", [&](const std::string& name) { return symlink(target.c_str(), name.c_str()) == 0; }, false},
      {"a link to nothing", [&](const std::string& name) { return symlink((target + ".new").c_str(), name.c_str()) == 0; }, false},
      {"a second name of a file", [&](const std::string& name) { return link(target.c_str(), name.c_str()) == 0; }, false},
      {"a file others may read", [](const std::string& name) { return PlantFile(name, 0644); }, false},
      {"another user's file", [](const std::string& name) { return PlantFile(name, 0600, 65534); }, false},
      {"a FIFO", [](const std::string& name) { return mkfifo(name.c_str(), 0600) == 0; }, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::ofstream(target) << "precious";
    ASSERT_EQ(chmod(target.c_str(), 0640), 0);
    auto transport = std::make_unique<NetworkControlLibcurl>();
    const std::string name = transport->GetCurlLogFile();
    if (!row.plant(name)) {
      std::cout << "  (skipped \"" << row.what << "\": can't be planted by this user)\n";
      std::remove(name.c_str());
      continue;
    }
    struct stat before = {};
    lstat(name.c_str(), &before);
    captures_.clear();
    // Refused, the text goes where it goes without a file: standard error.
    const int saved_stderr = dup(2), null = open("/dev/null", O_WRONLY);
    dup2(null, 2);
    EXPECT_EQ(Get(transport.get(), "/verbose"), kAuthResultOk);
    std::fflush(stderr);
    dup2(saved_stderr, 2);
    close(saved_stderr);
    close(null);
    EXPECT_EQ(Read(target), "precious");
    EXPECT_EQ(Mode(target), 0640u);
    EXPECT_EQ(access((target + ".new").c_str(), F_OK), -1);
    if (row.captured) {
      ASSERT_EQ(captures_.size(), 1u);
      EXPECT_NE(captures_[0].find("|> GET /verbose HTTP/1.1"), std::string::npos);
      EXPECT_EQ(Read(name).find("earlier text"), std::string::npos);  // emptied first
      EXPECT_NE(Read(name).find("GET /verbose"), std::string::npos);
      EXPECT_EQ(Mode(name), 0600u);
    } else {
      EXPECT_EQ(captures_.size(), 0u);
      struct stat after = {};
      lstat(name.c_str(), &after);
      EXPECT_TRUE(after.st_ino == before.st_ino && after.st_mode == before.st_mode && after.st_size == before.st_size &&
                  after.st_mtime == before.st_mtime);
    }
    transport.reset();  // removes the name, never what a link points to
    EXPECT_EQ(access(name.c_str(), F_OK), -1);
    EXPECT_EQ(Read(target), "precious");
    std::remove(target.c_str());
  }
}

// Two transports of one name, the second acting while the first's request is
// under way: neither loses a line nor gets one of the other's, and the first
// one's removal of the name leaves the second's capture whole.
TEST_F(VerboseLogFileTest, TransportsSharingTheNameKeepTheirOwnLines) {
  const struct Row {
    const char* what;
    bool second_requests;  // else the second goes away, taking the name
  } rows[] = {{"the second captures a request", true}, {"the second is destroyed", false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::unique_ptr<NetworkControlLibcurl> first, second;
    MakeTwoOfOneName(&first, &second);
    const std::string name = first->GetCurlLogFile();
    on_executing_ = [&] {
      // Longer than the first's text: what the first writes could not hide it.
      if (row.second_requests) EXPECT_EQ(Get(second.get(), "/second", std::string(2000, 'p')), kAuthResultOk);
      else second.reset();
    };
    captures_.clear();
    ASSERT_EQ(Get(first.get(), "/first"), kAuthResultOk);
    ASSERT_EQ(captures_.size(), row.second_requests ? 2u : 1u);
    EXPECT_NE(captures_.back().find("|> GET /first HTTP/1.1"), std::string::npos);
    EXPECT_NE(captures_.back().find("|< HTTP/1.1 404"), std::string::npos);  // to the answer's end
    EXPECT_EQ(captures_.back().find("pppp"), std::string::npos);
    if (row.second_requests) {
      EXPECT_NE(captures_[0].find("|> GET /second HTTP/1.1"), std::string::npos);
      EXPECT_EQ(captures_[0].find("/first"), std::string::npos);
      EXPECT_NE(Read(name).find("GET /first"), std::string::npos);  // the name was the first's
      second.reset();
    }
    // With the name gone, the next capture makes the file anew, private.
    EXPECT_EQ(access(name.c_str(), F_OK), -1);
    ASSERT_EQ(Get(first.get(), "/again"), kAuthResultOk);
    EXPECT_NE(Read(name).find("GET /again"), std::string::npos);
    EXPECT_EQ(Mode(name), 0600u);
    first.reset();
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing
