// GLib synchronises with futexes of its own that ThreadSanitizer does not see, so it takes every object that one thread
// frees and another one allocates again for a race. What runs below GLib and libgsf is therefore not judged; the code
// above them is. Linked into tests that read packages from several threads.
extern "C" __attribute__((visibility("default"))) const char*
__tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier): the sanitizer's own name for it
  return "race:libglib-2.0.so\nrace:libgobject-2.0.so\nrace:libgsf-1.so\n";
}
