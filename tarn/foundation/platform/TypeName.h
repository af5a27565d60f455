#pragma once

#include "tarn/foundation/Export.h"

#include <string>

namespace foundation::core::diag::detail {

/// The readable form of what std::type_info::name() returns, such as "connector::Message"; the name itself
/// when it is not a type name.
/// @param keepTemplateArguments  accepted for the framework's sake; template arguments are always kept
TARN_API std::string demangle_typeid_name(const char* name, bool keepTemplateArguments);

} // namespace foundation::core::diag::detail
