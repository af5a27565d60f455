#include "tarn/protocol/detail/ReplyFilter.h"

namespace connector::tarn::detail {

using Poco::XML::Attributes;
using Poco::XML::XMLChar;
using Poco::XML::XMLFilterImpl;
using Poco::XML::XMLReader;
using Poco::XML::XMLString;

ReplyFilter::ReplyFilter(XMLReader* parent, const ReplyLimits& replyLimits)
    : XMLFilterImpl(parent), limits(replyLimits)
{
}

void ReplyFilter::setProperty(const XMLString& propertyId, void* value)
{
    // Comments and CDATA sections reach the builder past the content handler, so they are routed through
    // here.
    if (propertyId == XMLReader::PROPERTY_LEXICAL_HANDLER) {
        lexicalHandler = reinterpret_cast<LexicalHandler*>(value);
    } else {
        XMLFilterImpl::setProperty(propertyId, value);
    }
}

void ReplyFilter::setupParse()
{
    XMLFilterImpl::setupParse();
    parent()->setProperty(XMLReader::PROPERTY_LEXICAL_HANDLER, static_cast<LexicalHandler*>(this));
}

bool ReplyFilter::admit(std::size_t count)
{
    nodes += count;
    if (nodes > limits.nodes) passed = true;
    return !passed;
}

void ReplyFilter::countName(const XMLString& uri, const XMLString& qname)
{
    if (names.size() <= limits.names) names.insert(qname + '\n' + uri);
    if (names.size() > limits.names) passed = true;
}

void ReplyFilter::startElement(const XMLString& uri, const XMLString& localName, const XMLString& qname,
                               const Attributes& attributes)
{
    if (++depth > limits.depth) passed = true;
    countName(uri, qname);
    for (int i = 0; i < attributes.getLength(); ++i)
        countName(attributes.getURI(i), attributes.getQName(i));
    if (admit(1 + static_cast<std::size_t>(attributes.getLength()))) {
        XMLFilterImpl::startElement(uri, localName, qname, attributes);
    }
}

void ReplyFilter::endElement(const XMLString& uri, const XMLString& localName, const XMLString& qname)
{
    --depth;
    if (!passed) XMLFilterImpl::endElement(uri, localName, qname);
}

void ReplyFilter::characters(const XMLChar text[], int start, int length)
{
    if (admit()) XMLFilterImpl::characters(text, start, length);
}

void ReplyFilter::ignorableWhitespace(const XMLChar text[], int start, int length)
{
    if (admit()) XMLFilterImpl::ignorableWhitespace(text, start, length);
}

void ReplyFilter::processingInstruction(const XMLString& target, const XMLString& data)
{
    if (admit()) XMLFilterImpl::processingInstruction(target, data);
}

void ReplyFilter::notationDecl(const XMLString& name, const XMLString* publicId, const XMLString* systemId)
{
    if (admit()) XMLFilterImpl::notationDecl(name, publicId, systemId);
}

void ReplyFilter::unparsedEntityDecl(const XMLString& name, const XMLString* publicId,
                                     const XMLString& systemId, const XMLString& notationName)
{
    if (admit()) XMLFilterImpl::unparsedEntityDecl(name, publicId, systemId, notationName);
}

void ReplyFilter::startDTD(const XMLString& name, const XMLString& publicId, const XMLString& systemId)
{
    if (lexicalHandler && admit()) lexicalHandler->startDTD(name, publicId, systemId);
}

void ReplyFilter::endDTD()
{
    if (lexicalHandler && !passed) lexicalHandler->endDTD();
}

void ReplyFilter::startEntity(const XMLString& name)
{
    if (lexicalHandler && admit()) lexicalHandler->startEntity(name);
}

void ReplyFilter::endEntity(const XMLString& name)
{
    if (lexicalHandler && !passed) lexicalHandler->endEntity(name);
}

void ReplyFilter::startCDATA()
{
    if (lexicalHandler && admit()) lexicalHandler->startCDATA();
}

void ReplyFilter::endCDATA()
{
    if (lexicalHandler && !passed) lexicalHandler->endCDATA();
}

void ReplyFilter::comment(const XMLChar text[], int start, int length)
{
    if (lexicalHandler && admit()) lexicalHandler->comment(text, start, length);
}

} // namespace connector::tarn::detail
