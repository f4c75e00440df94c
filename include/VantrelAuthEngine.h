// VantrelAuthEngine: sign-in to SharePoint for desktop and server applications.
//
// The one header a host includes. It declares every exported class of
// namespace Vantrel::Auth; nothing beyond the C++ standard library is needed
// to compile against it. Start with AuthEngine.h for the order of calls.
#ifndef VANTREL_AUTH_ENGINE_H_
#define VANTREL_AUTH_ENGINE_H_

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/AuthTypes.h"

#include "VantrelAuthEngine64/AuthEngine.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"

#include "VantrelAuthEngine64/StrList.h"

#include "VantrelAuthEngine64/Cookie.h"
#include "VantrelAuthEngine64/CookieNode.h"
#include "VantrelAuthEngine64/Header.h"
#include "VantrelAuthEngine64/HeaderNode.h"
#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "VantrelAuthEngine64/SslVersion.h"

#include "VantrelAuthEngine64/CredentialFactory.h"
#include "VantrelAuthEngine64/ICredential.h"

#include "VantrelAuthEngine64/Adfs.h"
#include "VantrelAuthEngine64/AdfsImpl.h"
#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/EntraId.h"
#include "VantrelAuthEngine64/Ntlm.h"
#include "VantrelAuthEngine64/Office365.h"
#include "VantrelAuthEngine64/SharePointAdfs.h"
#include "VantrelAuthEngine64/SharePointFba.h"
#include "VantrelAuthEngine64/SharePointOffice365.h"

#endif  // VANTREL_AUTH_ENGINE_H_
