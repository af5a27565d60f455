#include "tarn/protocol/detail/PlainReply.h"

#include "tarn/protocol/detail/ExpatParser.h"
#include "tarn/protocol/detail/ThreadNames.h"

#include <Poco/DOM/DOMBuilder.h>
#include <Poco/SAX/AttributesImpl.h>
#include <Poco/SAX/XMLFilterImpl.h>

#include <random>
#include <string>

namespace connector::tarn::detail {
namespace {

ExpatParser newParser()
{
    return ExpatParser(XML_ParserCreate(nullptr));
}

/// This thread's parser, as if it was new.
XML_Parser keptParser()
{
    static thread_local const ExpatParser parser = newParser();
    // What keeps texts from being made to collide in its tables: it would ask the kernel for one each time.
    static thread_local const unsigned long salt = std::random_device()() | 1;
    if (!parser) return nullptr;
    XML_ParserReset(parser.get(), nullptr);
    XML_SetHashSalt(parser.get(), salt);
    return parser.get();
}

/// Gives what expat finds to the builder of a DOM, until something comes that is not plain.
class PlainReader : public Poco::XML::XMLFilterImpl {
public:
    PlainReader(XML_Parser source, ThreadNames& threadNames, const ReplyLimits& replyLimits)
        : parser(source), names(threadNames), limits(replyLimits)
    {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser,
            [](void* self, const XML_Char* name, const XML_Char** attributes) {
                of(self).pass([&](PlainReader& reader) { reader.onStart(name, attributes); });
            },
            [](void* self, const XML_Char*) { of(self).pass([](PlainReader& reader) { reader.onEnd(); }); });
        XML_SetCharacterDataHandler(parser, [](void* self, const XML_Char* text, int length) {
            of(self).pass([&](PlainReader& reader) { reader.onText(text, length); });
        });
        XML_SetCommentHandler(parser, [](void* self, const XML_Char*) { of(self).giveUp(); });
        XML_SetProcessingInstructionHandler(
            parser, [](void* self, const XML_Char*, const XML_Char*) { of(self).giveUp(); });
        XML_SetStartCdataSectionHandler(parser, [](void* self) { of(self).giveUp(); });
        XML_SetStartDoctypeDeclHandler(parser, [](void* self, const XML_Char*, const XML_Char*,
                                                  const XML_Char*, int) { of(self).giveUp(); });
    }

    /// Whether all of the text was plain.
    bool isPlain() const { return plain; }

    /// There are no namespaces to look for,
    bool getFeature(const std::string&) const override { return false; }

    /// nothing is set up by a text,
    void setProperty(const std::string&, const std::string&) override {}

    /// and the handler of what is not plain would never be called.
    void setProperty(const std::string&, void*) override {}

    void parseMemoryNP(const char* text, std::size_t size) override
    {
        startDocument();
        if (XML_Parse(parser, text, static_cast<int>(size), XML_TRUE) != XML_STATUS_OK) plain = false;
        endDocument();
    }

private:
    static PlainReader& of(void* self) { return *static_cast<PlainReader*>(self); }

    /// Nothing may be thrown through the C frames of the parser, which may come once more after it was stopped.
    template <class Event>
    void pass(Event event) noexcept
    {
        if (!plain) return;
        try {
            event(*this);
        } catch (...) {
            giveUp(); // no memory
        }
    }

    void onStart(const XML_Char* name, const XML_Char** attributes)
    {
        const auto* known = *attributes ? nullptr : names.find(name, limits);
        if (!known || ++depth > limits.depth || ++nodes > limits.nodes) return giveUp();
        inText = false;
        startElement(empty, empty, *known, noAttributes);
    }

    void onEnd()
    {
        --depth;
        inText = false;
        endElement(empty, empty, empty);
    }

    void onText(const XML_Char* text, int length)
    {
        // The builder joins pieces that touch.
        if (!inText && ++nodes > limits.nodes) return giveUp();
        inText = true;
        characters(text, 0, length);
    }

    void giveUp() noexcept
    {
        plain = false;
        XML_StopParser(parser, XML_FALSE);
    }

    XML_Parser parser;
    ThreadNames& names;
    const ReplyLimits& limits;
    const std::string empty;
    const Poco::XML::AttributesImpl noAttributes;
    std::size_t depth = 0;
    std::size_t nodes = 0;
    bool inText = false;
    bool plain = true;
};

} // namespace

Poco::AutoPtr<Poco::XML::Document> plainDocument(std::string_view text, const ReplyLimits& limits)
{
    constexpr std::size_t usualNames = 50;
    constexpr std::size_t shortReply = 16 * 1024; // the parser keeps a buffer of this size
    const auto own = text.size() > shortReply ? newParser() : nullptr;
    const auto parser = own ? own.get() : keptParser();
    if (!parser) return nullptr;
    auto& names = ThreadNames::ofThisThread();
    PlainReader reader(parser, names, limits);
    Poco::XML::DOMBuilder builder(reader, names.poolFor(usualNames));
    Poco::AutoPtr<Poco::XML::Document> document(builder.parseMemoryNP(text.data(), text.size()));
    return reader.isPlain() ? document : nullptr;
}

} // namespace connector::tarn::detail
