#pragma once

#include <exception>
#include <string>

namespace connector::host::detail {

/// What an error is, in a line: the class, of a refusal the reason, of an exchange that failed its sentence. Not the
/// sentence of anything else, which may come from anybody and tell anything.
std::string nameOf(const std::exception_ptr& failure);

} // namespace connector::host::detail
