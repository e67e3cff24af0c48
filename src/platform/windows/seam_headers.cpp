// Shows at compile time that no name in the seam is a macro of the platform's headers: such a name
// would compile on both sides of the seam and then fail to link. Every header of the seam stands
// here, behind the platform's own.
#include "platform/windows/windows_headers.h"

#include "platform/clock.h"
#include "platform/codes.h"
#include "platform/console.h"
#include "platform/crypto.h"
#include "platform/files.h"
#include "platform/network.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "platform/resources.h"
#include "platform/security.h"
#include "platform/services.h"
#include "platform/system_text.h"
#include "platform/trust.h"
#include "platform/wait.h"
#include "platform/wfp.h"
#include "platform/wfp_records.h"
