// The Volume Shadow Copy interfaces: the SDK's on Windows, varnel's declarations elsewhere, and on both the identifiers
// that the library asks for and the two-base form of IVssWriterComponentsExt.
#pragma once

#include "platform/win32.h"
#include "text/guid.h"

#ifdef _WIN32
// clang-format off
#include <vss.h>
#include <vswriter.h>
#ifdef __MINGW32__
using VssBool = boolean;
// MinGW's IVssWriterComponentsExt lacks the IUnknown base, so it could never be released. The interface is declared here
// as the service implements it, and MinGW's guard is taken.
#ifdef __IVssWriterComponentsExt_INTERFACE_DEFINED__
#error "Include the headers of varnel before <vsbackup.h>: they declare an interface that MinGW declares wrongly there."
#else
#define __IVssWriterComponentsExt_INTERFACE_DEFINED__
struct IVssWriterComponentsExt : IVssWriterComponents, IUnknown {};
#endif
#else
using VssBool = bool;
#endif
#include <vsbackup.h>
#include <vsadmin.h>
#include <vsserror.h>
// clang-format on
#else
using VssBool = bool;
#include "platform/portable/vss.h"
#include "platform/portable/vsserror.h"
#endif

namespace varnel {

/// The identifiers of the service's interfaces and of its class, by the interfaces' names.
///@{
inline constexpr GUID kIidUnknown = ParseGuid<GUID>("{00000000-0000-0000-C000-000000000046}");
inline constexpr GUID kIidVssAsync = ParseGuid<GUID>("{507C37B4-CF5B-4E95-B0AF-14EB9767467E}");
inline constexpr GUID kIidVssEnumObject = ParseGuid<GUID>("{AE1C7110-2F60-11D3-8A39-00C04F72D8E3}");
inline constexpr GUID kIidVssAdmin = ParseGuid<GUID>("{77ED5996-2F63-11D3-8A39-00C04F72D8E3}");
inline constexpr GUID kIidVssBackupComponents = ParseGuid<GUID>("{665C1D5F-C218-414D-A05D-7FEF5F9D5C86}");
inline constexpr GUID kIidVssBackupComponentsEx = ParseGuid<GUID>("{963F03AD-9E4C-4A34-AC15-E4B6174E5036}");
inline constexpr GUID kIidVssBackupComponentsEx2 = ParseGuid<GUID>("{ACFE2B3A-22C9-4EF8-BD03-2F9CA230084E}");
inline constexpr GUID kIidVssBackupComponentsEx3 = ParseGuid<GUID>("{C191BFBC-B602-4675-8BD1-67D642F529D5}");
inline constexpr GUID kIidVssBackupComponentsEx4 = ParseGuid<GUID>("{F434C2FD-B553-4961-A9F9-A8E90B673E53}");
inline constexpr GUID kIidVssExamineWriterMetadata = ParseGuid<GUID>("{902FCF7F-B7FD-42F8-81F1-B2E400B1E5BD}");
inline constexpr GUID kIidVssExamineWriterMetadataEx = ParseGuid<GUID>("{0C0E5EC0-CA44-472B-B702-E652DB1C0451}");
inline constexpr GUID kIidVssExamineWriterMetadataEx2 = ParseGuid<GUID>("{CE115780-A611-431B-B57F-C38303AB6AEE}");
inline constexpr GUID kIidVssComponent = ParseGuid<GUID>("{D2C72C96-C121-4518-B627-E5A93D010EAD}");
inline constexpr GUID kIidVssComponentEx = ParseGuid<GUID>("{156C8B5E-F131-4BD7-9C97-D1923BE7E1FA}");
inline constexpr GUID kIidVssComponentEx2 = ParseGuid<GUID>("{3B5BE0F2-07A9-4E4B-BDD3-CFDC8E2C0D2D}");
inline constexpr GUID kClsidVssCoordinator = ParseGuid<GUID>("{E579AB5F-1CC4-44B4-BED9-DE0991FF0623}");
///@}

}  // namespace varnel
