#pragma once

#include "tarntesting/ScriptedHttpServer.h"

namespace connector::host::test {
using tarntesting::closedPort;
using tarntesting::ScriptedHttpServer;
} // namespace connector::host::test
