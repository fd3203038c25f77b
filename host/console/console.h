#ifndef HOST_CONSOLE_CONSOLE_H_
#define HOST_CONSOLE_CONSOLE_H_

#include <memory>

#include "host/web/engines.h"
#include "host/web/routes.h"

namespace qdt::host {

// Adds what /api/v1/ offers. Both outlive the routes.
void AddApi(Routes *routes, WebEngines *engines);

}  // namespace qdt::host

#endif  // HOST_CONSOLE_CONSOLE_H_
