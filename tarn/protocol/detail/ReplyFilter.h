#pragma once

#include "tarn/protocol/ReplyLimits.h"

#include <Poco/SAX/Attributes.h>
#include <Poco/SAX/LexicalHandler.h>
#include <Poco/SAX/XMLFilterImpl.h>

#include <cstddef>
#include <string>
#include <unordered_set>

namespace connector::tarn::detail {

/// Stands between the parser and the DOM builder and stops forwarding once a document passes a limit.
///
/// Deep nesting would overflow the stack of the DOM's recursive readers and destructors, and more distinct
/// names than its name pool holds would make the builder throw out of a parser callback, which leaks the
/// parser. So this filter throws nothing: it only remembers. What stays below the limits is passed on
/// unchanged.
class ReplyFilter : public Poco::XML::XMLFilterImpl, private Poco::XML::LexicalHandler {
public:
    ReplyFilter(Poco::XML::XMLReader* parent, const ReplyLimits& limits);

    /// Whether the document passed a limit; what has been built of it is then incomplete.
    bool limitPassed() const { return passed; }

    using XMLFilterImpl::setProperty;
    void setProperty(const Poco::XML::XMLString& propertyId, void* value) override;

    void startElement(const Poco::XML::XMLString& uri, const Poco::XML::XMLString& localName,
                      const Poco::XML::XMLString& qname, const Poco::XML::Attributes& attributes) override;
    void endElement(const Poco::XML::XMLString& uri, const Poco::XML::XMLString& localName,
                    const Poco::XML::XMLString& qname) override;
    void characters(const Poco::XML::XMLChar text[], int start, int length) override;
    void ignorableWhitespace(const Poco::XML::XMLChar text[], int start, int length) override;
    void processingInstruction(const Poco::XML::XMLString& target, const Poco::XML::XMLString& data) override;
    void notationDecl(const Poco::XML::XMLString& name, const Poco::XML::XMLString* publicId,
                      const Poco::XML::XMLString* systemId) override;
    void unparsedEntityDecl(const Poco::XML::XMLString& name, const Poco::XML::XMLString* publicId,
                            const Poco::XML::XMLString& systemId,
                            const Poco::XML::XMLString& notationName) override;

protected:
    void setupParse() override;

private:
    void startDTD(const Poco::XML::XMLString& name, const Poco::XML::XMLString& publicId,
                  const Poco::XML::XMLString& systemId) override;
    void endDTD() override;
    void startEntity(const Poco::XML::XMLString& name) override;
    void endEntity(const Poco::XML::XMLString& name) override;
    void startCDATA() override;
    void endCDATA() override;
    void comment(const Poco::XML::XMLChar text[], int start, int length) override;

    /// Counts `count` more nodes. @return whether they may be passed on
    bool admit(std::size_t count = 1);
    void countName(const Poco::XML::XMLString& uri, const Poco::XML::XMLString& qname);

    ReplyLimits limits;
    Poco::XML::LexicalHandler* lexicalHandler = nullptr; ///< the DOM builder's
    std::unordered_set<std::string> names;
    std::size_t depth = 0;
    std::size_t nodes = 0;
    bool passed = false;
};

} // namespace connector::tarn::detail
