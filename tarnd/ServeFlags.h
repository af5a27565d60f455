#pragma once

#include "tarnd/Serve.h"

#include <CLI/CLI.hpp>

namespace tarnd {

/// Where everything is stored: --config, --data and --database. The values land in `store`.
void addStoreOptions(CLI::App& command, StoreOptions& store);

/// All that `tarnd serve` takes besides.
void addServeOptions(CLI::App& command, ServeOptions& options);

/// Takes "5G" for a number of bytes and refuses what is no size.
CLI::Validator asSize();

} // namespace tarnd
