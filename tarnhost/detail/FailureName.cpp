#include "tarnhost/detail/FailureName.h"

#include "tarn/foundation/platform/TypeName.h"
#include "tarn/protocol/TarnError.h"
#include "tarnhost/TransportError.h"

namespace connector::host::detail {

std::string nameOf(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const tarn::TarnError& error) {
        return "a refusal, " + std::to_string(error.status()) + " " + error.reason();
    } catch (const TransportError& error) {
        return error.what();
    } catch (const std::exception& error) {
        return foundation::core::diag::detail::demangle_typeid_name(typeid(error).name(), true);
    } catch (...) {
        return "not a std::exception";
    }
}

} // namespace connector::host::detail
