#include "network/NetworkControlLibcurl.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "base/Cancellation.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "network/CurlWrap.h"
#include "network/HeaderLine.h"
#include "network/NetscapeCookie.h"
#include "network/SecretMask.h"
#include "network/VerboseLogFile.h"

namespace Vantrel {
namespace Auth {
namespace {

// libcurl's CURL_ERROR_SIZE.
const size_t kErrorBufferSize = 256;
// fgets reads at most one less than this: verbose lines longer than that
// reach the log in pieces.
const int kVerboseLineSize = 200;
const char kNullHandleText[] =
    "Null handle encountered.  This might be caused by network initialization not called prior "
    "to use.";
const char kUnknownErrorText[] = "Error detail unknown.";
const char kCancelledText[] = "The sign-in was cancelled.";

// Names the time-out that ran out, and its length; libcurl's words follow.
// Until the connection is made, TLS handshake and proxy tunnel included, the
// tighter of the two bounds a request; once it is, the request time-out alone.
std::string TimeoutText(long connect_seconds, long request_seconds, bool connected,
                        const char* curl_text) {
  // Without one of the host's, libcurl bounds the connection phase itself.
  const long kCurlConnectTimeout = 300;
  if (connect_seconds <= 0) connect_seconds = kCurlConnectTimeout;
  bool whole_request = request_seconds > 0 && (connected || request_seconds <= connect_seconds);
  std::string text = whole_request ? "Request time-out of " + std::to_string(request_seconds)
                                   : "Connect time-out of " + std::to_string(connect_seconds);
  text += " s reached";
  if (curl_text[0] != '\0') text.append(": ").append(curl_text);
  return text;
}

void LogDebug(const char* format, const char* a1 = nullptr, const char* a2 = nullptr) {
  Logger::LogFormat(kLogLevelDebug, format, a1, a2, nullptr, nullptr, nullptr);
}

long CurlSslVersion(SslVersion version) {
  switch (version) {
    case kSslVersionTls1:
      return CURL_SSLVERSION_TLSv1;
    case kSslVersionSsl3:
      // Current libcurl refuses SSLv3 at setopt time; the refusal is not
      // looked at, so such a request runs with libcurl's default.
      return CURL_SSLVERSION_SSLv3;
    case kSslVersionDefault:
      break;
  }
  return CURL_SSLVERSION_DEFAULT;
}

bool IsSet(const char* text) { return text != nullptr && text[0] != '\0'; }

// An exception must not unwind through libcurl's C frames. A callback that
// fails parks it here and aborts the transfer; SendRequest rethrows it once
// libcurl has returned and the request's resources are released. Callbacks
// run on the thread inside Perform, so one slot per thread suffices.
thread_local std::exception_ptr callback_failure;

void ParkCallbackFailure() {
  if (!callback_failure) callback_failure = std::current_exception();
}

// What one request holds while it runs. The normal path releases each in its
// own order and clears the field; this only mops up after an exception.
struct RequestResources {
  explicit RequestResources(CurlWrap* handle) : wrap(handle) {}
  ~RequestResources() {
    if (stream != nullptr) {
      wrap->SetOpt(CURLOPT_STDERR, static_cast<FILE*>(nullptr));
      std::fclose(stream);
    }
    wrap->SlistFreeAll(headers);
  }
  RequestResources(const RequestResources&) = delete;
  RequestResources& operator=(const RequestResources&) = delete;

  CurlWrap* wrap;
  curl_slist* headers = nullptr;
  FILE* stream = nullptr;
};

}  // namespace

NetworkControlLibcurl::NetworkControlLibcurl()
    : curl_wrap_(nullptr), error_buffer_(nullptr), current_result_(nullptr), curl_log_file_(nullptr) {
  static const char kWhere[] = "NetworkControlLibcurl::NetworkControlLibcurl";
  LogDebug("%s() called", kWhere);
  // Held locally until nothing more can throw: a constructor that throws gets
  // no destructor call.
  std::unique_ptr<CurlWrap> wrap(new CurlWrap());
  std::unique_ptr<char[]> error_buffer(new char[kErrorBufferSize]);
  error_buffer[0] = '\0';
  std::unique_ptr<char[]> log_file;

  const char* dir = AuthEngineConfig::GetTempLogDir();
  if (IsSet(dir)) {
    // Named by the time in seconds: transports made in the same second with
    // the same directory share one file.
    int32_t stamp = static_cast<int32_t>(std::time(nullptr));
    char number[16];
    std::snprintf(number, sizeof(number), "%ld", static_cast<long>(stamp));
    size_t size = std::strlen(dir) + std::strlen("/authengine.") + std::strlen(number) +
                  std::strlen(".log") + 1;
    log_file.reset(new char[size]);
    std::snprintf(log_file.get(), size, "%s/authengine.%s.log", dir, number);
    LogDebug("%s - curl log file: %s", kWhere, log_file.get());
  }
  curl_wrap_ = wrap.release();
  error_buffer_ = error_buffer.release();
  curl_log_file_ = log_file.release();
}

NetworkControlLibcurl::~NetworkControlLibcurl() {
  static const char kWhere[] = "NetworkControlLibcurl::~NetworkControlLibcurl";
  LogDebug("%s() called", kWhere);
  // The handle goes first: closing its connections may still write to the
  // error buffer. A handle left verbose by its last request would chatter to
  // the process's standard error while it closes them.
  if (curl_wrap_ != nullptr) curl_wrap_->SetOpt(CURLOPT_VERBOSE, 0L);
  delete curl_wrap_;
  curl_wrap_ = nullptr;
  delete[] error_buffer_;
  error_buffer_ = nullptr;
  if (IsSet(curl_log_file_)) {
    LogDebug("%s - Removing log file: %s", kWhere, curl_log_file_);
    // The file may never have been created; that is not worth a word.
    // Another transport capturing under the same name keeps writing and
    // reading through its open descriptor, and its next capture makes the
    // file anew.
    std::remove(curl_log_file_);
  }
  StrFree(&curl_log_file_);
}

AuthResult NetworkControlLibcurl::Exec(NetworkConfig* config, NetworkResult* result) {
  if (result == nullptr) return kAuthResultInternalError;
  current_result_ = result;
  result->Reset();
  if (curl_wrap_ == nullptr || !curl_wrap_->IsValid()) {
    result->SetErrorMsg(kNullHandleText);
    return kAuthResultInternalError;
  }
  if (config == nullptr) {
    // Not a caller of this library; a host's own code might, and a null
    // description can't be sent.
    result->SetErrorMsg("No request description given.");
    return kAuthResultInternalError;
  }

  Logger::Log(kLogLevelDebug,
              "NetworkControlLibcurl::Exec - Using the following NetworkConfig for web call.... ");
  NetworkConfig::LogDump(config);

  AuthResult outcome = SendRequest(config, result);
  if (outcome == kAuthResultOk) outcome = ProcessResponse(result);

  Logger::Log(kLogLevelDebug, "NetworkControlLibcurl::Exec - NetworkResult after web call.... ");
  NetworkResult::LogDump(result);
  return outcome;
}

char* NetworkControlLibcurl::Escape(const char* text) {
  if (text == nullptr || curl_wrap_ == nullptr) return nullptr;
  return curl_wrap_->Escape(text, 0);
}

void NetworkControlLibcurl::FreeEscaped(char* text) {
  if (curl_wrap_ != nullptr) curl_wrap_->Free(text);
}

AuthResult NetworkControlLibcurl::SendRequest(NetworkConfig* config, NetworkResult* result) {
  static const char kWhere[] = "NetworkControlLibcurl::SendRequest";
  LogDebug("%s(...) called", kWhere);
  // A Cancel that came between two requests of an attempt: the next one
  // isn't even started.
  if (IsCancelled()) {
    result->SetErrorMsg(kCancelledText);
    return kAuthResultCancelled;
  }
  error_buffer_[0] = '\0';
  ResetHandle();
  RequestResources held(curl_wrap_);
  // Read at each request: a change applies from the next one on.
  const long connect_timeout = AuthEngineConfig::GetConnectTimeout();
  const long request_timeout = AuthEngineConfig::GetRequestTimeout();
  SetRequestOptions(config, connect_timeout, request_timeout, &held.headers);

  FILE*& log_stream = held.stream;
  if (IsSet(curl_log_file_) && config->IsVerbose()) {
    bool unnamed = false;
    log_stream = OpenVerboseLogFile(curl_log_file_, &unnamed);
    if (log_stream != nullptr) {
      LogDebug(unnamed ? "%s: Log file busy, writing to an unnamed file beside it: %s"
                       : "%s: Successfully open log file for writing: %s",
               kWhere, curl_log_file_);
      std::setbuf(log_stream, log_stream_buffer_);
    }
  }
  curl_wrap_->SetOpt(CURLOPT_STDERR, log_stream);

  LogDebug("%s: Executing request ... ", kWhere);
  // Woken as often as every other wait of an attempt looks at the flag.
  CURLcode code = curl_wrap_->PerformWaking(Cancellation::kWatchInterval.count());
  std::exception_ptr failure = std::exchange(callback_failure, nullptr);
  char code_text[16];
  std::snprintf(code_text, sizeof(code_text), "%d", static_cast<int>(code));
  LogDebug("%s: CURLcode is: %s", kWhere, code_text);

  // libcurl must not keep a stream that is about to be closed.
  curl_wrap_->SetOpt(CURLOPT_STDERR, static_cast<FILE*>(nullptr));
  if (log_stream != nullptr) {
    LogDebug("%s: Close log file: %s", kWhere, curl_log_file_);
    std::fflush(log_stream);
    CopyVerboseLog(log_stream);
    // Only now may another transport have the file.
    std::fclose(log_stream);
    log_stream = nullptr;
  }

  curl_wrap_->SlistFreeAll(held.headers);
  held.headers = nullptr;
  if (failure) std::rethrow_exception(failure);
  return TransferOutcome(code, connect_timeout, request_timeout, result);
}

void NetworkControlLibcurl::ResetHandle() {
  // libcurl (7.88) keeps the cookie-file list of the previous request past
  // the transfer, and curl_easy_reset forgets it without freeing it: a leak
  // per request. Handing the list back first costs nothing, as every cookie
  // is wiped below anyway.
  curl_wrap_->SetOpt(CURLOPT_COOKIEFILE, static_cast<const char*>(nullptr));
  // Reset, not a new handle: live connections and the DNS and TLS caches
  // outlast the request, options don't.
  curl_wrap_->Reset();

  // Wiping the cookies and then switching the engine on without a file means
  // no request carries a cookie from an earlier one, and afterwards the engine
  // holds exactly what this response set.
  curl_wrap_->SetOpt(CURLOPT_COOKIELIST, "ALL");
  curl_wrap_->SetOpt(CURLOPT_ERRORBUFFER, error_buffer_);
}

void NetworkControlLibcurl::SetRequestOptions(NetworkConfig* config, long connect_timeout,
                                              long request_timeout, curl_slist** header_list) {
  if (config->IsSslUsed()) {
    curl_wrap_->SetOpt(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    curl_wrap_->SetOpt(CURLOPT_SSL_VERIFYHOST, config->IsVerifyHost() ? 2L : 0L);
    curl_wrap_->SetOpt(CURLOPT_SSL_VERIFYPEER, config->IsVerifyCert() ? 1L : 0L);
    if (IsSet(config->GetCaFile())) curl_wrap_->SetOpt(CURLOPT_CAINFO, config->GetCaFile());
  }
  curl_wrap_->SetOpt(CURLOPT_URL, config->GetUrl());

  curl_slist*& headers = *header_list;
  for (const HeaderNode* node = config->GetHeaders(); node != nullptr; node = node->next) {
    const Header* header = node->header;
    if (header == nullptr || header->name == nullptr || header->value == nullptr) continue;
    size_t size = std::strlen(header->name) + std::strlen(header->value) + 3;
    char* line = new char[size];
    std::snprintf(line, size, "%s: %s", header->name, header->value);
    curl_slist* appended = curl_wrap_->SlistAppend(headers, line);
    // The line may be "Authorization: Bearer TOKEN".
    WipeMemory(line, size);
    delete[] line;
    // libcurl gives null when it runs out of memory and leaves the list as
    // it was; the header is then simply missing.
    if (appended != nullptr) headers = appended;
  }
  curl_wrap_->SetOpt(CURLOPT_HTTPHEADER, headers);

  // The method follows from the body alone: libcurl makes a POST of any
  // request that has post fields. libcurl doesn't copy them; the config's
  // string outlives the transfer.
  if (IsSet(config->GetPostData())) curl_wrap_->SetOpt(CURLOPT_POSTFIELDS, config->GetPostData());
  curl_wrap_->SetOpt(CURLOPT_COOKIEFILE, "");
  curl_wrap_->SetOpt(CURLOPT_VERBOSE, config->IsVerbose() ? 1L : 0L);
  if (IsSet(config->GetProxy())) curl_wrap_->SetOpt(CURLOPT_PROXY, config->GetProxy());
  curl_wrap_->SetOpt(CURLOPT_WRITEFUNCTION, reinterpret_cast<void*>(&WriteCallback));
  curl_wrap_->SetOpt(CURLOPT_WRITEDATA, static_cast<void*>(this));
  curl_wrap_->SetOpt(CURLOPT_HEADERFUNCTION, reinterpret_cast<void*>(&HeaderCallback));
  curl_wrap_->SetOpt(CURLOPT_HEADERDATA, static_cast<void*>(this));
  curl_wrap_->SetOpt(CURLOPT_SSLVERSION, CurlSslVersion(config->GetSslVersion()));
  // A time-out the host didn't ask for isn't set: libcurl's defaults hold.
  if (connect_timeout > 0) curl_wrap_->SetOpt(CURLOPT_CONNECTTIMEOUT, connect_timeout);
  if (request_timeout > 0) curl_wrap_->SetOpt(CURLOPT_TIMEOUT, request_timeout);
  if (connect_timeout > 0 || request_timeout > 0) {
    // No signals once there is a time-out: libcurl would otherwise bound a
    // name lookup with SIGALRM, process-wide, racing the host's other threads.
    // Its sockets are written with MSG_NOSIGNAL.
    curl_wrap_->SetOpt(CURLOPT_NOSIGNAL, 1L);
  }
  if (cancellation_ != nullptr) {
    // Called at every wake of PerformWaking, also while nothing arrives.
    curl_wrap_->SetOpt(CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(&ProgressCallback));
    curl_wrap_->SetOpt(CURLOPT_XFERINFODATA, static_cast<void*>(this));
    curl_wrap_->SetOpt(CURLOPT_NOPROGRESS, 0L);
  }
}

AuthResult NetworkControlLibcurl::TransferOutcome(CURLcode code, long connect_timeout,
                                                  long request_timeout, NetworkResult* result) {
  if (code == CURLE_OK) return kAuthResultOk;
  if (code == CURLE_ABORTED_BY_CALLBACK && IsCancelled()) {
    result->SetErrorMsg(kCancelledText);
    return kAuthResultCancelled;
  }
  if (code == CURLE_OPERATION_TIMEDOUT) {
    // Past the connection phase libcurl has noted when the transfer began
    // (a curl_off_t, which is a long where this library builds).
    curl_off_t transfer_began = 0;
    curl_wrap_->GetInfo(CURLINFO_PRETRANSFER_TIME_T, &transfer_began);
    std::string text =
        TimeoutText(connect_timeout, request_timeout, transfer_began > 0, error_buffer_);
    result->SetErrorMsg(text.c_str());
    return kAuthResultSendFailed;
  }
  result->SetErrorMsg(error_buffer_[0] != '\0' ? error_buffer_ : kUnknownErrorText);
  return kAuthResultSendFailed;
}

void NetworkControlLibcurl::CopyVerboseLog(FILE* file) {
  static const char kWhere[] = "NetworkControlLibcurl::SendRequest";
  // Read back through the descriptor that was written, not by opening the
  // name again: by now the name may be gone (removed by another transport) or
  // stand for another file, and the lock would have to be taken anew.
  std::rewind(file);
  LogDebug("%s: Opened log file for reading: %s", kWhere, curl_log_file_);
  LogDebug("%s: libcurl verbose output BEGIN .....", kWhere);
  char line[kVerboseLineSize];
  // fgets hands a long line over in pieces; an Authorization header's is
  // logged masked, and its later pieces (the rest of the token) not at all.
  bool continued = false;
  bool hidden = false;
  while (std::fgets(line, sizeof(line), file) != nullptr) {
    size_t length = std::strlen(line);
    bool ends_line = length > 0 && line[length - 1] == '\n';
    if (ends_line) line[length - 1] = '\0';
    if (!continued) hidden = IsCredentialHeaderLine(line);
    // Through "%s": the text is libcurl's and may hold a per cent sign.
    if (!hidden) {
      LogDebug("%s", line);
    } else if (!continued) {
      LogDebug("%s", MaskedHeaderLine(line).c_str());
    }
    continued = !ends_line;
  }
  WipeMemory(line, sizeof(line));
  LogDebug("%s: libcurl verbose output END.", kWhere);
  LogDebug("%s: Close log file: %s", kWhere, curl_log_file_);
}

AuthResult NetworkControlLibcurl::ProcessResponse(NetworkResult* result) {
  static const char kWhere[] = "NetworkControlLibcurl::ProcessResponse";
  LogDebug("%s(...) called", kWhere);
  long code = 0;
  curl_wrap_->GetInfo(CURLINFO_RESPONSE_CODE, &code);
  result->SetResponseCode(static_cast<int>(code));
  result->ClearCookies();

  curl_slist* cookies = nullptr;
  if (curl_wrap_->GetInfo(CURLINFO_COOKIELIST, &cookies) != CURLE_OK) return kAuthResultOk;
  Cookie cookie;
  try {
    for (const curl_slist* node = cookies; node != nullptr; node = node->next) {
      ParseNetscapeCookie(&cookie, node->data);
      LogDebug("%s - Netscape cookie: %s", kWhere, node->data);
      LogDebug("%s - Parsed cookie name: %s", kWhere, cookie.GetName());
      result->AddCookie(&cookie);
    }
  } catch (...) {
    curl_wrap_->SlistFreeAll(cookies);
    throw;
  }
  curl_wrap_->SlistFreeAll(cookies);
  return kAuthResultOk;
}

size_t NetworkControlLibcurl::WriteCallback(char* data, size_t size, size_t count, void* user) {
  size_t length = size * count;
  NetworkControlLibcurl* self = static_cast<NetworkControlLibcurl*>(user);
  if (self != nullptr && self->current_result_ != nullptr) {
    try {
      self->current_result_->AppendBody(data, length);
    } catch (...) {
      ParkCallbackFailure();
      return 0;
    }
  }
  return length;
}

bool NetworkControlLibcurl::IsCancelled() const {
  return cancellation_ != nullptr && cancellation_->IsRaised();
}

int NetworkControlLibcurl::ProgressCallback(void* user, curl_off_t, curl_off_t, curl_off_t,
                                            curl_off_t) {
  const NetworkControlLibcurl* self = static_cast<const NetworkControlLibcurl*>(user);
  return self != nullptr && self->IsCancelled() ? 1 : 0;
}

size_t NetworkControlLibcurl::HeaderCallback(char* data, size_t size, size_t count, void* user) {
  size_t length = size * count;
  NetworkControlLibcurl* self = static_cast<NetworkControlLibcurl*>(user);
  try {
    ParseHeaderLine(data, length, self != nullptr ? self->current_result_ : nullptr);
  } catch (...) {
    ParkCallbackFailure();
    return 0;
  }
  return length;
}

}  // namespace Auth
}  // namespace Vantrel
