#include "tarnd/http/ConditionFields.h"
#include "tarnd/http/Handlers.h"
#include "tarnd/http/ItemRecords.h"

namespace tarnd {

Reply listVersions(Call& call)
{
    const auto history = call.store.versions().list(call.caller, itemOf(call));
    XmlWriter xml("Response");
    xml.text("Name", history.name);
    for (const auto& version : history.versions)
        xml.element("VersionSummary", [&] {
            writeVersion(xml, version.stamp);
            xml.number("Created", version.created);
        });
    return xmlReply(std::move(xml));
}

Reply restoreVersion(Call& call)
{
    const bool createNewVersion = call.request.query().flag("createNewVersion");
    XmlWriter xml("Response");
    writeVersion(xml, call.store.versions().restore(call.caller, itemOf(call), versionOf(call),
                                                    createNewVersion, conditionOf(call.request)));
    return xmlReply(std::move(xml));
}

} // namespace tarnd
