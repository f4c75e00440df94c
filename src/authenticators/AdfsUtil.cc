#include "authenticators/AdfsUtil.h"

#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "credentials/BinaryTokenCredential.h"
#include "credentials/ISamlCredential.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Fills each "%s" of `format` in turn with the next text (null counts as
// empty). Done by hand rather than with snprintf so that a token of any size
// goes in unmeasured and unchanged; the formats hold no other conversion.
// Built in wiped memory: the texts are passwords, assertions and tokens.
char* FillFormat(const char* format, const char* const* texts, size_t count) {
  SecretString out;
  size_t next = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (p[0] == '%' && p[1] == 's' && next < count) {
      if (texts[next] != nullptr) out.Append(texts[next]);
      ++next;
      ++p;
    } else {
      out.Append(*p);
    }
  }
  return StrDup(out.c_str());
}

}  // namespace

const char* AdfsUtil::regex_str_wreply_ = "wreply=([^]+?)(&[^]*)*$";
const char* AdfsUtil::regex_str_rstr_ =
    "(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*RequestSecurityTokenResponse[^>]*>)";
const char* AdfsUtil::regex_str_binarysecuritytoken_ = BinaryTokenCredential::token_pattern_;
const char* AdfsUtil::signin_form_format_ = "wa=wsignin1.0&wctx=%s&wresult=%s";

// Kept byte for byte as token services have accepted it, irregular indents
// included: don't reformat. The credential's text brings its own line ends
// (a username token ends in one, a token element doesn't), which is why
// "</o:Security>" shares its line.
const char* AdfsUtil::rst_envelope_format_ =
    "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\""
    " xmlns:a=\"http://www.w3.org/2005/08/addressing\""
    " xmlns:u=\"http://docs.oasis-open.org/wss/2004/01/"
    "oasis-200401-wss-wssecurity-utility-1.0.xsd\">\n"
    "   <s:Header>\n"
    "      <a:Action s:mustUnderstand=\"1\">"
    "http://schemas.xmlsoap.org/ws/2005/02/trust/RST/Issue</a:Action>\n"
    "       <a:ReplyTo><a:Address>"
    "http://www.w3.org/2005/08/addressing/anonymous</a:Address></a:ReplyTo>\n"
    "       <a:To s:mustUnderstand=\"1\">%s</a:To>\n"
    "       <o:Security s:mustUnderstand=\"1\""
    " xmlns:o=\"http://docs.oasis-open.org/wss/2004/01/"
    "oasis-200401-wss-wssecurity-secext-1.0.xsd\">\n"
    "           %s       </o:Security>\n"
    "   </s:Header>\n"
    "   <s:Body>\n"
    "       <t:RequestSecurityToken xmlns:t=\"http://schemas.xmlsoap.org/ws/2005/02/trust\">\n"
    "           <wsp:AppliesTo xmlns:wsp=\"http://schemas.xmlsoap.org/ws/2004/09/policy\">\n"
    "               <a:EndpointReference>\n"
    "                   <a:Address>%s</a:Address>\n"
    "               </a:EndpointReference>\n"
    "           </wsp:AppliesTo>\n"
    "           <t:KeyType>http://schemas.xmlsoap.org/ws/2005/05/identity/NoProofKey</t:KeyType>\n"
    "           <t:RequestType>http://schemas.xmlsoap.org/ws/2005/02/trust/Issue</t:RequestType>\n"
    "           <t:TokenType>urn:oasis:names:tc:SAML:1.0:assertion</t:TokenType>\n"
    "       </t:RequestSecurityToken>\n"
    "   </s:Body>\n"
    "</s:Envelope>";

char* AdfsUtil::BuildRstEnvelope(const char* request_url, const char* realm,
                                 const ISamlCredential* credential) {
  SecretString security;
  if (credential != nullptr) security = credential->GetSamlCredential();
  const char* texts[] = {request_url, security.c_str(), realm};
  return FillFormat(rst_envelope_format_, texts, 3);
}

char* AdfsUtil::ExtractRstr(const char* text) {
  if (text == nullptr || text[0] == '\0') return nullptr;
  return RegexFirstCapture(text, regex_str_rstr_);
}

char* AdfsUtil::ExtractBinarySecurityToken(const char* rstr) {
  if (rstr == nullptr || rstr[0] == '\0') return nullptr;
  return RegexFirstCapture(rstr, regex_str_binarysecuritytoken_);
}

char* AdfsUtil::BuildSigninForm(const char* wctx, const char* wresult) {
  const char* texts[] = {wctx, wresult};
  return FillFormat(signin_form_format_, texts, 2);
}

}  // namespace Auth
}  // namespace Vantrel
