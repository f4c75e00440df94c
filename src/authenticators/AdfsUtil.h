// AdfsUtil: the texts of the token exchange. Internal; static only.
//
// Every char* returned is a new owned string, released with StrFree.
#ifndef VANTREL_AUTH_AUTHENTICATORS_ADFS_UTIL_H_
#define VANTREL_AUTH_AUTHENTICATORS_ADFS_UTIL_H_

namespace Vantrel {
namespace Auth {

class ISamlCredential;

class AdfsUtil {
 public:
  AdfsUtil() {}
  virtual ~AdfsUtil() {}

  // The RST envelope with the request URL in a:To, the credential's text in
  // o:Security and the realm in wsp:AppliesTo, nothing escaped.
  static char* BuildRstEnvelope(const char* request_url, const char* realm,
                                const ISamlCredential* credential);
  // The whole RSTR element of a response body, or null.
  static char* ExtractRstr(const char* text);
  // The inner text ("t=...") of the BinarySecurityToken element, or null.
  static char* ExtractBinarySecurityToken(const char* rstr);
  // "wa=wsignin1.0&wctx=<wctx>&wresult=<wresult>", arguments already escaped.
  static char* BuildSigninForm(const char* wctx, const char* wresult);

  static const char* regex_str_wreply_;
  static const char* regex_str_rstr_;
  static const char* regex_str_binarysecuritytoken_;
  static const char* signin_form_format_;
  static const char* rst_envelope_format_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_ADFS_UTIL_H_
