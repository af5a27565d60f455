#include "tarn/protocol/detail/PlainText.h"

#include "tarn/protocol/detail/ExpatParser.h"

#include <random>

namespace connector::tarn::detail {
namespace {

/// This thread's parser, as if it was new.
XML_Parser keptParser()
{
    static thread_local const ExpatParser parser(XML_ParserCreate(nullptr));
    // What keeps texts from being made to collide in its tables: it would ask the kernel for one each time.
    static thread_local const unsigned long salt = std::random_device()() | 1;
    if (!parser) return nullptr;
    XML_ParserReset(parser.get(), nullptr);
    XML_SetHashSalt(parser.get(), salt);
    return parser.get();
}

/// Passes on what expat finds, until something comes that is not plain.
class PlainParse {
public:
    PlainParse(XML_Parser source, const ReplyLimits& replyLimits, PlainEvents& receiver)
        : parser(source), limits(replyLimits), events(receiver)
    {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser,
            [](void* self, const XML_Char* name, const XML_Char** attributes) {
                of(self).pass([&](PlainParse& parse) { return parse.onStart(name, attributes); });
            },
            [](void* self, const XML_Char*) {
                of(self).pass([](PlainParse& parse) { return parse.onEnd(); });
            });
        XML_SetCharacterDataHandler(parser, [](void* self, const XML_Char* text, int length) {
            of(self).pass([&](PlainParse& parse) {
                return parse.onText({text, static_cast<std::size_t>(length)});
            });
        });
        XML_SetCommentHandler(parser, [](void* self, const XML_Char*) { of(self).giveUp(); });
        XML_SetProcessingInstructionHandler(
            parser, [](void* self, const XML_Char*, const XML_Char*) { of(self).giveUp(); });
        XML_SetStartCdataSectionHandler(parser, [](void* self) { of(self).giveUp(); });
        XML_SetStartDoctypeDeclHandler(parser, [](void* self, const XML_Char*, const XML_Char*,
                                                  const XML_Char*, int) { of(self).giveUp(); });
    }

    /// Whether all of the text was plain.
    bool run(std::string_view text)
    {
        // The parser copies what it is given: of a long text only a piece is there twice.
        constexpr std::size_t piece = 16 * 1024;
        for (XML_Index given = piece; text.size() > piece; given += piece) {
            if (!parse(text.substr(0, piece), XML_FALSE)) return false;
            // It would read a tag that is longer from the start with every piece.
            if (given - XML_GetCurrentByteIndex(parser) > static_cast<XML_Index>(piece)) return false;
            text.remove_prefix(piece);
        }
        return parse(text, XML_TRUE);
    }

private:
    bool parse(std::string_view piece, XML_Bool isLast)
    {
        return XML_Parse(parser, piece.data(), static_cast<int>(piece.size()), isLast) == XML_STATUS_OK &&
               plain;
    }

    static PlainParse& of(void* self) { return *static_cast<PlainParse*>(self); }

    /// Nothing may be thrown through the C frames of the parser, which may come once more after it was stopped.
    template <class Event>
    void pass(Event event) noexcept
    {
        if (!plain) return;
        try {
            if (!event(*this)) giveUp();
        } catch (...) {
            giveUp(); // no memory, or what the receiver cannot read
        }
    }

    bool onStart(const XML_Char* name, const XML_Char** attributes)
    {
        if (*attributes || ++depth > limits.depth || ++nodes > limits.nodes) return false;
        inText = false;
        return events.onStart(name);
    }

    bool onEnd()
    {
        --depth;
        inText = false;
        return events.onEnd();
    }

    bool onText(std::string_view piece)
    {
        // Pieces that touch are one node.
        if (!inText && ++nodes > limits.nodes) return false;
        inText = true;
        return events.onText(piece);
    }

    void giveUp() noexcept
    {
        plain = false;
        XML_StopParser(parser, XML_FALSE);
    }

    XML_Parser parser;
    const ReplyLimits& limits;
    PlainEvents& events;
    std::size_t depth = 0;
    std::size_t nodes = 0;
    bool inText = false;
    bool plain = true;
};

} // namespace

bool readPlain(std::string_view text, const ReplyLimits& limits, PlainEvents& events)
{
    if (text.size() > limits.bytes) return false;
    const auto parser = keptParser();
    return parser && PlainParse(parser, limits, events).run(text);
}

} // namespace connector::tarn::detail
