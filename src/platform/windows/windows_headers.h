// The platform's headers, included in one way everywhere below the seam.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// Before <windows.h>, which would bring the older sockets otherwise.
#include <winsock2.h>

#include <windows.h>
