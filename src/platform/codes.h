// The platform's result codes that have a name on either side of the seam. 0 is success; texts of
// codes come from SystemMessage (system_text.h).
#pragma once

#include <cstdint>

namespace kestrelon::platform {

// A Win32 error code, a filtering-platform code or an HRESULT, as the call itself reports it.
using Code = std::uint32_t;

inline constexpr Code kSuccess = 0;
inline constexpr Code kFileNotFound = 2;
inline constexpr Code kPathNotFound = 3;
inline constexpr Code kAccessDenied = 5;
inline constexpr Code kInvalidHandle = 6;
inline constexpr Code kInvalidData = 13;
inline constexpr Code kNoMoreFiles = 18;
inline constexpr Code kSharingViolation = 32;
inline constexpr Code kNotSupported = 50;
inline constexpr Code kInvalidParameter = 87;
inline constexpr Code kBufferOverflow = 111;
inline constexpr Code kDiskFull = 112;
inline constexpr Code kCallNotImplemented = 120;
inline constexpr Code kInsufficientBuffer = 122;
inline constexpr Code kProcedureNotFound = 127;
inline constexpr Code kAlreadyExists = 183;
inline constexpr Code kMoreData = 234;
inline constexpr Code kWaitTimeout = 258;
inline constexpr Code kPipeConnected = 535;
inline constexpr Code kServiceAlreadyRunning = 1056;
inline constexpr Code kServiceNotFound = 1060;
inline constexpr Code kNotStartedByManager = 1063;
inline constexpr Code kServiceSpecificError = 1066;
inline constexpr Code kServiceMarkedForDelete = 1072;
inline constexpr Code kServiceExists = 1073;
inline constexpr Code kNoneMapped = 1332;
inline constexpr Code kInvalidSecurityDescriptor = 1338;
inline constexpr Code kEndpointNotRegistered = 1753;
inline constexpr Code kResourceNotFound = 1812;

inline constexpr Code kCalloutNotFound = 0x80320001;
inline constexpr Code kConditionNotFound = 0x80320002;
inline constexpr Code kFilterNotFound = 0x80320003;
inline constexpr Code kLayerNotFound = 0x80320004;
inline constexpr Code kProviderNotFound = 0x80320005;
inline constexpr Code kProviderContextNotFound = 0x80320006;
inline constexpr Code kSublayerNotFound = 0x80320007;
inline constexpr Code kObjectNotFound = 0x80320008;
inline constexpr Code kObjectExists = 0x80320009;
inline constexpr Code kInUse = 0x8032000A;
inline constexpr Code kDynamicSessionInProgress = 0x8032000B;
inline constexpr Code kWrongSession = 0x8032000C;
inline constexpr Code kNoTransaction = 0x8032000D;
inline constexpr Code kTransactionInProgress = 0x8032000E;
inline constexpr Code kTransactionAborted = 0x8032000F;
inline constexpr Code kSessionAborted = 0x80320010;
inline constexpr Code kIncompatibleTransaction = 0x80320011;
inline constexpr Code kTransactionTimeout = 0x80320012;
inline constexpr Code kLifetimeMismatch = 0x80320016;
inline constexpr Code kBuiltinObject = 0x80320017;
inline constexpr Code kNullPointer = 0x8032001C;
inline constexpr Code kInvalidEnumerator = 0x8032001D;
inline constexpr Code kInvalidFlags = 0x8032001E;
inline constexpr Code kInvalidNetMask = 0x8032001F;
inline constexpr Code kInvalidRange = 0x80320020;
inline constexpr Code kNullDisplayName = 0x80320023;
inline constexpr Code kInvalidActionType = 0x80320024;
inline constexpr Code kInvalidWeight = 0x80320025;
inline constexpr Code kMatchTypeMismatch = 0x80320026;
inline constexpr Code kTypeMismatch = 0x80320027;

inline constexpr Code kNoSignature = 0x800B0100;
inline constexpr Code kRevocationFailure = 0x800B010E;
inline constexpr Code kNoRevocationCheck = 0x80092012;
inline constexpr Code kRevocationOffline = 0x80092013;
inline constexpr Code kBadDigest = 0x80096010;

}  // namespace kestrelon::platform
