#include "tarn/protocol/ContentRequest.h"

namespace connector::tarn {

void addVersion(ServiceRequest& http, const VersionInfo& version)
{
    if (version.versionId.empty()) return;
    http.addText("versionId", version.versionId);
    http.addNumber("versionLabel", version.versionLabel);
}

void addCreateMode(ServiceRequest& http, CreateMode mode)
{
    switch (mode) { // no default, so that the compiler tells of a mode that is missing here
    case CreateMode::create:
        http.addText("createMode", "CREATE");
        break;
    case CreateMode::update:
        http.addText("createMode", "UPDATE");
        break;
    case CreateMode::createOrUpdate:
        http.addText("createMode", "CREATE_OR_UPDATE");
        break;
    }
}

} // namespace connector::tarn
