// What a killed thread has of its own is nobody's any more.
extern "C" __attribute__((visibility("default"))) char const *__lsan_default_suppressions()
{
    return "leak:Zv::MtLogger::enterThread\nleak:Zv::MtTraceMgr::prepareThread\n";
}
