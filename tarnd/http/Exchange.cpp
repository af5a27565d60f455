#include "tarnd/http/Exchange.h"

#include "tarnd/http/PublicPages.h"
#include "tarnd/http/Sentences.h"
#include "tarnd/store/Sentences.h"

#include <utility>

namespace tarnd {

namespace {

constexpr std::uint64_t strayBodyLimit = 64 * 1024; // bytes that a request without content may carry

void refuseUnfitLength(const Route& route, const Request& request, std::uint64_t maxFileSize)
{
    const auto length = request.contentLength();
    if (route.begin != nullptr && !length) throw sentences::lengthRequired();
    if (route.begin != nullptr && *length > maxFileSize) throw sentences::fileTooLarge();
    if (route.begin == nullptr && length.value_or(0) > strayBodyLimit) throw sentences::bodyTooLarge();
}

} // namespace

Exchange::Exchange(Site& theSite, std::string theTarget) : site(theSite), target(std::move(theTarget)) {}

template <class F>
void Exchange::guarded(F&& step)
{
    try {
        step();
    } catch (const ServiceError& error) {
        fail(error);
    } catch (const std::exception& error) {
        fail(sentences::internal.because(error.what()));
    }
}

void Exchange::fail(const ServiceError& error)
{
    if (error.kind() == ServiceError::Kind::internal) site.log.failed(methodName, target, error);
    const bool forPeople = taken != nullptr && taken->access == Access::anybody;
    refusal = forPeople ? publicErrorPage(error) : errorReply(error);
    if (call) call->upload.reset();
}

void Exchange::route(const std::string& method, Headers headers)
{
    request.emplace(method, target, std::move(headers));
    taken = &routeOf(*request);
    call.emplace(Call{site.store, site.publicUrl, *request, tailOf(*taken, *request), {}, {}});
    if (taken->access == Access::session)
        call->caller = site.store.sessions().touch(request->header("x-qz-tarn-session-id"));
    refuseUnfitLength(*taken, *request, site.maxFileSize);
    if (taken->begin != nullptr) taken->begin(*call);
}

bool Exchange::begin(const std::string& method, Headers headers)
{
    begun = true;
    methodName = method;
    const bool bodyHeldBack = waitsForContinue(headers);
    guarded([&] { route(method, std::move(headers)); });
    // A client that already sends its body reads no reply before it is through, and a connection closed under
    // it would lose the reply: so the body is read and dropped. Where its end is in doubt there is nothing to
    // wait for.
    const bool endInDoubt = !request;
    return refusal && (bodyHeldBack || endInDoubt);
}

void Exchange::receive(const char* data, std::size_t size)
{
    received += size;
    if (refusal) return;
    guarded([&] {
        if (call->upload)
            call->upload->write(data, size);
        else if (received > strayBodyLimit)
            throw sentences::bodyTooLarge();
    });
}

Reply Exchange::finish()
{
    Reply reply;
    if (!refusal) guarded([&] { reply = taken->handle(*call); });
    if (refusal) reply = std::move(*refusal);
    site.log.answered(methodName, target, reply.status, std::chrono::steady_clock::now() - started);
    return reply;
}

} // namespace tarnd
