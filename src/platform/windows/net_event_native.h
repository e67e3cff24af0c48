// The newest form of the filtering platform's net events (Windows 10 1809 and later), which the
// headers of mingw-w64 10 don't declare: under the platform's names, in a namespace where newer
// headers don't collide with them. Members that nobody here reads are kept for the layout, their
// pointers untyped.
#pragma once

#include "platform/windows/windows_headers.h"

#include <fwpmu.h>

#include <cstddef>

namespace kestrelon::platform {

struct FWPM_NET_EVENT_HEADER3 {
  FILETIME timeStamp;
  UINT32 flags;
  FWP_IP_VERSION ipVersion;
  UINT8 ipProtocol;
  union {
    UINT32 localAddrV4;
    FWP_BYTE_ARRAY16 localAddrV6;
  };
  union {
    UINT32 remoteAddrV4;
    FWP_BYTE_ARRAY16 remoteAddrV6;
  };
  UINT16 localPort;
  UINT16 remotePort;
  UINT32 scopeId;
  FWP_BYTE_BLOB appId;
  SID* userId;
  FWP_AF addressFamily;
  SID* packageSid;
  wchar_t* enterpriseId;
  UINT64 policyFlags;
  FWP_BYTE_BLOB effectiveName;
};

struct FWPM_NET_EVENT_CLASSIFY_DROP2 {
  UINT64 filterId;
  UINT16 layerId;
  UINT32 reauthReason;
  UINT32 originalProfile;
  UINT32 currentProfile;
  UINT32 msFwpDirection;
  BOOL isLoopback;
  FWP_BYTE_BLOB vSwitchId;
  UINT32 vSwitchSourcePort;
  UINT32 vSwitchDestinationPort;
};

struct FWPM_NET_EVENT_CLASSIFY_ALLOW0 {
  UINT64 filterId;
  UINT16 layerId;
  UINT32 reauthReason;
  UINT32 originalProfile;
  UINT32 currentProfile;
  UINT32 msFwpDirection;
  BOOL isLoopback;
};

struct FWPM_NET_EVENT5 {
  FWPM_NET_EVENT_HEADER3 header;
  UINT32 type;  // FWPM_NET_EVENT_TYPE, which is declared up to 5 alone
  union {       // by the type; further kinds of record are never looked at
    FWPM_NET_EVENT_CLASSIFY_DROP2* classifyDrop;
    FWPM_NET_EVENT_CLASSIFY_ALLOW0* classifyAllow;
    void* other;
  };
};

using FWPM_NET_EVENT_CALLBACK4 = void(CALLBACK*)(void* context, const FWPM_NET_EVENT5* event);

// FwpmNetEventSubscribe4, never imported: a program that imports it doesn't start on older systems.
using NetEventSubscribe4 = DWORD WINAPI(HANDLE engine,
                                        const FWPM_NET_EVENT_SUBSCRIPTION0* subscription,
                                        FWPM_NET_EVENT_CALLBACK4 callback, void* context,
                                        HANDLE* events);

// The published layouts of 64-bit Windows, of mingw-w64's own declarations too.
static_assert(sizeof(FWPM_NET_EVENT_HEADER3) == 136);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, flags) == 8);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, ipVersion) == 12);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, ipProtocol) == 16);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, localAddrV4) == 20);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, remoteAddrV4) == 36);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, localPort) == 52);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, remotePort) == 54);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, scopeId) == 56);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, appId) == 64);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, userId) == 80);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, addressFamily) == 88);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, packageSid) == 96);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, enterpriseId) == 104);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, policyFlags) == 112);
static_assert(offsetof(FWPM_NET_EVENT_HEADER3, effectiveName) == 120);
static_assert(sizeof(FWPM_NET_EVENT_CLASSIFY_DROP2) == 56);
static_assert(offsetof(FWPM_NET_EVENT_CLASSIFY_DROP2, vSwitchId) == 32);
static_assert(offsetof(FWPM_NET_EVENT_CLASSIFY_DROP2, vSwitchSourcePort) == 48);
static_assert(sizeof(FWPM_NET_EVENT_CLASSIFY_ALLOW0) == 32);
static_assert(offsetof(FWPM_NET_EVENT_CLASSIFY_ALLOW0, layerId) == 8);
static_assert(offsetof(FWPM_NET_EVENT_CLASSIFY_ALLOW0, reauthReason) == 12);
static_assert(offsetof(FWPM_NET_EVENT_CLASSIFY_ALLOW0, msFwpDirection) == 24);
static_assert(offsetof(FWPM_NET_EVENT_CLASSIFY_ALLOW0, isLoopback) == 28);
static_assert(sizeof(FWPM_NET_EVENT5) == 152);
static_assert(offsetof(FWPM_NET_EVENT5, type) == 136);
static_assert(offsetof(FWPM_NET_EVENT5, classifyDrop) == 144);
static_assert(sizeof(FWPM_NET_EVENT_HEADER1) == 144);
static_assert(sizeof(FWPM_NET_EVENT_CLASSIFY_DROP1) == 32);
static_assert(sizeof(FWPM_NET_EVENT1) == 160);
static_assert(offsetof(FWPM_NET_EVENT1, classifyDrop) == 152);
static_assert(sizeof(FWPM_NET_EVENT_SUBSCRIPTION0) == 32);

}  // namespace kestrelon::platform
