/** Leaks that are none of ours: fontconfig keeps patterns of its configuration until the process ends. */
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so";
}
