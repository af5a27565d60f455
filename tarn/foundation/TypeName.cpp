#include "tarn/foundation/platform/TypeName.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace foundation::core::diag::detail {

std::string demangle_typeid_name(const char* name, bool)
{
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> readable(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                                         &std::free);
    return status == 0 ? readable.get() : name;
}

} // namespace foundation::core::diag::detail
