// Tests ask for more memory than there is; under a sanitizer that must fail as it does without. The
// sanitizer's shared library looks these up, so they are visible.

#define SEEN_BY_SANITIZER extern "C" __attribute__((visibility("default")))

SEEN_BY_SANITIZER const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

// It would sleep for a second at the end of every program, and tests start thousands. Without that, a host that went
// inside a continuation may still be joining its threads, which is no leak.
SEEN_BY_SANITIZER const char* __tsan_default_options()
{
    return "allocator_may_return_null=1:atexit_sleep_ms=0:report_thread_leaks=0";
}

// The C++ library counts the owners of an exception in code that the sanitizer has not seen.
SEEN_BY_SANITIZER const char* __tsan_default_suppressions()
{
    return "race:std::__exception_ptr::exception_ptr::_M_release";
}

// Poco's XML parser loses its context when memory runs out while it makes one; the tests of that cannot mend it.
SEEN_BY_SANITIZER const char* __lsan_default_suppressions()
{
    return "leak:Poco::XML::ParserEngine::pushContext";
}
