#pragma once

#include <boost/variant.hpp>

#include <string>
#include <vector>

namespace connector::configuration {

/// A configuration value. The order of the alternatives is part of the contract with the host.
using ConfigValue =
    boost::variant<bool, int, unsigned int, double, std::u16string, std::string, std::vector<bool>,
                   std::vector<int>, std::vector<unsigned int>, std::vector<double>,
                   std::vector<std::u16string>, std::vector<std::string>>;

} // namespace connector::configuration
