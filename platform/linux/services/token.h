// What the rest of the Linux platform asks of the process token: whether a privilege is enabled now, and
// whether the process runs elevated (as an administrator; root, unless the host said otherwise).
#pragma once

#include "../../win32.h"

namespace vlx {

// True while the token holds the privilege (SE_SECURITY_NAME, ...) and it is enabled.
bool PrivilegeEnabled(LPCWSTR name);
bool ProcessIsElevated();

}  // namespace vlx
