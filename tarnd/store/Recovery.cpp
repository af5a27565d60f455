#include "tarnd/store/Recovery.h"

#include "tarnd/store/ContentCheck.h"
#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/Database.h"

namespace tarnd {

RecoveryReport recover(Engine engine)
{
    RecoveryReport report;
    report.abandonedUploads = engine.contents.dropAbandonedUploads();
    const auto check = compareContents(engine);
    if (!check.missing.empty()) {
        std::string detail;
        for (const auto& missing : check.missing)
            detail.append(detail.empty() ? "" : "\n").append(missing);
        throw sentences::contentsMissing.because(detail);
    }
    engine.contents.drop(check.orphans);
    report.orphanedContents = check.orphans.size();
    return report;
}

} // namespace tarnd
