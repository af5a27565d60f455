#include "tarnd/store/Troubles.h"

#include "tarnd/store/Contents.h"
#include "tarnd/store/Database.h"

namespace tarnd {

std::vector<std::string> Troubles::now()
{
    const std::lock_guard lock(mutex);
    const auto moment = std::chrono::steady_clock::now();
    if (!looked || moment - *looked >= std::chrono::seconds(1)) {
        found = look();
        looked = std::chrono::steady_clock::now(); // looking may have taken long
    }
    return found;
}

std::vector<std::string> Troubles::look()
{
    std::vector<std::string> sentences;
    try {
        engine.database.lookUp([](Transaction& transaction) {
            transaction.value<std::string>("SELECT value FROM meta WHERE name = 'schema'");
        });
        engine.database.requireFiles();
    } catch (const ServiceError&) {
        sentences.emplace_back("The database does not answer.");
    }
    if (auto why = engine.contents.whyNotWritable(); !why.empty()) sentences.push_back(std::move(why));
    return sentences;
}

} // namespace tarnd
