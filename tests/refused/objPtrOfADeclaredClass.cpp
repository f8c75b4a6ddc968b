// the owner's destructor needs the definition of the class

#include <zvbase/objPtr.h>

struct Engine;
Zv::ObjPtr<Engine> makeEngine();

void use()
{
    Zv::ObjPtr<Engine> engine(makeEngine());
}
