#include "cli/transfer/UploadSummary.h"

#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"

#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

void tell(Output& out, const UploadReport& report, const std::string& where, const std::string& done)
{
    const auto there =
        counted(report.unchanged, "file") + " " + wasOrWere(report.unchanged) + " there already";
    if (report.files + report.folders == 0) {
        const bool isWhole = report.transfers.failed.empty() && report.transfers.notStarted == 0;
        if (isWhole && (report.unchanged > 0 || report.skipped.empty()))
            out.message("Nothing to do " + where + ": " + there + ".");
        return;
    }
    auto text = done + " " + counted(report.files, "file");
    if (report.folders > 0) text += " and " + counted(report.folders, "folder");
    text += " (" + humanSize(report.bytes) + ") " + where;
    out.message(text + (report.unchanged > 0 ? "; " + there : "") + ".");
}

} // namespace

void showUploads(Output& out, const UploadReport& report, const RemotePath& target, const char* preposition,
                 const char* done)
{
    tell(out, report, preposition + target.quoted(), done);
    out.result("", {{"files", report.files},
                    {"folders", report.folders},
                    {"bytes", report.bytes},
                    {"unchanged", report.unchanged},
                    {"target", target.text()},
                    {"skipped", report.skipped},
                    {"failed", toJson(report.transfers.failed)},
                    {"notTried", report.transfers.notStarted}});
}

} // namespace tarncli
