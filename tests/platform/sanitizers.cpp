// The sanitizers' allocators end the process where malloc merely refuses a size; the tests want the refusal. And the
// last owner of a mutex may unlock it once more than it locked, which the thread sanitizer takes for a mistake.
extern "C" {
const char* __asan_default_options();
const char* __tsan_default_options();
const char* __tsan_default_suppressions();

const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
const char* __tsan_default_suppressions() { return "mutex:krMutexUnlock\nmutex:krMutexDestroy\n"; }
}
