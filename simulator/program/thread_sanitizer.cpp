// Only in builds with ThreadSanitizer: GLib is not instrumented, so that whatever one of its
// threads hands to another one looks like a race. Races in our own code are still reported.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_options();

extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgio-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libumockdev.so\n";
}

// At the end of marvane-sim no thread but the main one is left to wait for.
extern "C" const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}
