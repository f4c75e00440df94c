// VantrelAuthEngine: sign-in to SharePoint for desktop and server applications.
//
// The one header a host includes. It declares every exported class of
// namespace Vantrel::Auth; nothing beyond the C++ standard library is needed
// to compile against it. Start with AuthEngine.h for the order of calls.
#ifndef VANTREL_AUTH_ENGINE_H_
#define VANTREL_AUTH_ENGINE_H_

#include "AuthExport.h"
#include "AuthTypes.h"

#include "AuthEngine.h"
#include "AuthEngineConfig.h"

#include "StrList.h"

#include "Cookie.h"
#include "CookieNode.h"
#include "Header.h"
#include "HeaderNode.h"
#include "INetworkControl.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "SslVersion.h"

#include "CredentialFactory.h"
#include "ICredential.h"

#include "Adfs.h"
#include "AdfsImpl.h"
#include "AuthBase.h"
#include "Ntlm.h"
#include "Office365.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"

#endif  // VANTREL_AUTH_ENGINE_H_
