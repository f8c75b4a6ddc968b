// the owner's destructor needs the definition of the class

#include <zvbase/objPtr.h>

struct Engine;
Zv::ArrayPtr<Engine> makeEngines();

void use()
{
    Zv::ArrayPtr<Engine> engines(makeEngines());
}
