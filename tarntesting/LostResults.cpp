#include "tarntesting/LostResults.h"

#include "tarn/foundation/platform/TypeName.h"

#include <mutex>

namespace tarntesting {

struct LostResults::Notes {
    std::mutex mutex; ///< guards both
    std::vector<std::string> dropped;
    std::vector<std::string> unobserved;
};

namespace {

std::string sentenceOf(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "not a std::exception";
    }
}

} // namespace

LostResults::LostResults()
    : notes(std::make_shared<Notes>())
    , watch({.unobserved =
                 [to = notes](const std::exception_ptr& failure) {
                     const std::lock_guard lock(to->mutex);
                     to->unobserved.push_back(sentenceOf(failure));
                 },
             .dropped =
                 [to = notes](const std::type_info& result) {
                     const std::lock_guard lock(to->mutex);
                     to->dropped.push_back(
                         foundation::core::diag::detail::demangle_typeid_name(result.name(), true));
                 }})
{
}

LostResults::~LostResults() = default;

std::vector<std::string> LostResults::dropped() const
{
    const std::lock_guard lock(notes->mutex);
    return notes->dropped;
}

std::vector<std::string> LostResults::unobserved() const
{
    const std::lock_guard lock(notes->mutex);
    return notes->unobserved;
}

} // namespace tarntesting
