// LeakSanitizer: the memory of a killed thread is lost.
extern "C" __attribute__((visibility("default"))) char const *__lsan_default_suppressions()
{
    return "leak:Zv::MtLogger::enterThread\nleak:Zv::MtTraceMgr::prepareThread\n";
}
