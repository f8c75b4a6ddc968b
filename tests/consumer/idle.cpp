// Links libzvresmgt and uses nothing of it. Its packages are up nevertheless.

#include <zvbase/dbgBuildInfo.h>
#include <zvbase/inPackage.h>

#include <iostream>

int main()
{
    Zv::InPackageScope const packages;
    Zv::DbgBuildInfoUtil::list(std::cout);
}
