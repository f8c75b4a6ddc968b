// Uses nothing of libzvbase itself, so that the linker does not name that library in the program.

#include <resmgt/locks/mtUtil.h>

int main()
{
    return Zv::MtUtil::getNbProcessors() < 1;
}
