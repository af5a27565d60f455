#include "tarn/protocol/detail/ReplyInspection.h"

#include "tarn/protocol/detail/ExpatParser.h"
#include "tarn/protocol/detail/NameSet.h"

#include <Poco/TextEncoding.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace connector::tarn::detail {
namespace {

/// Counts what the events of the parser will cost. Nothing may be thrown through its C frames, hence the flags.
class Inspection {
public:
    Inspection(XML_Parser source, const ReplyLimits& replyLimits) : parser(source), limits(replyLimits)
    {
        XML_SetUserData(parser, this);
        XML_SetReturnNSTriplet(parser, XML_TRUE); // as the DOM's name pool tells names apart
        XML_SetElementHandler(parser, startElement, endElement);
        XML_SetCharacterDataHandler(parser, [](void* self, const XML_Char*, int length) {
            of(self).addText(static_cast<std::size_t>(length));
        });
        XML_SetCommentHandler(parser, [](void* self, const XML_Char* text) { of(self).addTextNode(text); });
        XML_SetProcessingInstructionHandler(
            parser, [](void* self, const XML_Char*, const XML_Char* data) { of(self).addTextNode(data); });
        XML_SetStartCdataSectionHandler(parser, [](void* self) { of(self).addNode(); });
        XML_SetStartNamespaceDeclHandler(
            parser, [](void* self, const XML_Char*, const XML_Char* uri) { of(self).addNamespace(uri); });
        XML_SetEntityDeclHandler(parser, [](void* self, const XML_Char*, int, const XML_Char*, int,
                                            const XML_Char*, const XML_Char*, const XML_Char*,
                                            const XML_Char*) { of(self).addEntity(); });
        XML_SetUnknownEncodingHandler(parser, useEncoding, nullptr);
        XML_SetNotationDeclHandler(parser, [](void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                                              const XML_Char*) { of(self).addNode(); });
    }

    std::size_t countedNames() const { return names.size() + namespaces; }

private:
    static Inspection& of(void* self) { return *static_cast<Inspection*>(self); }

    static void startElement(void* self, const XML_Char* name, const XML_Char** attributes)
    {
        auto& inspection = of(self);
        inspection.require(++inspection.depth <= inspection.limits.depth);
        inspection.addNode();
        inspection.addName(name);
        for (; *attributes; attributes += 2) {
            inspection.addName(attributes[0]);
            inspection.addTextNode(attributes[1]);
        }
    }

    static void endElement(void* self, const XML_Char*) { --of(self).depth; }

    /// The encodings that Poco's parser knows beside expat's own: what it reads has to be counted.
    static int useEncoding(void*, const XML_Char* name, XML_Encoding* info)
    {
        auto encoding = Poco::TextEncoding::find(name);
        if (!encoding) return XML_STATUS_ERROR;
        std::copy_n(encoding->characterMap(), 256, info->map);
        info->data = encoding.get(); // the list of encodings keeps it
        info->convert = [](void* data, const char* sequence) {
            return static_cast<Poco::TextEncoding*>(data)->convert(
                reinterpret_cast<const unsigned char*>(sequence));
        };
        info->release = nullptr;
        return XML_STATUS_OK;
    }

    void addNode() { require(++nodes <= limits.nodes); }

    void addEntity() { require(++entities <= limits.entities); }

    void addText(std::size_t length)
    {
        // Every piece is counted as a node, although the DOM joins pieces that touch.
        addNode();
        require((text += length) <= limits.bytes);
    }

    void addTextNode(const XML_Char* value) { addText(value ? std::strlen(value) : 0); }

    void addNamespace(const XML_Char* uri)
    {
        require(!uri || std::strlen(uri) <= limits.nameLength);
        ++namespaces;
    }

    void addName(const XML_Char* name)
    {
        const std::string_view text(name);
        require(text.size() <= limits.nameLength);
        if (passed || names.find(text) != names.end()) return; // nearly always known: not worth a copy
        try {
            names.emplace(text);
            require(names.size() <= limits.names);
        } catch (...) {
            require(false); // no memory to go on with
        }
    }

    void require(bool within)
    {
        if (within || passed) return;
        passed = true;
        XML_StopParser(parser, XML_FALSE);
    }

    XML_Parser parser;
    const ReplyLimits& limits;
    NameSet names;
    std::size_t namespaces = 0;
    std::size_t depth = 0;
    std::size_t nodes = 0;
    std::size_t entities = 0;
    std::size_t text = 0;
    bool passed = false;
};

} // namespace

std::optional<std::size_t> namesIn(std::string_view text, const ReplyLimits& limits)
{
    const ExpatParser parser(XML_ParserCreateNS(nullptr, '\t'));
    if (!parser) return std::nullopt;
    Inspection inspection(parser.get(), limits); // a limit passed stops the parser, which is then an error
    if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK) {
        return std::nullopt;
    }
    return inspection.countedNames();
}

} // namespace connector::tarn::detail
