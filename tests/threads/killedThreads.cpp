// Suppressions for LeakSanitizer, because a killed thread leaks its memory.
extern "C" __attribute__((visibility("default"))) char const *__lsan_default_suppressions()
{
    return "leak:Zv::MtLogger::enterThread\nleak:Zv::MtTraceMgr::prepareThread\n";
}
