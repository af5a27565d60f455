#pragma once

#include "tarnhost/Tarn.h"
#include "tarntesting/TestService.h"

#include <map>
#include <string>

struct Page {
    void (*run)(tarntesting::TestService&, connector::host::Tarn&, connector::host::TarnHost&);
    bool hasTests;
};

/// By the name of its file.
extern const std::map<std::string, Page> pages;
