#pragma once

#include "tarnd/store/Clock.h"

namespace tarnd {

class Contents;
class Database;

/// What every part of the domain works on. The referenced objects outlive the parts.
struct Engine {
    Database& database;
    Contents& contents;
    Clock clock;
};

} // namespace tarnd
